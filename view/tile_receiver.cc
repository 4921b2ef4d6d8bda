#include "view/tile_receiver.h"

namespace cvn::view {

TileReceiver::TileReceiver(CanvasMemory& memory, const agent::Clock& clock, int64_t connectNs)
    : memory_(memory), clock_(clock), canvas_(memory) {
  progress_.connectNs = static_cast<uint64_t>(connectNs);
}

bool TileReceiver::Take(std::span<const uint8_t> message, std::string& error) {
  ++statistics_.messages;
  statistics_.messageBytes += static_cast<int64_t>(message.size());
  Delivery delivery;
  if (!assembler_.Take(message, delivery, error)) return false;
  switch (delivery.kind) {
    case DeliveryKind::kNothing:
      return true;
    case DeliveryKind::kHeartbeat:
      ++statistics_.heartbeats;
      return true;
    case DeliveryKind::kFrameBegin:
      return BeginFrame(delivery, error);
    case DeliveryKind::kTiles:
      return DrawTiles(delivery, error);
  }
  return true;
}

bool TileReceiver::BeginFrame(const Delivery& delivery, std::string& error) {
  frameIsKeyframe_ = delivery.keyframe;
  if (delivery.size == canvas_.Size()) return true;
  progress_.fullPictureNs = 0;
  return canvas_.Restart(delivery.size, progress_, error);
}

bool TileReceiver::DrawTiles(const Delivery& delivery, std::string& error) {
  for (const agent::TileRecord& tile : delivery.tiles) {
    if (!canvas_.Draw(tile, error)) return false;
    CountTile(tile);
  }
  NoteProgress(delivery.frameEnds);
  return true;
}

void TileReceiver::CountTile(const agent::TileRecord& tile) {
  const bool isPalette = tile.coding == static_cast<uint8_t>(agent::TileCoding::kPalette);
  ++(isPalette ? statistics_.paletteTiles : statistics_.losslessTiles);
  statistics_.payloadBytes += static_cast<int64_t>(tile.payload.size());
  ++progress_.tilesDrawn;
}

void TileReceiver::NoteProgress(bool frameEnds) {
  lastTileNs_ = clock_.NowNs();
  if (canvas_.IsFull() && progress_.fullPictureNs == 0)
    progress_.fullPictureNs = static_cast<uint64_t>(lastTileNs_);
  if (canvas_.IsFull() && firstFullPictureNs_ == 0) firstFullPictureNs_ = lastTileNs_;
  if (frameEnds) {
    ++progress_.updates;
    ++statistics_.frames;
    if (frameIsKeyframe_) ++statistics_.keyframes;
  }
  memory_.Publish(progress_);
}

}  // namespace cvn::view
