#include "view/tile_receiver.h"

#include <algorithm>

namespace cvn::view {

TileReceiver::TileReceiver(CanvasMemory& memory, TileImageCodec& codec, const agent::Clock& clock,
                           int64_t connectNs)
    : memory_(memory), clock_(clock), canvas_(memory, codec) {
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
  pictureIsExact_ = false;
  return canvas_.Restart(delivery.size, progress_, error);
}

bool TileReceiver::DrawTiles(const Delivery& delivery, std::string& error) {
  for (const agent::TileRecord& tile : delivery.tiles) {
    if (!canvas_.Draw(tile, error)) return false;
    CountTile(tile);
  }
  NoteProgress(delivery);
  return true;
}

void TileReceiver::CountTile(const agent::TileRecord& tile) {
  CodingStatistics& coding = statistics_.codings.at(tile.coding);
  ++coding.tiles;
  coding.payloadBytes += static_cast<int64_t>(tile.payload.size());
  ++progress_.tilesDrawn;
}

void TileReceiver::NoteProgress(const Delivery& delivery) {
  times_.lastTileNs = clock_.NowNs();
  if (canvas_.IsFull() && progress_.fullPictureNs == 0)
    progress_.fullPictureNs = static_cast<uint64_t>(times_.lastTileNs);
  if (canvas_.IsFull() && times_.firstFullNs == 0) times_.firstFullNs = times_.lastTileNs;
  NoteExactness(delivery);
  if (delivery.frameEnds) {
    ++progress_.updates;
    ++statistics_.frames;
    if (frameIsKeyframe_) ++statistics_.keyframes;
  }
  memory_.Publish(progress_);
}

void TileReceiver::NoteExactness(const Delivery& delivery) {
  const auto isLossy = [](const agent::TileRecord& tile) { return IsLossy(tile.coding); };
  if (std::any_of(delivery.tiles.begin(), delivery.tiles.end(), isLossy))
    times_.lastLossyTileNs = times_.lastTileNs;
  if (!canvas_.IsExact()) pictureIsExact_ = false;
  if (!delivery.frameEnds || !canvas_.IsExact() || pictureIsExact_) return;
  pictureIsExact_ = true;
  times_.lastExactNs = times_.lastTileNs;
  if (times_.firstExactNs == 0) times_.firstExactNs = times_.lastTileNs;
}

}  // namespace cvn::view
