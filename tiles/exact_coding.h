#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace cvn::agent {

/// More colours than a palette holds; counting stops there.
inline constexpr int kTooManyColors = 257;

/// Exact tile coding: palette (coding 1) and lossless (coding 2), both a zlib stream (RFC 1950) of the
/// program's own deflate writer. Pixels are B, G, R, A rows without padding. With `grayscale` a pixel is its
/// blue byte alone, since the three colour bytes are equal.
///
/// One object keeps the tables and buffers that every call reuses; one thread at a time.
class ExactCoder {
 public:
  ExactCoder();
  ~ExactCoder();
  ExactCoder(const ExactCoder&) = delete;
  ExactCoder& operator=(const ExactCoder&) = delete;

  /// The number of distinct pixels, exact up to 256, else 257. Remembers palette and indices, so that
  /// `EncodePalette` of the same pixels costs no second pass.
  int CountColors(std::span<const uint8_t> pixels, bool grayscale);

  /// The caller guarantees at most 256 distinct colours.
  std::vector<uint8_t> EncodePalette(std::span<const uint8_t> pixels, int width, int height, bool grayscale);
  std::vector<uint8_t> EncodeLossless(std::span<const uint8_t> pixels);
  std::vector<uint8_t> Compress(std::span<const uint8_t> bytes);

 private:
  struct State;
  State* state_;
};

}  // namespace cvn::agent
