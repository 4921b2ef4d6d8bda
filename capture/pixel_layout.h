#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace cvn::agent {

/// Where a display keeps the colours of its 32-bit pixels.
struct PixelMasks {
  uint32_t red = 0;
  uint32_t green = 0;
  uint32_t blue = 0;
  /// The most significant byte of a pixel comes first in memory.
  bool mostSignificantFirst = false;
};

/// Turns a display's pixels into B, G, R, X.
class PixelLayout {
 public:
  /// None unless every colour is exactly one byte of the pixel.
  static std::optional<PixelLayout> From(const PixelMasks& masks);

  /// True when the pixels are B, G, R, X as they stand.
  bool IsBgrx() const { return place_ == std::array<uint8_t, 3>{0, 1, 2}; }

  /// Rearranges `pixels` in place.
  void ToBgrx(std::span<uint32_t> pixels) const;

 private:
  /// The byte of a pixel in memory that holds blue, green, red.
  std::array<uint8_t, 3> place_ = {};
};

}  // namespace cvn::agent
