#include "tiles/linux/turbo_image_codec.h"

#include "base/log.h"
#include "tiles/checked_image_codec.h"
#include "tiles/linux/jpeg_compressor.h"
#include "tiles/linux/jpeg_decompressor.h"

namespace cvn::agent {
namespace {

class TurboImageCodec final : public CheckedImageCodec {
 public:
  bool Available() const { return compressor_.IsUsable() && decompressor_.IsUsable(); }

 private:
  std::vector<uint8_t> CompressJpeg(const PixelView& image, int quality) override {
    const auto file = compressor_.Compress(image, quality);
    return {file.begin(), file.end()};
  }

  bool DecompressJpeg(std::span<const uint8_t> payload, int width, int height,
                      std::vector<uint8_t>& pixels) override {
    return decompressor_.Decompress(payload, width, height, pixels);
  }

  JpegCompressor compressor_;
  JpegDecompressor decompressor_;
};

}  // namespace

std::unique_ptr<TileImageCodec> CreateTurboImageCodec() {
  auto codec = std::make_unique<TurboImageCodec>();
  if (codec->Available()) return codec;
  Log().Warn("[codec] libjpeg-turbo is unavailable; photographic tiles will be sent losslessly instead");
  return nullptr;
}

}  // namespace cvn::agent
