#include "session/gray_frame.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

namespace cvn::agent {
namespace {

// Whole pixels as little-endian words, so that compilers make vectors of it.
static_assert(std::endian::native == std::endian::little);

void ConvertRun(const uint8_t* from, uint8_t* to, size_t pixels) {
  for (size_t i = 0; i < pixels; ++i) {
    uint32_t pixel;
    std::memcpy(&pixel, from + i * 4, 4);
    const uint32_t gray = (77 * (pixel >> 16 & 0xff) + 150 * (pixel >> 8 & 0xff) + 29 * (pixel & 0xff)) >> 8;
    const uint32_t grayPixel = 0xff000000u | gray * 0x010101u;
    std::memcpy(to + i * 4, &grayPixel, 4);
  }
}

}  // namespace

std::span<const uint8_t> GrayFrame::Convert(const CapturedFrame& frame,
                                            const std::optional<std::span<const PixelRect>>& changed) {
  const size_t bytes = static_cast<size_t>(frame.width) * frame.height * 4;
  const bool whole = !changed || frame.width != width_ || pixels_.size() != bytes;
  if (!whole) {
    for (const PixelRect& rect : *changed) ConvertRect(frame, rect);
    return pixels_;
  }
  pixels_.resize(bytes);
  width_ = frame.width;
  ConvertRun(frame.pixels, pixels_.data(), bytes / 4);
  return pixels_;
}

void GrayFrame::ConvertRect(const CapturedFrame& frame, PixelRect rect) {
  rect = {std::max(rect.left, 0), std::max(rect.top, 0),
          std::min(rect.right, static_cast<int32_t>(frame.width)),
          std::min(rect.bottom, static_cast<int32_t>(frame.height))};
  if (rect.Empty()) return;
  for (int32_t y = rect.top; y < rect.bottom; ++y) {
    const size_t at = (static_cast<size_t>(y) * frame.width + static_cast<size_t>(rect.left)) * 4;
    ConvertRun(frame.pixels + at, pixels_.data() + at, static_cast<size_t>(rect.Width()));
  }
}

}  // namespace cvn::agent
