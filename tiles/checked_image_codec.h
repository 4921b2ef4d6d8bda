#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tiles/pixel_view.h"
#include "tiles/tile_image_codec.h"

namespace cvn::agent {

/// What every host's codec has in common: arguments are checked, quality is clamped, WebP goes to libwebp,
/// and memory that runs out is one more failed call. The host supplies JPEG.
class CheckedImageCodec : public TileImageCodec {
 public:
  std::vector<uint8_t> EncodeJpeg(std::span<const uint8_t> pixels, int width, int height, int quality) final;
  bool Decode(std::span<const uint8_t> payload, int width, int height, std::vector<uint8_t>& pixels) final;
  std::optional<std::vector<uint8_t>> EncodeWebp(std::span<const uint8_t> pixels, int width, int height,
                                                 int quality) final;

 private:
  /// `image` is packed and at least 1x1, `quality` 1..100. Empty on failure; may run out of memory.
  virtual std::vector<uint8_t> CompressJpeg(const PixelView& image, int quality) = 0;
  /// `payload` is not empty and may be anything; the size is a possible one. `pixels` must not be made larger
  /// before the payload's own header has named that size. May run out of memory.
  virtual bool DecompressJpeg(std::span<const uint8_t> payload, int width, int height,
                              std::vector<uint8_t>& pixels) = 0;
};

}  // namespace cvn::agent
