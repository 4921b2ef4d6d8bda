#include "tiles/tile_grid.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace cvn::agent {
namespace {

int CeilDivide(int dividend, int divisor) {
  return 1 + (dividend - 1) / divisor;
}

}  // namespace

TileGrid::TileGrid(int width, int height, int tileSize, int strips)
    : width_(width), height_(height), tileWidth_(tileSize), tileHeight_(tileSize) {
  if (width < 1 || height < 1) throw std::out_of_range("frame size");
  if (strips >= 1) {
    tileWidth_ = width;
    tileHeight_ = CeilDivide(height, strips);
  }
  if (tileWidth_ < 1 || tileHeight_ < 1) throw std::out_of_range("tile size");
  columns_ = CeilDivide(width, tileWidth_);
  rows_ = CeilDivide(height, tileHeight_);
  if (int64_t{columns_} * rows_ > std::numeric_limits<int>::max()) throw std::out_of_range("frame size");
}

TileRect TileGrid::Rect(int index) const {
  if (index < 0 || index >= TileCount()) throw std::out_of_range("tile index");
  const int x = index % columns_ * tileWidth_;
  const int y = index / columns_ * tileHeight_;
  return {x, y, std::min(tileWidth_, width_ - x), std::min(tileHeight_, height_ - y)};
}

}  // namespace cvn::agent
