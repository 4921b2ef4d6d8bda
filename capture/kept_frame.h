#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/geometry.h"
#include "capture/screen_capturer.h"

namespace cvn::agent {

/// The alpha byte of every delivered pixel, as it stands in a pixel read as one little-endian number.
inline constexpr uint32_t kOpaque = 0xff000000;

/// The latest picture of a capture area, kept from capture to capture so that new pixels can be compared with
/// the ones they replace. Pixels are B, G, R, 255. One thread at a time.
class KeptFrame {
 public:
  /// Makes the picture black in this size.
  void Resize(int32_t width, int32_t height);

  int32_t Width() const { return width_; }
  int32_t Height() const { return height_; }
  PixelRect Bounds() const { return {0, 0, width_, height_}; }

  /// Replaces the pixels of `area` (not empty, inside the picture). `raw` starts with the area's first pixel,
  /// its rows stand `rawStridePixels` apart, and its fourth bytes mean nothing. Returns the rows of `area`
  /// from the first to the last that differ from before; an empty rectangle when none does.
  PixelRect Absorb(const PixelRect& area, std::span<const uint32_t> raw, size_t rawStridePixels);

  std::span<uint32_t> Row(int32_t y) {
    return std::span(pixels_).subspan(static_cast<size_t>(y) * static_cast<size_t>(width_),
                                      static_cast<size_t>(width_));
  }

  /// Lets `frame` describe the picture: its sizes and pixels.
  void Describe(CapturedFrame& frame) const;

 private:
  int32_t width_ = 0;
  int32_t height_ = 0;
  std::vector<uint32_t> pixels_;
};

}  // namespace cvn::agent
