#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tiles/tile_image_codec.h"

namespace cvn::agent {

/// This host's codec, made by its factory.
std::unique_ptr<TileImageCodec> CreateHostImageCodec();

/// Packed B, G, R, 255 pixels: soft colours under fine noise, as in a photograph. The same for the same size.
std::vector<uint8_t> PhotographPixels(int width, int height);

/// How close the colours of two images of one size are; infinite when they are equal.
double PsnrDecibels(const std::vector<uint8_t>& one, const std::vector<uint8_t>& other);

}  // namespace cvn::agent
