#pragma once

#include <cstdint>

namespace cvn::agent {

/// A tile's place in its frame, in pixels. Edge tiles are smaller; nothing is padded.
struct TileRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
  bool operator==(const TileRect&) const = default;
};

/// How a frame is cut into tiles: square ones, or full-width strips. Immutable; tile indices are row-major
/// from 0.
class TileGrid {
 public:
  /// `strips` >= 1 cuts the frame into that many full-width strips of ceil(height / strips) rows; otherwise
  /// tiles are squares of `tileSize`. Throws std::out_of_range("frame size") or ("tile size").
  TileGrid(int width, int height, int tileSize, int strips);

  int Width() const { return width_; }
  int Height() const { return height_; }
  int TileWidth() const { return tileWidth_; }
  int TileHeight() const { return tileHeight_; }
  int Columns() const { return columns_; }
  int Rows() const { return rows_; }
  int TileCount() const { return columns_ * rows_; }

  /// Throws std::out_of_range("tile index").
  TileRect Rect(int index) const;

 private:
  int width_;
  int height_;
  int tileWidth_;
  int tileHeight_;
  int columns_;
  int rows_;
};

}  // namespace cvn::agent
