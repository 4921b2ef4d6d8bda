#include "capture/pixel_layout.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace cvn::agent {
namespace {

TEST(PixelLayout, BringsEveryByteOrderToBgrx) {
  const struct {
    PixelMasks masks;
    const char* memory;
  } rows[] = {
      {{0xff0000, 0xff00, 0xff, false}, "BGR-"},       {{0xff, 0xff00, 0xff0000, false}, "RGB-"},
      {{0xff000000, 0xff0000, 0xff00, false}, "-BGR"}, {{0xff0000, 0xff00, 0xff, true}, "-RGB"},
      {{0xff, 0xff00, 0xff0000, true}, "-BGR"},
  };
  for (const auto& row : rows) {
    const auto layout = PixelLayout::From(row.masks);
    ASSERT_TRUE(layout) << row.memory;
    EXPECT_EQ(layout->IsBgrx(), std::string("BGR-") == row.memory);
    uint32_t pixels[2];
    std::memcpy(&pixels[0], row.memory, 4);
    std::memcpy(&pixels[1], row.memory, 4);
    layout->ToBgrx(pixels);
    EXPECT_EQ(std::memcmp(pixels, "BGR\0BGR\0", 8), 0) << row.memory;
  }
}

TEST(PixelLayout, RefusesColoursThatAreNotBytes) {
  EXPECT_FALSE(PixelLayout::From({0x3ff00000, 0xffc00, 0x3ff, false})) << "ten bits a colour";
  EXPECT_FALSE(PixelLayout::From({0xf800, 0x7e0, 0x1f, false}));
  EXPECT_FALSE(PixelLayout::From({0xff00000, 0xff000, 0xff0, false})) << "across bytes";
  EXPECT_FALSE(PixelLayout::From({0, 0, 0, false}));
}

}  // namespace
}  // namespace cvn::agent
