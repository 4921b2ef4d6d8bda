#include "tiles/exact_coding.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tiles/slow_deflate_test.h"

namespace cvn::agent {
namespace {

using Bytes = std::vector<uint8_t>;

/// A frame of 200 x 100 with the tile at (70, 20); `colors` of them in the tile, others around it.
class ExactCoding : public testing::Test {
 protected:
  static constexpr size_t kFrameWidth = 200;

  PixelView Tile(int width, int height, uint32_t colors) {
    frame_.assign(kFrameWidth * 100, 0x12345678);
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        frame_[static_cast<size_t>(y + 20) * kFrameWidth + 70 + static_cast<size_t>(x)] =
            0xFF000000 | static_cast<uint32_t>(x / 3 + y * 11) % colors * 0x010307;
    return {reinterpret_cast<const uint8_t*>(&frame_[20 * kFrameWidth + 70]), width, height, kFrameWidth * 4};
  }

  static Bytes Packed(const PixelView& pixels) {
    Bytes packed;
    for (int y = 0; y < pixels.height; ++y)
      packed.insert(packed.end(), pixels.Row(y), pixels.Row(y) + pixels.RowBytes());
    return packed;
  }

  static Bytes PixelsOfPalette(const Bytes& payload, size_t pixelCount) {
    const size_t colors = payload[0] + size_t{payload[1]} * 256;
    Bytes pixels;
    for (size_t i = 0; i < pixelCount; ++i) {
      const uint8_t* entry = &payload[2 + 4 * size_t{payload[2 + 4 * colors + i]}];
      pixels.insert(pixels.end(), entry, entry + 4);
    }
    return pixels;
  }

  std::vector<uint32_t> frame_;
  ExactCoder coder_;
};

TEST_F(ExactCoding, PaletteAndLosslessGiveTheTilesPixelsBack) {
  const struct {
    int width, height;
    uint32_t colors;
  } rows[] = {{64, 64, 1}, {64, 64, 2}, {64, 64, 256}, {36, 6, 30}, {1, 1, 1}, {130, 80, 77}, {64, 64, 600}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.width << " x " << row.height << ", " << row.colors);
    const PixelView tile = Tile(row.width, row.height, row.colors);
    const Bytes expected = Packed(tile);
    const int colors = coder_.CountColors(tile, false);
    const Bytes lossless = coder_.EncodeLossless(tile);
    EXPECT_TRUE(InflateByZlib(lossless, expected.size()) == expected);
    EXPECT_EQ(coder_.LosslessBytes(tile), lossless.size());
    EXPECT_EQ(colors > 256, row.colors > 256);
    if (colors > 256) continue;
    const size_t payloadBytes = 2 + 4 * static_cast<size_t>(colors) + tile.PixelCount();
    const Bytes payload = InflateByZlib(coder_.EncodePalette(), payloadBytes);
    ASSERT_EQ(payload.size(), payloadBytes);
    EXPECT_TRUE(PixelsOfPalette(payload, tile.PixelCount()) == expected);
  }
}

TEST_F(ExactCoding, AOneColorTileTakesAFewDozenBytes) {
  ASSERT_EQ(coder_.CountColors(Tile(64, 64, 1), false), 1);
  EXPECT_LT(coder_.EncodePalette().size(), 60U);
}

TEST_F(ExactCoding, ASampleIsAViewOfEveryEighthRow) {
  PixelView sample = Tile(64, 64, 200);
  const Bytes all = Packed(sample);
  sample.strideBytes *= 8;
  sample.height = 8;
  Bytes expected;
  for (size_t y = 0; y < 64; y += 8) expected.insert(expected.end(), &all[y * 256], &all[y * 256] + 256);
  EXPECT_TRUE(InflateByZlib(coder_.EncodeLossless(sample), expected.size()) == expected);
}

}  // namespace
}  // namespace cvn::agent
