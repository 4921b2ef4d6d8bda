#pragma once

#include <cstdint>

namespace cvn::view {

/// A picture's size in pixels.
struct PictureSize {
  int width = 0;
  int height = 0;

  int64_t Pixels() const { return int64_t{width} * height; }
  bool operator==(const PictureSize&) const = default;
};

/// The largest picture that the viewer sets memory aside for (128 Mi pixels, 512 MiB): more than four screens
/// of 7680x4320, and far below the 16 GiB that a sender could ask for with two 16-bit sizes.
inline constexpr int64_t kMaxPicturePixels = int64_t{1} << 27;

}  // namespace cvn::view
