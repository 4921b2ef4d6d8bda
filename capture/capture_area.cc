#include "capture/capture_area.h"

#include <algorithm>
#include <tuple>

namespace cvn::agent {
namespace {

/// Coders of subsampled colour want even sizes.
int32_t EvenSize(int32_t size) {
  return std::max(size & ~1, 2);
}

}  // namespace

std::vector<PixelRect> OrderedMonitors(DisplaySystem& displays) {
  std::vector<PixelRect> monitors = displays.Monitors();
  std::stable_sort(monitors.begin(), monitors.end(), [](const PixelRect& a, const PixelRect& b) {
    return std::tie(a.left, a.top) < std::tie(b.left, b.top);
  });
  return monitors;
}

CaptureArea ChooseCaptureArea(int32_t requestedIndex, const std::vector<PixelRect>& monitors,
                              const PixelRect& virtualDesktop) {
  const bool listed = requestedIndex >= 0 && static_cast<size_t>(requestedIndex) < monitors.size();
  const PixelRect& bounds = listed ? monitors[static_cast<size_t>(requestedIndex)] : virtualDesktop;
  CaptureArea area = {.monitorIndex = listed ? requestedIndex : kAllDisplays,
                      .originX = bounds.left,
                      .originY = bounds.top,
                      .width = EvenSize(bounds.Width()),
                      .height = EvenSize(bounds.Height())};
  // Deliberate: what is this small was not measured properly, and a usual size captures at least something.
  if (area.width < 64) area.width = 1024;
  if (area.height < 64) area.height = 768;
  return area;
}

}  // namespace cvn::agent
