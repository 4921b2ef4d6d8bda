#include "capture/capture_area.h"

#include <gtest/gtest.h>

#include "testing/scripted_capturer.h"

namespace cvn::agent {
namespace {

TEST(OrderedMonitors, GoByLeftEdgeThenTopEdge) {
  ScriptedScreen screen(
      {{0, 0, 1920, 1080}, {1920, 300, 2560, 780}, {-1280, 0, 0, 1024}, {1920, -500, 2560, 300}});
  const std::vector<PixelRect> expected = {
      {-1280, 0, 0, 1024}, {0, 0, 1920, 1080}, {1920, -500, 2560, 300}, {1920, 300, 2560, 780}};
  EXPECT_EQ(OrderedMonitors(screen), expected);
}

TEST(ChooseCaptureArea, FollowsTheMonitorListAndItsRounding) {
  const std::vector<PixelRect> two = {{-1366, 10, 0, 778}, {0, 0, 1365, 901}};
  const PixelRect desktop = {-1366, 0, 1365, 901};
  const struct {
    const char* what;
    int32_t index;
    std::vector<PixelRect> monitors;
    PixelRect virtualDesktop;
    CaptureArea expected;
  } rows[] = {
      {"even sizes stay", 0, two, desktop, {0, -1366, 10, 1366, 768}},
      {"odd sizes lose a pixel", 1, two, desktop, {1, 0, 0, 1364, 900}},
      {"-1 is all displays", -1, two, desktop, {-1, -1366, 0, 2730, 900}},
      {"the first number beyond the list", 2, two, desktop, {-1, -1366, 0, 2730, 900}},
      {"no monitors at all", 0, {}, {0, 0, 800, 600}, {-1, 0, 0, 800, 600}},
      {"64 is large enough", 0, {{0, 0, 64, 65}}, {}, {0, 0, 0, 64, 64}},
      {"63 wide", 0, {{5, 6, 68, 606}}, {}, {0, 5, 6, 1024, 600}},
      {"63 high", 0, {{5, 6, 805, 69}}, {}, {0, 5, 6, 800, 768}},
      {"a negative size", -1, {}, {0, 0, -3, -3}, {-1, 0, 0, 1024, 768}},
  };
  for (const auto& row : rows) {
    const CaptureArea area = ChooseCaptureArea(row.index, row.monitors, row.virtualDesktop);
    EXPECT_EQ(area, row.expected) << row.what << ": " << area.width << "x" << area.height;
  }
}

}  // namespace
}  // namespace cvn::agent
