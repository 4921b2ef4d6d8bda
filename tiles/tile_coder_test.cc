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
  TilePicture() : bytes_(kStride * kEdge, 0x20) {}

  /// Gray values 0 to count - 1 in turn; beyond 256 the other colour bytes differ too.
  static TilePicture OfColors(int count) {
    TilePicture picture;
    for (size_t i = 0; i < kPixels; ++i) {
      const int color = static_cast<int>(i) % count;
      uint8_t* const pixel = picture.Pixel(i);
      pixel[0] = static_cast<uint8_t>(color);
      pixel[1] = static_cast<uint8_t>(color);
      pixel[2] = static_cast<uint8_t>(color >> 8);
    }
    return picture;
  }

  /// Flat but for so many random bytes, in the rows that the sample looks at or in the others.
  static TilePicture OfNoise(size_t noiseBytes, NoiseRows rows) {
    TilePicture picture;
    std::mt19937 random(5);
    for (int y = 0; y < kEdge && noiseBytes > 0; ++y) {
      if ((y % kSampleStep == 0) != (rows == NoiseRows::kSampled)) continue;
      for (size_t x = 0; x < kRowBytes && noiseBytes > 0; ++x, --noiseBytes)
        picture.bytes_[static_cast<size_t>(y) * kStride + x] = static_cast<uint8_t>(random());
    }
    return picture;
  }

  PixelView View() const { return {bytes_.data(), kEdge, kEdge, kStride}; }
  PixelView SampleView() const { return {bytes_.data(), kEdge, kEdge / kSampleStep, kStride * kSampleStep}; }

  std::vector<uint8_t> Packed() const {
    std::vector<uint8_t> packed;
    for (int y = 0; y < kEdge; ++y) packed.insert(packed.end(), View().Row(y), View().Row(y) + kRowBytes);
    return packed;
  }

 private:
  static constexpr size_t kStride = kRowBytes + 28;

  uint8_t* Pixel(size_t i) { return &bytes_[i / kEdge * kStride + i % kEdge * 4]; }

  std::vector<uint8_t> bytes_;
};

// A tile whose exact form, or whose sample's, has just this many bytes.
TilePicture NoiseOfCodedBytes(size_t codedBytes, NoiseRows rows) {
  ExactCoder exact;
  for (size_t noise = codedBytes * 3 / 4; noise < codedBytes * 5 / 4; ++noise) {
    TilePicture picture = TilePicture::OfNoise(noise, rows);
    const PixelView view = rows == NoiseRows::kSampled ? picture.SampleView() : picture.View();
    if (exact.LosslessBytes(view) == codedBytes) return picture;
  }
  ADD_FAILURE() << "no tile of " << codedBytes << " bytes";
  return {};
}

class TileCoderTest : public testing::Test {
 protected:
  CodedTile Code(const TilePicture& picture) { return coder.Code(picture.View(), rules, photoHold); }

  FakeImageCodec codec;
  TileEncoderSettings settings;
  TileCodingRules rules{.settings = settings, .codec = &codec};
  int32_t photoHold = 0;
  TileCoder coder;
};

TEST_F(TileCoderTest, PaletteLimitDecidesFirst) {
  const struct {
    const char* what;
    int colors;
    int limit;
    bool allowLossless;
    bool estimate;
    TileCoding coding;
  } rows[] = {
      {"at the limit", 32, 32, true, true, TileCoding::kPalette},
      {"at the limit of a coarse frame", 32, 32, false, true, TileCoding::kPalette},
      {"at the limit, without the test", 32, 32, true, false, TileCoding::kPalette},
      {"beyond it, but cheap: still the better exact form", 33, 32, true, true, TileCoding::kPalette},
      {"beyond it in a coarse frame", 33, 32, false, true, TileCoding::kJpeg},
      {"beyond it without the test", 33, 32, true, false, TileCoding::kJpeg},
      {"256 colours", 256, 256, false, true, TileCoding::kPalette},
      {"257 colours in a coarse frame", 257, 256, false, true, TileCoding::kJpeg},
      {"257 colours, but cheap", 257, 256, true, true, TileCoding::kLossless},
  };
  for (const auto& row : rows) {
    rules.paletteLimit = row.limit;
    rules.allowLossless = row.allowLossless;
    rules.estimatePhotographic = row.estimate;
    photoHold = 0;
    EXPECT_EQ(Code(TilePicture::OfColors(row.colors)).coding, row.coding) << row.what;
  }
}

