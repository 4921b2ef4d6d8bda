#include "tests/end_to_end/picture.h"

#include <png.h>

#include <algorithm>
#include <cstdio>

namespace cvn::end_to_end {
namespace {

std::string Sizes(const Picture& expected, const Picture& actual) {
  return std::to_string(expected.width) + "x" + std::to_string(expected.height) + " expected, " +
         std::to_string(actual.width) + "x" + std::to_string(actual.height) + " shown";
}

}  // namespace

std::string Difference(const Picture& expected, const Picture& actual) {
  if (expected.width != actual.width || expected.height != actual.height) return Sizes(expected, actual);
  int left = expected.width, top = expected.height, right = 0, bottom = 0, count = 0;
  for (int y = 0; y < expected.height; ++y) {
    for (int x = 0; x < expected.width; ++x) {
      const size_t at = static_cast<size_t>(y) * static_cast<size_t>(expected.width) + static_cast<size_t>(x);
      if (expected.pixels[at] == actual.pixels[at]) continue;
      ++count;
      left = std::min(left, x), right = std::max(right, x);
      top = std::min(top, y), bottom = std::max(bottom, y);
    }
  }
  char text[160];
  std::snprintf(text, sizeof text, "%d pixels differ, between (%d,%d) and (%d,%d)", count, left, top, right,
                bottom);
  return text;
}

Picture ReadPng(const std::string& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&image, path.c_str())) return {};
  image.format = PNG_FORMAT_BGRA;
  Picture picture{static_cast<int>(image.width), static_cast<int>(image.height), {}};
  picture.pixels.resize(size_t{image.width} * image.height);
  if (!png_image_finish_read(&image, nullptr, picture.pixels.data(), 0, nullptr)) return {};
  for (uint32_t& pixel : picture.pixels) pixel &= 0xffffff;
  return picture;
}

}  // namespace cvn::end_to_end
