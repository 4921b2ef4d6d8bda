#include "view/tile_canvas.h"

namespace cvn::view {

bool TileCanvas::Restart(PictureSize size, const CanvasProgress& progress, std::string& error) {
  size_ = {};
  pixels_ = memory_.Renew(size, progress, error);
  if (pixels_.empty()) return false;
  size_ = size;
  coverage_.Restart(size);
  exact_.Restart(size);
  return true;
}

bool TileCanvas::Draw(const agent::TileRecord& tile, std::string& error) {
  const size_t strideBytes = static_cast<size_t>(size_.width) * 4;
  const PixelRows target{pixels_.data() + tile.y * strideBytes + tile.x * size_t{4}, strideBytes};
  if (!decoder_.Decode(tile, target, error)) return false;
  coverage_.Add(tile.x, tile.y, tile.width, tile.height);
  if (IsLossy(tile.coding))
    exact_.Remove(tile.x, tile.y, tile.width, tile.height);
  else
    exact_.Add(tile.x, tile.y, tile.width, tile.height);
  return true;
}

}  // namespace cvn::view
