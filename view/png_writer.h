#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "view/picture_size.h"

namespace cvn::view {

/// Writes B, G, R, X pixels (`width * 4` bytes a row, top row first) as an RGB image into the file at `path`
/// (UTF-8), replacing its content. False with `error` set; what is in the file then is no image.
bool WritePng(const std::string& path, std::span<const uint8_t> pixels, PictureSize size, std::string& error);

}  // namespace cvn::view
