#include "session/gray_frame.h"

#include <gtest/gtest.h>

#include <vector>

namespace cvn::agent {
namespace {

using Bytes = std::vector<uint8_t>;

class GrayFrameTest : public testing::Test {
 protected:
  /// `pixels` are 0xXXRRGGBB.
  Bytes Convert(uint32_t width, const std::vector<uint32_t>& pixels,
                std::optional<std::vector<PixelRect>> changed = {}) {
    bytes_.clear();
    for (const uint32_t pixel : pixels)
      for (const int shift : {0, 8, 16, 24}) bytes_.push_back(static_cast<uint8_t>(pixel >> shift));
    const CapturedFrame frame = {.width = width,
                                 .height = static_cast<uint32_t>(pixels.size()) / width,
                                 .pixels = bytes_.data(),
                                 .byteSize = bytes_.size(),
                                 .unchanged = false,
                                 .changed = std::nullopt};
    std::optional<std::span<const PixelRect>> rects;
    if (changed) rects = *changed;
    const auto gray = gray_.Convert(frame, rects);
    return {gray.begin(), gray.end()};
  }

  GrayFrame gray_;
  Bytes bytes_;
};

TEST_F(GrayFrameTest, WeighsTheColours) {
  EXPECT_EQ(Convert(7, {0xff000000, 0xffffffff, 0xffff0000, 0xff00ff00, 0xff0000ff, 0x00010203, 0xff808080}),
            (Bytes{0,   0,   0,  255, 255, 255, 255, 255, 76, 76,  76,  255, 149, 149,
                   149, 255, 28, 28,  28,  255, 1,   1,   1,  255, 128, 128, 128, 255}));
}

TEST_F(GrayFrameTest, ConvertsWhatChanged) {
  Convert(2, {0, 0, 0, 0});
  const std::vector<uint32_t> white(4, 0xffffffff);
  EXPECT_EQ(Convert(2, white, {{{1, 0, 2, 1}}}),
            (Bytes{0, 0, 0, 255, 255, 255, 255, 255, 0, 0, 0, 255, 0, 0, 0, 255}));
  EXPECT_EQ(Convert(2, white, {{{-5, 1, 9, 9}, {3, 3, 4, 4}}}),
            (Bytes{0, 0, 0, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255}));
  EXPECT_EQ(Convert(1, white, {std::vector<PixelRect>()}), Bytes(16, 255))
      << "another shape is another picture";
  EXPECT_EQ(Convert(1, {0}), (Bytes{0, 0, 0, 255}));
}

}  // namespace
}  // namespace cvn::agent
