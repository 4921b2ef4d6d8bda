#pragma once

#include <cstddef>
#include <cstdint>

namespace cvn::agent {

/// A rectangle of 32-bit B, G, R, A pixels inside a larger picture, borrowed. `strideBytes` leads from one
/// row to the next, so a tile is read straight from its frame, and every n-th row of it by an n times larger
/// stride. No byte outside the rows' `width * 4` bytes is ever read.
struct PixelView {
  const uint8_t* firstByte = nullptr;
  int width = 0;
  int height = 0;
  size_t strideBytes = 0;

  const uint8_t* Row(int y) const { return firstByte + static_cast<size_t>(y) * strideBytes; }
  size_t RowBytes() const { return static_cast<size_t>(width) * 4; }
  size_t PixelCount() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
  /// Bytes of all rows without what lies between them.
  size_t PackedBytes() const { return PixelCount() * 4; }
};

}  // namespace cvn::agent
