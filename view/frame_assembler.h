#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tiles/tile_message.h"
#include "view/picture_size.h"

namespace cvn::view {

enum class DeliveryKind {
  /// A piece of something that is not complete yet.
  kNothing,
  kHeartbeat,
  /// A frame header: `size` and `keyframe` hold.
  kFrameBegin,
  /// `tiles` holds at least one tile of the frame that began last.
  kTiles,
};

/// What one received message amounts to.
struct Delivery {
  DeliveryKind kind = DeliveryKind::kNothing;
  PictureSize size;
  bool keyframe = false;
  /// With these tiles the frame is complete.
  bool frameEnds = false;
  /// Every rectangle is inside the frame. Borrowed from the message and from the assembler until its next
  /// `Take`.
  std::span<const agent::TileRecord> tiles;
};

/// Turns the tile channel's messages back into frames: takes the envelope off, joins fragments, and holds
/// headers and batches against each other.
///
/// Nothing that the sender says is believed before it is checked. The memory in use is bounded by one split
/// message (8 MiB) and one batch's records. One thread at a time.
class FrameAssembler {
 public:
  /// Takes one message. False with `error` set when the message contradicts the format or what came before
  /// it; the stream cannot be followed any further then.
  bool Take(std::span<const uint8_t> message, Delivery& delivery, std::string& error);

  /// Whether a frame or a split message has begun and is not complete.
  bool InTheMaking() const { return missingTiles_ > 0 || SplitInTheMaking(); }

 private:
  /// The split message being joined. Its pieces come in order, one message at a time.
  struct SplitMessage {
    uint32_t id = 0;
    uint32_t totalBytes = 0;
    uint32_t nextIndex = 0;
    std::vector<uint8_t> bytes;
  };

  bool SplitInTheMaking() const { return split_.nextIndex > 0; }
  bool FollowEnvelope(const agent::EnvelopeHeader& header, std::string& error);
  bool TakeInner(std::span<const uint8_t> message, Delivery& delivery, std::string& error);
  bool TakeFragment(std::span<const uint8_t> message, Delivery& delivery, std::string& error);
  bool JoinFragment(const agent::ParsedFragment& fragment, std::string& error);
  bool TakeWhole(std::span<const uint8_t> message, Delivery& delivery, std::string& error);
  bool TakeHeader(std::span<const uint8_t> message, Delivery& delivery, std::string& error);
  bool FollowHeader(const agent::FrameHeader& header, std::string& error);
  bool TakeBatch(std::span<const uint8_t> message, Delivery& delivery, std::string& error);
  bool CheckBatch(std::string& error) const;
  bool CheckRectangle(const agent::TileRecord& tile, std::string& error) const;

  SplitMessage split_;
  /// The last whole split message, which delivered tiles point into.
  std::vector<uint8_t> joined_;
  agent::TileBatch batch_;

  /// The stream as the envelopes tell it; epoch 0 before the first one.
  uint32_t epoch_ = 0;
  PictureSize size_;

  /// The frame that began last; epoch 0 before the first one.
  uint32_t frameEpoch_ = 0;
  uint32_t frameSequence_ = 0;
  uint32_t missingTiles_ = 0;
};

}  // namespace cvn::view
