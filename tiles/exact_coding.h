#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tiles/pixel_view.h"

namespace cvn::agent {

/// More colours than a palette holds; counting stops there.
inline constexpr int kTooManyColors = 257;

/// Exact tile coding: palette (coding 1) and lossless (coding 2), both a zlib stream (RFC 1950) of the
/// program's own deflate writer. Pixels are read straight from the frame, where they stand.
///
/// One object keeps the tables and buffers that every call reuses: a call allocates nothing but the payload
/// that it returns. One thread at a time; pool threads have a coder each.
class ExactCoder {
 public:
  ExactCoder();
  ~ExactCoder();
  ExactCoder(const ExactCoder&) = delete;
  ExactCoder& operator=(const ExactCoder&) = delete;

  /// The number of distinct pixels, exact up to 256, else `kTooManyColors`. With `grayscale` a pixel is its
  /// blue byte alone, since the three colour bytes are equal. Builds palette and indices in the same pass,
  /// for `EncodePalette`.
  int CountColors(const PixelView& pixels, bool grayscale);

  /// Palette payload of the pixels that `CountColors` saw last; they need not exist any more. That call must
  /// have found at most 256 colours; any of the other calls may lie between.
  std::vector<uint8_t> EncodePalette();

  std::vector<uint8_t> EncodeLossless(const PixelView& pixels);

  /// How many bytes `EncodeLossless` would return, without the payload.
  size_t LosslessBytes(const PixelView& pixels);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace cvn::agent
