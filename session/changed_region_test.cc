#include "session/changed_region.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

using Rects = std::vector<PixelRect>;

constexpr PixelRect kA = {0, 0, 8, 8};
constexpr PixelRect kB = {16, 16, 24, 24};

CapturedFrame Changed(std::span<const PixelRect> rects) {
  CapturedFrame frame;
  frame.changed = rects;
  return frame;
}

// Absent rectangles become one that cannot be mistaken.
Rects Known(const ChangedRegion& region) {
  const auto rects = region.Rects();
  return rects ? Rects(rects->begin(), rects->end()) : Rects{{-1, -1, -1, -1}};
}

const Rects kUnknown = {{-1, -1, -1, -1}};

TEST(ChangedRegion, UnitesWhatFramesSayUntilTheEncoderHasSeenThem) {
  ChangedRegion region;
  const Rects a = {kA};
  const Rects b = {kB};
  region.Add(Changed(a));
  EXPECT_EQ(Known(region), kUnknown) << "an encoder that has seen nothing cannot be told what differs";
  region.Clear();
  EXPECT_TRUE(region.Empty());
  region.Add(Changed(a));
  region.Add({.unchanged = true, .changed = std::nullopt});
  region.Add(Changed(b));
  EXPECT_EQ(Known(region), (Rects{kA, kB}));
  EXPECT_FALSE(region.Empty());
  region.Add({});
  EXPECT_EQ(Known(region), kUnknown);
  EXPECT_FALSE(region.Empty());
  region.Add(Changed(b));
  EXPECT_EQ(Known(region), kUnknown) << "one frame without a hint spoils the rest";
  region.Clear();
  EXPECT_EQ(Known(region), Rects{});
  const Rects most(256, kA);
  region.Add(Changed(most));
  EXPECT_EQ(Known(region), most);
  region.Add(Changed(b));
  EXPECT_EQ(Known(region), kUnknown) << "too many to be worth sorting out";
}

}  // namespace
}  // namespace cvn::agent
