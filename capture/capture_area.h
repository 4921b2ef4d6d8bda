#pragma once

#include <cstdint>
#include <vector>

#include "base/geometry.h"
#include "capture/display_system.h"

namespace cvn::agent {

inline constexpr int32_t kAllDisplays = -1;

/// The monitors by left edge, then top edge. Positions in this list are the monitor numbers that people and
/// the wire use.
std::vector<PixelRect> OrderedMonitors(DisplaySystem& displays);

/// The area a capturer delivers.
struct CaptureArea {
  int32_t monitorIndex = kAllDisplays;
  int32_t originX = 0;
  int32_t originY = 0;
  int32_t width = 0;
  int32_t height = 0;
  bool operator==(const CaptureArea&) const = default;
};

/// The area for a requested monitor number; any number that is not in `monitors` means the whole virtual
/// desktop. Both sizes are rounded down to even and at least 2. Deliberate: a size below 64 becomes 1024
/// (width) or 768 (height), each by itself.
CaptureArea ChooseCaptureArea(int32_t requestedIndex, const std::vector<PixelRect>& monitors,
                              const PixelRect& virtualDesktop);

}  // namespace cvn::agent
