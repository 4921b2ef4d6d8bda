#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tiles/pixel_view.h"

namespace cvn::agent {

/// WebP by libwebp, the same on every host. Nothing is kept between calls; any thread may call.

/// Whether the payload claims to be WebP, by the first twelve bytes of its RIFF container.
bool IsWebp(std::span<const uint8_t> payload);

/// A whole lossy WebP file at `quality` 1..100; no value when libwebp refuses (a side beyond 16383, memory).
std::optional<std::vector<uint8_t>> CompressWebp(const PixelView& image, int quality);

/// Decodes into `width * height` packed B, G, R, A pixels, the size being at least 1x1. False when the
/// payload is broken or names another size, which is seen before anything is decoded or `pixels` grows.
bool DecompressWebp(std::span<const uint8_t> payload, int width, int height, std::vector<uint8_t>& pixels);

}  // namespace cvn::agent
