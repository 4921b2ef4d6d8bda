#include "tests/end_to_end/live_canvas.h"

#include <cstring>
#include <fstream>

namespace cvn::end_to_end {
namespace {

constexpr uint32_t kMagic = 0x53564E43;
constexpr std::streamoff kPixelsAt = 4096;

struct Header {
  uint32_t magic;
  uint32_t width;
  uint32_t height;
  uint32_t stride;
  uint64_t updates;
};

std::optional<Header> ReadHeader(std::ifstream& file) {
  Header header{};
  if (!file.read(reinterpret_cast<char*>(&header), sizeof header) || header.magic != kMagic)
    return std::nullopt;
  return header;
}

}  // namespace

std::optional<Picture> LiveCanvas::Read() const {
  std::ifstream file(path_, std::ios::binary);
  const auto header = ReadHeader(file);
  if (!header) return std::nullopt;
  Picture picture{static_cast<int>(header->width), static_cast<int>(header->height), {}};
  picture.pixels.resize(size_t{header->width} * header->height);
  for (size_t row = 0; row < header->height; ++row) {
    file.seekg(kPixelsAt + static_cast<std::streamoff>(row * header->stride));
    file.read(reinterpret_cast<char*>(&picture.pixels[row * header->width]),
              std::streamsize{4} * header->width);
  }
  if (!file) return std::nullopt;
  for (uint32_t& pixel : picture.pixels) pixel &= 0xffffff;
  return picture;
}

uint64_t LiveCanvas::Updates() const {
  std::ifstream file(path_, std::ios::binary);
  const auto header = ReadHeader(file);
  return header ? header->updates : 0;
}

}  // namespace cvn::end_to_end
