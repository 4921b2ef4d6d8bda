#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "tiles/tile_message.h"
#include "view/canvas_memory.h"
#include "view/pixel_coverage.h"
#include "view/tile_decoder.h"

namespace cvn::view {

/// The picture that tiles are drawn into, B, G, R, X. Knows when every pixel has arrived once, and when every
/// pixel is exact: drawn last by a tile that loses nothing. One thread at a time.
class TileCanvas {
 public:
  /// Both are borrowed.
  TileCanvas(CanvasMemory& memory, TileImageCodec& codec) : memory_(memory), decoder_(codec) {}

  /// A new picture of `size`, of which nothing has arrived. False with `error` set when there is no room.
  bool Restart(PictureSize size, const CanvasProgress& progress, std::string& error);

  /// The tile lies inside the picture. False with `error` set, and nothing drawn, when its payload is bad.
  bool Draw(const agent::TileRecord& tile, std::string& error);

  /// 0x0 before the first `Restart`.
  PictureSize Size() const { return size_; }
  bool IsFull() const { return size_.Pixels() > 0 && coverage_.MissingPixels() == 0; }
  int64_t MissingPixels() const { return coverage_.MissingPixels(); }
  bool IsExact() const { return size_.Pixels() > 0 && exact_.MissingPixels() == 0; }
  /// Those that are missing included.
  int64_t InexactPixels() const { return exact_.MissingPixels(); }
  std::span<const uint8_t> Pixels() const { return pixels_; }

 private:
  CanvasMemory& memory_;
  TileDecoder decoder_;
  PixelCoverage coverage_;
  PixelCoverage exact_;
  PictureSize size_;
  std::span<uint8_t> pixels_;
};

}  // namespace cvn::view
