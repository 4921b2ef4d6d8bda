#pragma once

#include <memory>

#include "tiles/tile_image_codec.h"

namespace cvn::agent {

/// Photographic tiles on Linux: JPEG by libjpeg-turbo, WebP by libwebp. The JPEG handles and their buffers
/// live as long as the codec, so that a tile costs no set-up. Whatever is decoded may be hostile: its own
/// header is held against the expected size before a pixel is decoded, and a payload that the library
/// complains about is refused. May be made, used and destroyed on any thread, by one at a time.
///
/// Null, and one line logged, when the library cannot be used.
std::unique_ptr<TileImageCodec> CreateTurboImageCodec();

}  // namespace cvn::agent
