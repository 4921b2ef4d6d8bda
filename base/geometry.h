#pragma once

#include <cstdint>

namespace cvn::agent {

/// A rectangle in pixels, right and bottom exclusive. Monitors use virtual-desktop coordinates (which may be
/// negative), damage uses coordinates of the captured frame.
struct PixelRect {
  int32_t left = 0;
  int32_t top = 0;
  int32_t right = 0;
  int32_t bottom = 0;

  int32_t Width() const { return right - left; }
  int32_t Height() const { return bottom - top; }
  bool Empty() const { return right <= left || bottom <= top; }
  bool operator==(const PixelRect&) const = default;
};

}  // namespace cvn::agent
