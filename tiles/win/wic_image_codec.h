#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "tiles/checked_image_codec.h"

namespace cvn::agent {

/// Photographic tiles on Windows: JPEG by the Windows Imaging Component, WebP by libwebp.
///
/// Initialises COM, multithreaded, for the thread that makes it, and leaves it when destroyed: make, use and
/// destroy it on one thread. Where that thread already has the other apartment model, that one is used and
/// left as it is. Without the imaging component every call for JPEG fails; the constructor logs that, once.
class WicImageCodec final : public CheckedImageCodec {
 public:
  WicImageCodec();
  ~WicImageCodec() override;
  WicImageCodec(const WicImageCodec&) = delete;
  WicImageCodec& operator=(const WicImageCodec&) = delete;

  bool Available() const;

 private:
  struct Imaging;

  std::vector<uint8_t> CompressJpeg(const PixelView& image, int quality) override;
  bool DecompressJpeg(std::span<const uint8_t> payload, int width, int height,
                      std::vector<uint8_t>& pixels) override;

  std::unique_ptr<Imaging> imaging_;
};

/// Null, and one line logged, when the imaging component is unavailable.
std::unique_ptr<TileImageCodec> CreateWicImageCodec();

}  // namespace cvn::agent
