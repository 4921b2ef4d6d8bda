#include "tiles/tile_coder.h"

#include <gtest/gtest.h>

#include <random>

#include "testing/fake_image_codec.h"

namespace cvn::agent {
namespace {

constexpr int kEdge = 64;
constexpr size_t kPixels = size_t{kEdge} * kEdge;
constexpr size_t kRowBytes = size_t{kEdge} * 4;
constexpr int kSampleStep = 8;

enum class NoiseRows { kSampled, kNotSampled };

/// A picture of one tile, a little wider than the tile so that nothing can take its rows for packed ones.
class TilePicture {
 public:
  /// Gray values 0 to count - 1 in turn; beyond 256 the other colour bytes differ too.
  static TilePicture OfColors(size_t count) {
    TilePicture picture;
    for (size_t i = 0; i < kPixels; ++i) {
      uint8_t* const pixel = &picture.bytes_[i / kEdge * kStride + i % kEdge * 4];
      pixel[0] = pixel[1] = static_cast<uint8_t>(i % count);
      pixel[2] = static_cast<uint8_t>(i % count >> 8);
    }
    return picture;
  }

  /// Flat but for so many random bytes, in the rows that the sample looks at or in the others.
  static TilePicture OfNoise(size_t noiseBytes, NoiseRows rows) {
    TilePicture picture;
    std::mt19937 random(5);
    for (int y = 0; y < kEdge; ++y) {
      if ((y % kSampleStep == 0) != (rows == NoiseRows::kSampled)) continue;
      for (size_t x = 0; x < kRowBytes && noiseBytes > 0; ++x, --noiseBytes)
        picture.bytes_[static_cast<size_t>(y) * kStride + x] = static_cast<uint8_t>(random());
    }
    return picture;
  }

  /// A tile whose exact form, or whose sample's, has just this many bytes.
  static TilePicture OfCodedBytes(size_t codedBytes, NoiseRows rows) {
    ExactCoder exact;
    for (size_t noise = codedBytes * 3 / 4; noise < codedBytes * 5 / 4; ++noise) {
      TilePicture picture = OfNoise(noise, rows);
      PixelView view = picture.View();
      if (rows == NoiseRows::kSampled)
        view = {picture.bytes_.data(), kEdge, kEdge / kSampleStep, kStride * kSampleStep};
      if (exact.LosslessBytes(view) == codedBytes) return picture;
    }
    ADD_FAILURE() << "no tile of " << codedBytes << " bytes";
    return {};
  }

  PixelView View() const { return {bytes_.data(), kEdge, kEdge, kStride}; }

  std::vector<uint8_t> Packed() const {
    std::vector<uint8_t> packed;
    for (int y = 0; y < kEdge; ++y) packed.insert(packed.end(), View().Row(y), View().Row(y) + kRowBytes);
    return packed;
  }

 private:
  static constexpr size_t kStride = kRowBytes + 28;

  std::vector<uint8_t> bytes_ = std::vector<uint8_t>(kStride * kEdge, 0x20);
};

class TileCoderTest : public testing::Test {
 protected:
  CodedTile Code(const TilePicture& picture) { return coder.Code(picture.View(), rules, photoHold); }
  TileCoding CodingOf(const TilePicture& picture) { return Code(picture).coding; }

