#pragma once

#include <png.h>

#include <cstdint>
#include <string>
#include <vector>

#include "view/picture_size.h"

namespace cvn::view {

struct ReadPicture {
  PictureSize size;
  /// 0xffRRGGBB.
  std::vector<uint32_t> pixels;
};

/// An empty picture when the file is no PNG.
inline ReadPicture ReadPng(const std::string& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&image, path.c_str()) == 0) return {};
  image.format = PNG_FORMAT_BGRA;
  ReadPicture picture{{static_cast<int>(image.width), static_cast<int>(image.height)}, {}};
  picture.pixels.resize(static_cast<size_t>(picture.size.Pixels()));
  if (png_image_finish_read(&image, nullptr, picture.pixels.data(), 0, nullptr) == 0) return {};
  return picture;
}

}  // namespace cvn::view
