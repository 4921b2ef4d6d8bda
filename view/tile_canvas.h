#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "tiles/tile_message.h"
#include "view/canvas_memory.h"
#include "view/pixel_coverage.h"
#include "view/tile_decoder.h"

namespace cvn::view {

/// The picture that tiles are drawn into, B, G, R, X. Knows when every pixel has arrived once. One thread at
/// a time.
class TileCanvas {
 public:
  /// `memory` is borrowed.
  explicit TileCanvas(CanvasMemory& memory) : memory_(memory) {}

  /// A new picture of `size`, of which nothing has arrived. False with `error` set when there is no room.
  bool Restart(PictureSize size, const CanvasProgress& progress, std::string& error);

  /// The tile lies inside the picture. False with `error` set, and nothing drawn, when its payload is bad.
  bool Draw(const agent::TileRecord& tile, std::string& error);

  /// 0x0 before the first `Restart`.
  PictureSize Size() const { return size_; }
  bool IsFull() const { return size_.Pixels() > 0 && coverage_.MissingPixels() == 0; }
  int64_t MissingPixels() const { return coverage_.MissingPixels(); }
  std::span<const uint8_t> Pixels() const { return pixels_; }

 private:
  CanvasMemory& memory_;
  TileDecoder decoder_;
  PixelCoverage coverage_;
  PictureSize size_;
  std::span<uint8_t> pixels_;
};

}  // namespace cvn::view
