#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace cvn {

/// Lossy coding of photographic tiles. Pixels are tightly packed B, G, R, A rows (stride `width * 4`);
/// quality is clamped to 1..100 by the codec. No exception leaves it. Used from one thread.
class TileImageCodec {
 public:
  virtual ~TileImageCodec() = default;
  /// A whole JPEG file; empty on any failure.
  virtual std::vector<uint8_t> EncodeJpeg(std::span<const uint8_t> pixels, int width, int height,
                                          int quality) = 0;
  /// Decodes JPEG or WebP into `width * height * 4` bytes; false on failure or when the coded size differs.
  virtual bool Decode(std::span<const uint8_t> payload, int width, int height,
                      std::vector<uint8_t>& pixels) = 0;
  /// A whole WebP file; no value on failure.
  virtual std::optional<std::vector<uint8_t>> EncodeWebp(std::span<const uint8_t> pixels, int width,
                                                         int height, int quality) = 0;
};

}  // namespace cvn
