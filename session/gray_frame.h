#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "base/geometry.h"
#include "capture/screen_capturer.h"

namespace cvn::agent {

/// A captured picture without its colours: (77 R + 150 G + 29 B) / 256 in all three colour bytes, the fourth
/// byte 255. Keeps its pixels from frame to frame. One thread at a time.
class GrayFrame {
 public:
  /// `changed`: the rectangles outside which `frame` equals the frame last converted; absent means unknown.
  /// The result is valid until the next call.
  std::span<const uint8_t> Convert(const CapturedFrame& frame,
                                   const std::optional<std::span<const PixelRect>>& changed);

 private:
  void ConvertRect(const CapturedFrame& frame, PixelRect rect);

  std::vector<uint8_t> pixels_;
  uint32_t width_ = 0;
};

}  // namespace cvn::agent
