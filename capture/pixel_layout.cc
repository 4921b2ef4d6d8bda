#include "capture/pixel_layout.h"

namespace cvn::agent {

std::optional<PixelLayout> PixelLayout::From(const PixelMasks& masks) {
  PixelLayout layout;
  size_t color = 0;
  for (const uint32_t mask : {masks.blue, masks.green, masks.red}) {
    uint8_t byte = 0;
    while (byte < 4 && mask != uint32_t{255} << 8 * byte) ++byte;
    if (byte == 4) return std::nullopt;
    layout.place_[color++] = masks.mostSignificantFirst ? static_cast<uint8_t>(3 - byte) : byte;
  }
  return layout;
}

void PixelLayout::ToBgrx(std::span<uint32_t> pixels) const {
  for (uint32_t& pixel : pixels) {
    const uint32_t blue = pixel >> 8 * place_[0] & 255;
    const uint32_t green = pixel >> 8 * place_[1] & 255;
    const uint32_t red = pixel >> 8 * place_[2] & 255;
    pixel = red << 16 | green << 8 | blue;
  }
}

}  // namespace cvn::agent