TEST_F(TileCoderTest, WithoutCodecEverythingIsExact) {
  rules.codec = nullptr;
  rules.allowLossless = false;
  rules.losslessBudget = 0;
  const TilePicture noise = TilePicture::OfNoise(kPixels * 4, NoiseRows::kNotSampled);
  const CodedTile coded = Code(noise);
  EXPECT_EQ(coded.coding, TileCoding::kLossless);
  EXPECT_EQ(coded.payload, ExactCoder().EncodeLossless(noise.View()));
  EXPECT_EQ(photoHold, 0);
  rules.paletteLimit = 32;
  EXPECT_EQ(Code(TilePicture::OfColors(33)).coding, TileCoding::kLossless)
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
    EXPECT_EQ(Code(NoiseOfCodedBytes(row.exactBytes, NoiseRows::kNotSampled)).coding, row.coding) << row.what;
    EXPECT_EQ(photoHold, row.hold) << row.what;
  }
}

// 512 sampled pixels of at most 12 bits are 768 bytes. The tile as a whole would be cheap each time: it has
// few enough colours for a palette, though more than the limit.
TEST_F(TileCoderTest, SampleSparesTheFullAttempt) {
  rules.paletteLimit = 32;
  const TilePicture cheap = NoiseOfCodedBytes(768, NoiseRows::kSampled);
  const TilePicture dear = NoiseOfCodedBytes(769, NoiseRows::kSampled);
  EXPECT_EQ(Code(cheap).coding, TileCoding::kPalette);
  EXPECT_EQ(photoHold, 0);
  EXPECT_EQ(Code(dear).coding, TileCoding::kJpeg);
  EXPECT_EQ(photoHold, 60);

  for (const int step : {1, 0, -3, 33}) {
    photoHold = 0;
    settings.sampleRowStep = step;
    EXPECT_EQ(Code(dear).coding, TileCoding::kPalette) << "no sample is taken with step " << step;
  }
  // Row 0 is noise and row 32 flat: 16 bits a pixel.
  settings.sampleRowStep = 32;
  EXPECT_EQ(Code(dear).coding, TileCoding::kJpeg) << "two sampled rows suffice";
}

TEST_F(TileCoderTest, VerdictHoldsForItsTimeAndThenIsTestedAgain) {
  settings.photoHoldFrames = 3;
  const TilePicture photograph = TilePicture::OfNoise(kPixels * 4, NoiseRows::kNotSampled);
  const TilePicture drawing = NoiseOfCodedBytes(1500, NoiseRows::kNotSampled);
  EXPECT_EQ(Code(photograph).coding, TileCoding::kJpeg);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Code(drawing).coding, TileCoding::kJpeg) << i;
  EXPECT_EQ(Code(drawing).coding, TileCoding::kLossless);
  EXPECT_EQ(photoHold, 0);
}

TEST_F(TileCoderTest, HeldTileIsNoLongerNear) {
  const TilePicture near = NoiseOfCodedBytes(2000, NoiseRows::kNotSampled);
  EXPECT_EQ(Code(near).coding, TileCoding::kWebp);
  EXPECT_EQ(Code(near).coding, TileCoding::kJpeg);
}

TEST_F(TileCoderTest, HoldIsUntouchedWhereNothingIsTested) {
  const TilePicture photograph = TilePicture::OfNoise(kPixels * 4, NoiseRows::kNotSampled);
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
  const TilePicture photograph = TilePicture::OfNoise(kPixels * 4, NoiseRows::kNotSampled);
  const struct {
    const char* what;
    bool allowWebp;
    size_t webpBytes;
    size_t jpegBytes;
    TileCoding coding;
    int webpCalls;
    int jpegCalls;
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
    if (row.coding == TileCoding::kLossless) {
      EXPECT_EQ(coded.payload, ExactCoder().EncodeLossless(photograph.View())) << row.what;
    }
  }
}

TEST_F(TileCoderTest, ExactFormIsAPaletteUpTo256Colors) {
  EXPECT_EQ(coder.CodeExactly(TilePicture::OfColors(256).View(), false).coding, TileCoding::kPalette);
  EXPECT_EQ(coder.CodeExactly(TilePicture::OfColors(257).View(), false).coding, TileCoding::kLossless);
  EXPECT_EQ(coder.CodeExactly(TilePicture::OfColors(257).View(), true).coding, TileCoding::kPalette)
      << "in grayscale the blue byte alone counts";
}

}  // namespace
}  // namespace cvn::agent
