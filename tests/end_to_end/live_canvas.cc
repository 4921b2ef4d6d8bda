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
  uint64_t connectNs;
  uint64_t fullNs;
};

struct PixelPlace {
  int x = 0;
  int y = 0;
};

std::optional<Header> ReadHeader(std::ifstream& file) {
  Header header{};
  if (!file.read(reinterpret_cast<char*>(&header), sizeof header) || header.magic != kMagic)
    return std::nullopt;
  return header;
}

std::optional<Picture> ReadPixels(std::ifstream& file, const Header& header, Picture part, PixelPlace from) {
  const auto width = static_cast<size_t>(part.width);
  part.pixels.resize(width * static_cast<size_t>(part.height));
  for (size_t row = 0; row < static_cast<size_t>(part.height); ++row) {
    const size_t offset =
        (static_cast<size_t>(from.y) + row) * header.stride + static_cast<size_t>(from.x) * 4;
    file.seekg(kPixelsAt + static_cast<std::streamoff>(offset));
    file.read(reinterpret_cast<char*>(&part.pixels[row * width]), std::streamsize{4} * part.width);
  }
  if (!file) return std::nullopt;
  for (uint32_t& pixel : part.pixels) pixel &= 0xffffff;
  return part;
}

}  // namespace

std::optional<Picture> LiveCanvas::Read() const {
  std::ifstream file(path_, std::ios::binary);
  const auto header = ReadHeader(file);
  if (!header) return std::nullopt;
  return ReadPixels(file, *header, {static_cast<int>(header->width), static_cast<int>(header->height), {}},
                    {});
}

std::optional<Picture> LiveCanvas::ReadPart(int x, int y, int width, int height) const {
  std::ifstream file(path_, std::ios::binary);
  const auto header = ReadHeader(file);
  if (!header) return std::nullopt;
  return ReadPixels(file, *header, {width, height, {}}, {x, y});
}

bool LiveCanvas::IsFull() const {
  std::ifstream file(path_, std::ios::binary);
  const auto header = ReadHeader(file);
  return header && header->fullNs != 0;
}

uint64_t LiveCanvas::Updates() const {
  std::ifstream file(path_, std::ios::binary);
  const auto header = ReadHeader(file);
  return header ? header->updates : 0;
}

}  // namespace cvn::end_to_end
