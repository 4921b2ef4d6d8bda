#include "tiles/checked_image_codec.h"

#include <algorithm>
#include <new>

#include "tiles/webp_coding.h"

namespace cvn::agent {
namespace {

/// What a JPEG's header and a rectangle on the wire have room for; it also keeps the products below in range.
constexpr int kMaxSide = 65535;

bool IsPossibleSize(int width, int height) {
  return width > 0 && height > 0 && width <= kMaxSide && height <= kMaxSide;
}

std::optional<PixelView> PackedImage(std::span<const uint8_t> pixels, int width, int height) {
  if (!IsPossibleSize(width, height)) return std::nullopt;
  const PixelView image{pixels.data(), width, height, static_cast<size_t>(width) * 4};
  if (pixels.size() < image.PackedBytes()) return std::nullopt;
  return image;
}

int ClampedQuality(int quality) {
  return std::clamp(quality, 1, 100);
}

}  // namespace

std::vector<uint8_t> CheckedImageCodec::EncodeJpeg(std::span<const uint8_t> pixels, int width, int height,
                                                   int quality) try {
  const auto image = PackedImage(pixels, width, height);
  if (!image) return {};
  return CompressJpeg(*image, ClampedQuality(quality));
} catch (const std::bad_alloc&) {
  return {};
}

std::optional<std::vector<uint8_t>> CheckedImageCodec::EncodeWebp(std::span<const uint8_t> pixels, int width,
                                                                  int height, int quality) try {
  const auto image = PackedImage(pixels, width, height);
  if (!image) return std::nullopt;
  return CompressWebp(*image, ClampedQuality(quality));
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

bool CheckedImageCodec::Decode(std::span<const uint8_t> payload, int width, int height,
                               std::vector<uint8_t>& pixels) try {
  if (payload.empty() || !IsPossibleSize(width, height)) return false;
  if (IsWebp(payload)) return DecompressWebp(payload, width, height, pixels);
  return DecompressJpeg(payload, width, height, pixels);
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace cvn::agent
