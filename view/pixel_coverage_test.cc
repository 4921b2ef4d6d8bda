#include "view/pixel_coverage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace cvn::view {
namespace {

// Sizes around the width of a machine word, each against a plain map of flags.
TEST(PixelCoverage, CountsEachPixelOnceHoweverRectanglesOverlapAndComeAndGo) {
  std::mt19937 random(7);
  for (const PictureSize size : {PictureSize{1, 1}, {63, 5}, {64, 5}, {65, 5}, {200, 9}}) {
    PixelCoverage coverage;
    coverage.Restart(size);
    std::vector<bool> arrived(static_cast<size_t>(size.Pixels()));
    const auto below = [&random](int limit) {
      return static_cast<int>(random() % static_cast<uint32_t>(limit));
    };
    for (int i = 0; i < 300; ++i) {
      const int x = below(size.width);
      const int y = below(size.height);
      const int width = 1 + below(size.width - x);
      const int height = 1 + below(size.height - y);
      const bool added = i % 3 != 0;
      added ? coverage.Add(x, y, width, height) : coverage.Remove(x, y, width, height);
      for (int row = y; row < y + height; ++row)
        std::fill_n(arrived.begin() + row * size.width + x, width, added);
      ASSERT_EQ(coverage.MissingPixels(), std::count(arrived.begin(), arrived.end(), false));
    }
    coverage.Add(0, 0, size.width, size.height);
    EXPECT_EQ(coverage.MissingPixels(), 0);
  }
}

}  // namespace
}  // namespace cvn::view
