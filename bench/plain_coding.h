#pragma once

#include <zlib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "tiles/pixel_view.h"

namespace cvn::bench {

/// zlib with its state kept from call to call, as its fastest use has it.
class ZlibRival {
 public:
  explicit ZlibRival(int level) : room_(size_t{1} << 16) {
    if (deflateInit(&stream_, level) != Z_OK) throw std::runtime_error("deflateInit");
  }
  ~ZlibRival() { deflateEnd(&stream_); }
  ZlibRival(const ZlibRival&) = delete;
  ZlibRival& operator=(const ZlibRival&) = delete;

  size_t Compress(const uint8_t* bytes, size_t count) {
    deflateReset(&stream_);
    stream_.next_in = const_cast<Bytef*>(bytes);
    stream_.avail_in = static_cast<uInt>(count);
    stream_.next_out = room_.data();
    stream_.avail_out = static_cast<uInt>(room_.size());
    if (deflate(&stream_, Z_FINISH) != Z_STREAM_END) throw std::runtime_error("deflate");
    return room_.size() - stream_.avail_out;
  }

 private:
  z_stream stream_{};
  std::vector<uint8_t> room_;
};

/// What counting and indexing costs with an open hash asked for every pixel.
class PlainPalette {
 public:
  /// The number of colours, 257 for more than 256.
  int Build(const agent::PixelView& tile) {
    slots_.fill(0);
    indices_.resize(tile.PixelCount());
    colors_ = 0;
    size_t next = 0;
    for (int y = 0; y < tile.height; ++y) {
      for (int x = 0; x < tile.width; ++x) {
        uint32_t pixel = 0;
        std::memcpy(&pixel, tile.Row(y) + 4 * x, 4);
        const int index = IndexOf(pixel);
        if (index < 0) return 257;
        indices_[next++] = static_cast<uint8_t>(index);
      }
    }
    return colors_;
  }

  /// Palette size, colours and indices of the tile that was built last and had few colours.
  std::vector<uint8_t> Payload() const {
    std::vector<uint8_t> payload = {static_cast<uint8_t>(colors_), static_cast<uint8_t>(colors_ >> 8)};
    const auto* colors = reinterpret_cast<const uint8_t*>(palette_.data());
    payload.insert(payload.end(), colors, colors + 4 * static_cast<size_t>(colors_));
    payload.insert(payload.end(), indices_.begin(), indices_.end());
    return payload;
  }

 private:
  int IndexOf(uint32_t pixel) {
    uint32_t slot = pixel * 0x9E3779B1U >> 22;
    for (; slots_[slot] != 0; slot = (slot + 1) % 1024)
      if (static_cast<uint32_t>(slots_[slot]) == pixel) return static_cast<int>(slots_[slot] >> 32) - 1;
    if (colors_ == 256) return -1;
    palette_[static_cast<size_t>(colors_)] = pixel;
    slots_[slot] = static_cast<uint64_t>(++colors_) << 32 | pixel;
    return colors_ - 1;
  }

  std::array<uint64_t, 1024> slots_{};
  std::array<uint32_t, 256> palette_{};
  std::vector<uint8_t> indices_;
  int colors_ = 0;
};

}  // namespace cvn::bench
