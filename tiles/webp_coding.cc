#include "tiles/webp_coding.h"

#include <webp/decode.h>
#include <webp/encode.h>

#include <cstring>
#include <memory>

namespace cvn::agent {
namespace {

constexpr size_t kRiffHeaderBytes = 12;

struct WebpRelease {
  void operator()(uint8_t* bytes) const { WebPFree(bytes); }
};
using WebpBytes = std::unique_ptr<uint8_t, WebpRelease>;

}  // namespace

bool IsWebp(std::span<const uint8_t> payload) {
  return payload.size() >= kRiffHeaderBytes && std::memcmp(payload.data(), "RIFF", 4) == 0 &&
         std::memcmp(payload.data() + 8, "WEBP", 4) == 0;
}

std::optional<std::vector<uint8_t>> CompressWebp(const PixelView& image, int quality) {
  uint8_t* output = nullptr;
  const size_t count =
      WebPEncodeBGRA(image.firstByte, image.width, image.height, static_cast<int>(image.strideBytes),
                     static_cast<float>(quality), &output);
  const WebpBytes owned(output);
  if (count == 0) return std::nullopt;
  return std::vector<uint8_t>(output, output + count);
}

bool DecompressWebp(std::span<const uint8_t> payload, int width, int height, std::vector<uint8_t>& pixels) {
  int codedWidth = 0;
  int codedHeight = 0;
  if (!WebPGetInfo(payload.data(), payload.size(), &codedWidth, &codedHeight)) return false;
  if (codedWidth != width || codedHeight != height) return false;
  pixels.resize(static_cast<size_t>(width) * static_cast<size_t>(height) * 4);
  return WebPDecodeBGRAInto(payload.data(), payload.size(), pixels.data(), pixels.size(), width * 4) !=
         nullptr;
}

}  // namespace cvn::agent
