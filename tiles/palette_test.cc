#include "tiles/palette.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <random>

namespace cvn::agent {
namespace {

using Pixels = std::vector<uint32_t>;

/// A picture with rows wider than the tile; its memory ends with the tile's last pixel.
struct Picture {
  int width;
  int height;
  size_t stridePixels;
  Pixels pixels;

  Picture(int w, int h, size_t gap, const std::function<uint32_t(int, int)>& color)
      : width(w), height(h), stridePixels(static_cast<size_t>(w) + gap) {
    pixels.assign(stridePixels * static_cast<size_t>(h) - gap, 0xDEADBEEF);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) At(x, y) = color(x, y);
  }
  uint32_t& At(int x, int y) {
    return pixels[static_cast<size_t>(y) * stridePixels + static_cast<size_t>(x)];
  }
  PixelView View() const {
    return {reinterpret_cast<const uint8_t*>(pixels.data()), width, height, stridePixels * 4};
  }
};

struct SlowPalette {
  int colors = 0;
  std::vector<uint8_t> payload;
};

SlowPalette PaletteOf(Picture& picture, bool grayscale) {
  std::map<uint32_t, size_t> indexOf;
  Pixels palette;
  std::vector<uint8_t> indices;
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      const uint32_t pixel = picture.At(x, y);
      const uint32_t key = grayscale ? pixel & 0xFF : pixel;
      if (!indexOf.contains(key)) {
        indexOf[key] = palette.size();
        palette.push_back(pixel);
      }
      indices.push_back(static_cast<uint8_t>(indexOf[key]));
    }
  }
  if (palette.size() > 256) return {257, {}};
  SlowPalette slow{static_cast<int>(palette.size()), {}};
  slow.payload = {static_cast<uint8_t>(palette.size() & 0xFF), static_cast<uint8_t>(palette.size() >> 8)};
  for (const uint32_t pixel : palette)
    for (int shift = 0; shift < 32; shift += 8) slow.payload.push_back(static_cast<uint8_t>(pixel >> shift));
  slow.payload.insert(slow.payload.end(), indices.begin(), indices.end());
  return slow;
}

/// One builder for all pictures: what an earlier one left behind must not matter.
void ExpectSamePalette(Picture& picture, bool grayscale) {
  static PaletteBuilder builder;
  const SlowPalette slow = PaletteOf(picture, grayscale);
  ASSERT_EQ(builder.Build(picture.View(), grayscale), slow.colors);
  if (slow.colors > 256) return;
  const auto payload = builder.Payload();
  ASSERT_TRUE(std::vector<uint8_t>(payload.begin(), payload.end()) == slow.payload);
}

uint32_t Mixed(uint32_t value) {
  return value * 0x85EBCA6BU ^ value >> 3;
}

TEST(Palette, AgreesWithAPlainMapOnEveryShape) {
  std::mt19937 random(2);
  for (const int width : {1, 2, 7, 63, 64, 65, 127, 128, 200, 1920}) {
    for (const int height : {1, 2, 5, 64}) {
      for (const uint32_t colors : {1U, 2U, 5U, 40U, 250U, 300U}) {
        const auto changeEvery = static_cast<uint32_t>(1 + random() % 12);
        uint32_t last = 0;
        Picture picture(width, height, random() % 3 * 17, [&](int, int) {
          if (random() % changeEvery == 0) last = Mixed(static_cast<uint32_t>(random() % colors));
          return last;
        });
        for (int y = 1; y < height; ++y)
          if (random() % 3 == 0)
            for (int x = 0; x < width; ++x) picture.At(x, y) = picture.At(x, y - 1);
        SCOPED_TRACE(testing::Message() << width << " x " << height << ", " << colors << " colours");
        ExpectSamePalette(picture, false);
        ExpectSamePalette(picture, true);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST(Palette, KnowsTheFirst256ColorsAndNoMore) {
  for (const int colors : {255, 256, 257}) {
    SCOPED_TRACE(colors);
    Picture early(64, 64, 0, [&](int x, int y) {
      return Mixed(static_cast<uint32_t>(std::min(y * 64 + x, colors - 1)));
    });
    Picture late(64, 64, 9, [&](int x, int y) {
      return Mixed(static_cast<uint32_t>(std::max(y * 64 + x - 4096 + colors, 0)));
    });
    ExpectSamePalette(early, false);
    ExpectSamePalette(late, false);
  }
}

TEST(Palette, WritesTheSizeOf256InTwoBytes) {
  Picture picture(16, 16, 0, [](int x, int y) { return static_cast<uint32_t>(y * 16 + x) << 8; });
  PaletteBuilder builder;
  ASSERT_EQ(builder.Build(picture.View(), false), 256);
  EXPECT_EQ(builder.Payload().size(), 2U + 1024 + 256);
  EXPECT_EQ(builder.Payload()[0], 0x00);
  EXPECT_EQ(builder.Payload()[1], 0x01);
}

TEST(Palette, TellsPixelsApartByAllFourBytesOrByBlueAlone) {
  const uint32_t pixels[] = {0xFF000010, 0xFF000110, 0xFF010010, 0xFE000010};
  Picture picture(4, 1, 0, [&](int x, int) { return pixels[x]; });
  PaletteBuilder builder;
  EXPECT_EQ(builder.Build(picture.View(), false), 4);
  ASSERT_EQ(builder.Build(picture.View(), true), 1);
  const std::vector<uint8_t> expected = {1, 0, 0x10, 0x00, 0x00, 0xFF, 0, 0, 0, 0};
  EXPECT_TRUE(std::ranges::equal(builder.Payload(), expected)) << "the entry is the first full pixel";
}

}  // namespace
}  // namespace cvn::agent
