#include "capture/rect_plan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace cvn::agent {
namespace {

constexpr PixelRect kArea = {100, 50, 740, 530};

std::vector<PixelRect> Planned(std::vector<PixelRect> rects) {
  PlanReads(rects, kArea);
  return rects;
}

TEST(PlanReads, CutsToTheAreaAndMergesOnlyWhatIsNear) {
  const struct {
    const char* what;
    std::vector<PixelRect> damaged;
    std::vector<PixelRect> expected;
  } rows[] = {
      {"beside the area", {{0, 0, 100, 600}, {740, 0, 800, 600}, {200, 530, 300, 540}}, {}},
      {"neighbours", {{200, 100, 220, 110}, {230, 104, 250, 114}}, {{200, 100, 250, 114}}},
      {"far apart", {{100, 50, 110, 60}, {700, 500, 710, 510}}, {{100, 50, 110, 60}, {700, 500, 710, 510}}},
      {"one inside the other", {{200, 100, 600, 400}, {300, 200, 310, 210}}, {{200, 100, 600, 400}}},
      {"a frame of four bars",
       {{100, 50, 740, 60}, {100, 60, 110, 520}, {730, 60, 740, 520}, {100, 520, 740, 530}},
       {{100, 50, 740, 60}, {100, 60, 110, 520}, {730, 60, 740, 520}, {100, 520, 740, 530}}},
  };
  for (const auto& row : rows) EXPECT_EQ(Planned(row.damaged), row.expected) << row.what;
}

TEST(PlanReads, CoversEverythingInFewRectangles) {
  std::mt19937 random(7);
  const auto upTo = [&](int32_t most) {
    return static_cast<int32_t>(random() % static_cast<uint32_t>(most));
  };
  for (int round = 0; round < 300; ++round) {
    std::vector<PixelRect> damaged(static_cast<size_t>(upTo(round < 150 ? 8 : 200)));
    for (PixelRect& rect : damaged) {
      rect = {upTo(800), upTo(600), 0, 0};
      rect.right = rect.left + 1 + upTo(round % 2 == 0 ? 30 : 400);
      rect.bottom = rect.top + 1 + upTo(round % 3 == 0 ? 300 : 20);
    }
    const std::vector<PixelRect> reads = Planned(damaged);
    ASSERT_LE(reads.size(), kMaxReadRects);

    std::vector<bool> covered(800 * 600 * 4);
    int64_t pixels = 0;
    for (const PixelRect& read : reads) {
      ASSERT_EQ(Intersection(read, kArea), read) << "leaves the area";
      pixels += int64_t{read.Width()} * read.Height();
      for (int32_t y = read.top; y < read.bottom; ++y)
        std::fill_n(covered.begin() + y * 1200 + read.left, read.Width(), true);
    }
    EXPECT_LE(pixels, int64_t{kArea.Width()} * kArea.Height());
    for (const PixelRect& rect : damaged) {
      const PixelRect inside = Intersection(rect, kArea);
      for (int32_t y = inside.top; y < inside.bottom; ++y)
        ASSERT_EQ(std::count(covered.begin() + y * 1200 + inside.left,
                             covered.begin() + y * 1200 + inside.right, false),
                  0);
    }
  }
}

}  // namespace
}  // namespace cvn::agent
