// What every host's codec promises, for JPEG and WebP alike.
#include "tiles/image_codec_test.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include "tiles/checked_image_codec.h"

namespace cvn::agent {
namespace {

using Bytes = std::vector<uint8_t>;

enum class Format { kJpeg, kWebp };
constexpr Format kFormats[] = {Format::kJpeg, Format::kWebp};

class Noise {
 public:
  explicit Noise(uint32_t seed) : state_(seed) {}
  uint32_t Below(size_t limit) {
    state_ = state_ * 1664525 + 1013904223;
    return static_cast<uint32_t>((uint64_t{state_ >> 8} * limit) >> 24);
  }

 private:
  uint32_t state_;
};

class ImageCodec : public testing::Test {
 protected:
  /// Empty on failure, for both formats.
  Bytes Encode(Format format, const Bytes& pixels, int width, int height, int quality) {
    if (format == Format::kJpeg) return codec_->EncodeJpeg(pixels, width, height, quality);
    return codec_->EncodeWebp(pixels, width, height, quality).value_or(Bytes());
  }

  /// Either a clean failure or an image of the size asked for.
  void ExpectSaneDecode(const Bytes& payload) {
    Bytes pixels;
    if (codec_->Decode(payload, 64, 48, pixels)) {
      ASSERT_EQ(pixels.size(), 64U * 48 * 4);
    }
  }

  /// Nothing that went before has spoilt the codec.
  void ExpectStillWorks(Format format) {
    const Bytes picture = PhotographPixels(64, 48);
    Bytes pixels;
    ASSERT_TRUE(codec_->Decode(Encode(format, picture, 64, 48, 90), 64, 48, pixels));
    EXPECT_GT(PsnrDecibels(picture, pixels), 30);
  }

