#include "capture/cursor_overlay.h"

#include <algorithm>

#include "capture/rect_plan.h"

namespace cvn::agent {
namespace {

/// `over` is premultiplied; a sum beyond 255 (a broken picture) saturates.
uint32_t Blend(uint32_t under, uint32_t over) {
  const uint32_t rest = 255 - (over >> 24);
  uint32_t blended = kOpaque;
  for (uint32_t shift = 0; shift < 24; shift += 8) {
    const uint32_t shine = ((under >> shift & 255) * rest + 127) / 255;
    blended |= std::min<uint32_t>((over >> shift & 255) + shine, 255) << shift;
  }
  return blended;
}

}  // namespace

void CursorOverlay::Lift(KeptFrame& frame) {
  auto saved = beneath_.begin();
  for (int32_t y = covered_.top; y < covered_.bottom; ++y) {
    std::copy_n(saved, covered_.Width(), frame.Row(y).begin() + covered_.left);
    saved += covered_.Width();
  }
  covered_ = {};
}

void CursorOverlay::Draw(KeptFrame& frame, int32_t x, int32_t y) {
  const int32_t left = x - image_.hotX;
  const int32_t top = y - image_.hotY;
  covered_ = Intersection({left, top, left + image_.width, top + image_.height}, frame.Bounds());
  beneath_.clear();
  for (int32_t row = covered_.top; row < covered_.bottom; ++row) {
    const auto under =
        frame.Row(row).subspan(static_cast<size_t>(covered_.left), static_cast<size_t>(covered_.Width()));
    beneath_.insert(beneath_.end(), under.begin(), under.end());
    const auto over = image_.pixels.begin() + int64_t{row - top} * image_.width + (covered_.left - left);
    std::transform(under.begin(), under.end(), over, under.begin(), Blend);
  }
}

}  // namespace cvn::agent
