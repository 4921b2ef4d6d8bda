#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "base/clock.h"
#include "view/frame_assembler.h"
#include "view/tile_canvas.h"
#include "view/view_statistics.h"

namespace cvn::view {

/// Takes the tile channel's messages and draws what they bring, as soon as they bring it: a batch is on the
/// canvas before the rest of its frame has arrived. One thread at a time.
class TileReceiver {
 public:
  /// All but `connectNs`, the clock's time just before connecting, are borrowed.
  TileReceiver(CanvasMemory& memory, TileImageCodec& codec, const agent::Clock& clock, int64_t connectNs);

  /// False with `error` set when the message is a lie; nothing further can be taken then.
  bool Take(std::span<const uint8_t> message, std::string& error);

  /// Every pixel of the present picture has arrived once.
  bool HasFullPicture() const { return canvas_.IsFull(); }
  bool FrameInTheMaking() const { return assembler_.InTheMaking(); }
  const PictureTimes& Times() const { return times_; }
  const TileCanvas& Canvas() const { return canvas_; }
  const ViewStatistics& Statistics() const { return statistics_; }

 private:
  bool BeginFrame(const Delivery& delivery, std::string& error);
  bool DrawTiles(const Delivery& delivery, std::string& error);
  void CountTile(const agent::TileRecord& tile);
  void NoteProgress(const Delivery& delivery);
  void NoteExactness(const Delivery& delivery);

  CanvasMemory& memory_;
  const agent::Clock& clock_;
  FrameAssembler assembler_;
  TileCanvas canvas_;
  CanvasProgress progress_;
  ViewStatistics statistics_;
  PictureTimes times_;
  bool pictureIsExact_ = false;
  bool frameIsKeyframe_ = false;
};

}  // namespace cvn::view
