#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace cvn::end_to_end {

/// What a screen shows: rows top-down, each pixel 0x00RRGGBB.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<uint32_t> pixels;

  uint32_t At(int x, int y) const {
    return pixels[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
  }
  bool operator==(const Picture&) const = default;
};

/// Where two pictures differ, for a person to read.
std::string Difference(const Picture& expected, const Picture& actual);

/// A picture from a PNG file; an empty one when the file cannot be read.
Picture ReadPng(const std::string& path);

}  // namespace cvn::end_to_end