  const std::unique_ptr<TileImageCodec> codec_ = CreateHostImageCodec();
};

TEST_F(ImageCodec, RoundTripsComeCloseAtEveryQualityAndSize) {
  const struct {
    int width, height, quality;
    double leastDecibels;
  } rows[] = {{64, 64, 30, 28}, {64, 64, 80, 32}, {64, 64, 90, 34}, {36, 6, 90, 32},
              {17, 33, 90, 32}, {1, 1, 90, 30},   {200, 64, 90, 34}};
  for (const Format format : kFormats) {
    for (const auto& row : rows) {
      SCOPED_TRACE(testing::Message() << (format == Format::kJpeg ? "JPEG " : "WebP ") << row.width << " x "
                                      << row.height << " at " << row.quality);
      const Bytes picture = PhotographPixels(row.width, row.height);
      const Bytes payload = Encode(format, picture, row.width, row.height, row.quality);
      Bytes pixels;
      ASSERT_TRUE(codec_->Decode(payload, row.width, row.height, pixels));
      ASSERT_EQ(pixels.size(), picture.size());
      EXPECT_GT(PsnrDecibels(picture, pixels), row.leastDecibels);
      for (size_t i = 3; i < pixels.size(); i += 4) ASSERT_EQ(pixels[i], 255) << "the fourth byte";
    }
  }
}

TEST_F(ImageCodec, QualityIsClamped) {
  const Bytes picture = PhotographPixels(64, 64);
  for (const Format format : kFormats) {
    const auto at = [&](int quality) { return Encode(format, picture, 64, 64, quality); };
    const Bytes least = at(1);
    const Bytes most = at(100);
    EXPECT_FALSE(least.empty());
    EXPECT_TRUE(at(0) == least);
    EXPECT_TRUE(at(INT_MIN) == least);
    EXPECT_TRUE(at(150) == most);
    EXPECT_TRUE(at(INT_MAX) == most);
  }
}

TEST_F(ImageCodec, WebpTakesFewerBytesThanJpegAndBothFollowTheContent) {
  const Bytes picture = PhotographPixels(64, 64);
  const size_t jpeg = Encode(Format::kJpeg, picture, 64, 64, 80).size();
  const size_t webp = Encode(Format::kWebp, picture, 64, 64, 80).size();
  EXPECT_LT(webp, jpeg);
  EXPECT_LT(jpeg, picture.size() / 4);
  const Bytes flat(picture.size(), 255);
  EXPECT_LT(Encode(Format::kJpeg, flat, 64, 64, 80).size(), jpeg);
  EXPECT_LT(Encode(Format::kWebp, flat, 64, 64, 80).size(), 110U);
  EXPECT_LT(Encode(Format::kWebp, picture, 64, 64, 30).size(), webp);
}

TEST_F(ImageCodec, EncodersRefuseWhatIsNoImage) {
  const Bytes picture = PhotographPixels(64, 64);
  const Bytes oneByteShort(picture.begin(), picture.end() - 1);
  const struct {
    const char* what;
    const Bytes& pixels;
    int width, height;
  } rows[] = {{"one byte short", oneByteShort, 64, 64},
              {"no pixels", {}, 64, 64},
              {"no width", picture, 0, 64},
              {"no height", picture, 64, 0},
              {"both negative", picture, -64, -64},
              {"products beyond 32 and 64 bits", picture, INT_MAX, INT_MAX},
              {"a product that wraps to few bytes", picture, 1 << 15, 1 << 15},
              {"beyond any format's widths", Bytes(65536 * 4), 65536, 1}};
  for (const auto& row : rows) {
    EXPECT_TRUE(codec_->EncodeJpeg(row.pixels, row.width, row.height, 80).empty()) << row.what;
    EXPECT_FALSE(codec_->EncodeWebp(row.pixels, row.width, row.height, 80).has_value()) << row.what;
  }
  EXPECT_FALSE(codec_->EncodeWebp(Bytes(16384 * 4), 16384, 1, 80).has_value()) << "beyond WebP's widths";
  for (const Format format : kFormats) ExpectStillWorks(format);
}

TEST_F(ImageCodec, DecodingAnotherSizeFailsBeforeMemoryIsTaken) {
  const struct {
    int width, height;
  } rows[] = {{65, 48}, {63, 48}, {64, 49},   {64, 47},       {48, 64},
              {0, 48},  {64, 0},  {-64, -48}, {65535, 65535}, {INT_MAX, INT_MAX}};
  for (const Format format : kFormats) {
    const Bytes payload = Encode(format, PhotographPixels(64, 48), 64, 48, 80);
    for (const auto& row : rows) {
      Bytes pixels;
      EXPECT_FALSE(codec_->Decode(payload, row.width, row.height, pixels))
          << row.width << " x " << row.height;
      EXPECT_EQ(pixels.capacity(), 0U);
    }
    ExpectStillWorks(format);
  }
}

TEST_F(ImageCodec, NeitherFormatIsRefused) {
  Bytes pixels;
  for (const char* text : {"", "R", "RIFF", "RIFF____WEB", "RIFF____WEBP", "RIFF____WAVEfmt ", "\xFF\xD8",
                           "\xFF\xD8\xFF\xD9", "GIF89a"}) {
    const Bytes payload(text, text + std::strlen(text));
    EXPECT_FALSE(codec_->Decode(payload, 64, 48, pixels)) << text;
  }
}

TEST_F(ImageCodec, CutPayloadsNeverCrash) {
  for (const Format format : kFormats) {
    const Bytes payload = Encode(format, PhotographPixels(64, 48), 64, 48, 80);
    for (size_t count = 0; count < payload.size(); ++count)
      ExpectSaneDecode(Bytes(payload.begin(), payload.begin() + static_cast<ptrdiff_t>(count)));
    ExpectStillWorks(format);
  }
}

TEST_F(ImageCodec, MutatedPayloadsNeverCrash) {
  for (const Format format : kFormats) {
    const Bytes payload = Encode(format, PhotographPixels(64, 48), 64, 48, 80);
    Noise noise(1);
    for (int i = 0; i < 3000; ++i) {
      Bytes mutated = payload;
      // Every other one in the headers, where a byte does the most harm.
      const size_t reach = i % 2 == 0 ? mutated.size() : 200;
      for (uint32_t changes = 1 + noise.Below(4); changes > 0; --changes)
        mutated[noise.Below(reach)] = static_cast<uint8_t>(noise.Below(256));
      if (i % 5 == 0) mutated.resize(noise.Below(mutated.size()));
      ExpectSaneDecode(mutated);
    }
    ExpectStillWorks(format);
  }
}

/// A host without memory to spare.
class StarvedCodec final : public CheckedImageCodec {
  Bytes CompressJpeg(const PixelView&, int) override { throw std::bad_alloc(); }
  bool DecompressJpeg(std::span<const uint8_t>, int, int, Bytes&) override { throw std::bad_alloc(); }
};

TEST(CheckedImageCodec, MemoryThatRunsOutIsAFailedCall) {
  StarvedCodec codec;
  Bytes pixels;
  EXPECT_TRUE(codec.EncodeJpeg(PhotographPixels(8, 8), 8, 8, 80).empty());
  EXPECT_FALSE(codec.Decode(Bytes(100), 8, 8, pixels));
}

}  // namespace

std::vector<uint8_t> PhotographPixels(int width, int height) {
  Noise noise(7);
  Bytes pixels;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double angle = x * 0.07 + y * 0.04;
      for (const double phase : {0.0, 1.1, 2.3})
        pixels.push_back(static_cast<uint8_t>(120 + 80 * std::sin(angle + phase) + noise.Below(9)));
      pixels.push_back(255);
    }
  }
  return pixels;
}

double PsnrDecibels(const Bytes& one, const Bytes& other) {
  double squares = 0;
  for (size_t i = 0; i < one.size(); ++i) {
    if (i % 4 != 3) squares += std::pow(one[i] - other[i], 2);
  }
  if (squares == 0) return std::numeric_limits<double>::infinity();
  return 10 * std::log10(255.0 * 255.0 * static_cast<double>(one.size() / 4 * 3) / squares);
}

}  // namespace cvn::agent
