#include "capture/kept_frame.h"

#include <algorithm>
#include <bit>
#include <cassert>

namespace cvn::agent {
namespace {

static_assert(std::endian::native == std::endian::little, "pixels are compared as whole numbers");

/// Without an early exit, so that it compares many pixels per instruction.
bool Differs(std::span<const uint32_t> raw, std::span<const uint32_t> kept) {
  uint32_t difference = 0;
  for (size_t i = 0; i < kept.size(); ++i) difference |= (raw[i] | kOpaque) ^ kept[i];
  return difference != 0;
}

}  // namespace

void KeptFrame::Resize(int32_t width, int32_t height) {
  assert(width > 0 && height > 0);
  width_ = width;
  height_ = height;
  pixels_.assign(static_cast<size_t>(width) * static_cast<size_t>(height), kOpaque);
}

PixelRect KeptFrame::Absorb(const PixelRect& area, std::span<const uint32_t> raw, size_t rawStridePixels) {
  assert(area.left >= 0 && area.top >= 0 && area.right <= width_ && area.bottom <= height_);
  const auto columns = static_cast<size_t>(area.Width());
  PixelRect changed = {area.left, area.bottom, area.right, area.bottom};
  for (int32_t y = area.top; y < area.bottom; ++y) {
    const auto fresh = raw.subspan(static_cast<size_t>(y - area.top) * rawStridePixels, columns);
    const auto kept = Row(y).subspan(static_cast<size_t>(area.left), columns);
    if (!Differs(fresh, kept)) continue;
    std::ranges::transform(fresh, kept.begin(), [](uint32_t pixel) { return pixel | kOpaque; });
    if (changed.Empty()) changed.top = y;
    changed.bottom = y + 1;
  }
  return changed.top < area.bottom ? changed : PixelRect{};
}

void KeptFrame::Describe(CapturedFrame& frame) const {
  frame.width = static_cast<uint32_t>(width_);
  frame.height = static_cast<uint32_t>(height_);
  frame.pixels = reinterpret_cast<const uint8_t*>(pixels_.data());
  frame.byteSize = pixels_.size() * sizeof(uint32_t);
}

}  // namespace cvn::agent