  const TilePicture photograph = TilePicture::OfNoise(kPixels * 4, NoiseRows::kNotSampled);
  FakeImageCodec codec;
  TileEncoderSettings settings;
  TileCodingRules rules{.settings = settings, .codec = &codec};
  int32_t photoHold = 0;
  TileCoder coder;
};

TEST_F(TileCoderTest, PaletteLimitDecidesFirst) {
  const struct {
    const char* what;
    size_t colors;
    int limit;
    bool allowLossless, estimate;
    TileCoding coding;
  } rows[] = {
      {"at the limit of a coarse frame", 32, 32, false, true, TileCoding::kPalette},
      {"at the limit, without the test", 32, 32, true, false, TileCoding::kPalette},
      {"beyond it, but cheap: still the better exact form", 33, 32, true, true, TileCoding::kPalette},
      {"beyond it in a coarse frame", 33, 32, false, true, TileCoding::kJpeg},
      {"beyond it without the test", 33, 32, true, false, TileCoding::kJpeg},
      {"257 colours, but cheap", 257, 256, true, true, TileCoding::kLossless},
  };
  for (const auto& row : rows) {
    rules.paletteLimit = row.limit;
    rules.allowLossless = row.allowLossless;
    rules.estimatePhotographic = row.estimate;
    photoHold = 0;
    EXPECT_EQ(CodingOf(TilePicture::OfColors(row.colors)), row.coding) << row.what;
  }
}

TEST_F(TileCoderTest, WithoutCodecEverythingIsExact) {
  rules.codec = nullptr;
  rules.allowLossless = false;
  rules.losslessBudget = 0;
  rules.paletteLimit = 32;
  EXPECT_EQ(Code(photograph).payload, ExactCoder().EncodeLossless(photograph.View()));
  EXPECT_EQ(photoHold, 0);
  EXPECT_EQ(CodingOf(TilePicture::OfColors(33)), TileCoding::kLossless)
      << "no palette beyond the limit: there is nothing to save for";
}

// 3 bits for each of 4096 pixels are 1536 bytes, three times as much is near.
TEST_F(TileCoderTest, BudgetSeparatesExactNearAndPhotographic) {
  const struct {
    const char* what;
    size_t exactBytes;
    TileCoding coding;
    int32_t hold;
  } rows[] = {
      {"just within the budget", 1536, TileCoding::kLossless, 0},
      {"one byte more is near: WebP", 1537, TileCoding::kWebp, 60},
      {"just near", 4608, TileCoding::kWebp, 60},
      {"one byte more is a photograph: JPEG", 4609, TileCoding::kJpeg, 60},
  };
  for (const auto& row : rows) {
    photoHold = 0;
    const TilePicture picture = TilePicture::OfCodedBytes(row.exactBytes, NoiseRows::kNotSampled);
    EXPECT_EQ(CodingOf(picture), row.coding) << row.what;
    EXPECT_EQ(photoHold, row.hold) << row.what;
  }
}

// 512 sampled pixels of at most 12 bits are 768 bytes. The tile as a whole would be cheap each time: it has
// few enough colours for a palette, though more than the limit.
TEST_F(TileCoderTest, SampleSparesTheFullAttempt) {
  rules.paletteLimit = 32;
  const TilePicture cheap = TilePicture::OfCodedBytes(768, NoiseRows::kSampled);
  const TilePicture dear = TilePicture::OfCodedBytes(769, NoiseRows::kSampled);
  EXPECT_EQ(CodingOf(cheap), TileCoding::kPalette);
  EXPECT_EQ(photoHold, 0);
  EXPECT_EQ(CodingOf(dear), TileCoding::kJpeg);
  EXPECT_EQ(photoHold, 60);

  for (const int step : {1, 0, -3, 33}) {
    photoHold = 0;
    settings.sampleRowStep = step;
    EXPECT_EQ(CodingOf(dear), TileCoding::kPalette) << "no sample is taken with step " << step;
  }
  // Row 0 is noise and row 32 flat: 16 bits a pixel.
  settings.sampleRowStep = 32;
  EXPECT_EQ(CodingOf(dear), TileCoding::kJpeg) << "two sampled rows suffice";
}

TEST_F(TileCoderTest, VerdictHoldsForItsTimeAndThenIsTestedAgain) {
  settings.photoHoldFrames = 3;
  const TilePicture near = TilePicture::OfCodedBytes(2000, NoiseRows::kNotSampled);
  const TilePicture drawing = TilePicture::OfCodedBytes(1500, NoiseRows::kNotSampled);
  EXPECT_EQ(CodingOf(near), TileCoding::kWebp);
  EXPECT_EQ(CodingOf(near), TileCoding::kJpeg) << "a held tile is no longer near";
  for (int i = 0; i < 2; ++i) EXPECT_EQ(CodingOf(drawing), TileCoding::kJpeg) << i;
  EXPECT_EQ(CodingOf(drawing), TileCoding::kLossless);
  EXPECT_EQ(photoHold, 0);
}

TEST_F(TileCoderTest, HoldIsUntouchedWhereNothingIsTested) {
  photoHold = 5;
  rules.allowLossless = false;
  Code(photograph);
  rules.allowLossless = true;
  rules.estimatePhotographic = false;
  Code(photograph);
  rules.estimatePhotographic = true;
  rules.losslessBudget = 0;
  Code(photograph);
  Code(TilePicture::OfColors(2));
  EXPECT_EQ(photoHold, 5);
  EXPECT_EQ(codec.jpegCalls, 3);
}

TEST_F(TileCoderTest, CodecFailuresFallBack) {
  const struct {
    const char* what;
    bool allowWebp;
    size_t webpBytes, jpegBytes;
    TileCoding coding;
    int webpCalls, jpegCalls;
  } rows[] = {
      {"JPEG where WebP is not allowed", false, 50, 100, TileCoding::kJpeg, 0, 1},
      {"WebP where it is", true, 50, 100, TileCoding::kWebp, 1, 0},
      {"JPEG when WebP fails", true, 0, 100, TileCoding::kJpeg, 1, 1},
      {"lossless when JPEG fails", false, 50, 0, TileCoding::kLossless, 0, 1},
      {"lossless when both fail", true, 0, 0, TileCoding::kLossless, 1, 1},
  };
  for (const auto& row : rows) {
    codec = FakeImageCodec();
    codec.webpBytes = row.webpBytes;
    codec.jpegBytes = row.jpegBytes;
    rules.allowWebp = row.allowWebp;
    rules.quality = 77;
    const CodedTile coded = Code(photograph);
    EXPECT_EQ(coded.coding, row.coding) << row.what;
    EXPECT_EQ(codec.webpCalls, row.webpCalls) << row.what;
    EXPECT_EQ(codec.jpegCalls, row.jpegCalls) << row.what;
    EXPECT_EQ(codec.lastQuality, 77) << row.what;
    EXPECT_EQ(codec.lastPixels, photograph.Packed()) << row.what;
    EXPECT_EQ(coded.coding == TileCoding::kLossless,
              coded.payload == ExactCoder().EncodeLossless(photograph.View()));
  }
}

TEST_F(TileCoderTest, ExactFormIsAPaletteUpTo256Colors) {
  const TilePicture picture = TilePicture::OfColors(257);
  EXPECT_EQ(coder.CodeExactly(TilePicture::OfColors(256).View(), false).coding, TileCoding::kPalette);
  EXPECT_EQ(coder.CodeExactly(picture.View(), false).coding, TileCoding::kLossless);
  EXPECT_EQ(coder.CodeExactly(picture.View(), true).coding, TileCoding::kPalette) << "only blue counts";
}

}  // namespace
}  // namespace cvn::agent
