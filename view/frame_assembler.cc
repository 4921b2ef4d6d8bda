#include "view/frame_assembler.h"

#include <utility>

#include "view/text.h"

namespace cvn::view {
namespace {

using agent::TileMessageType;

const char* MessageName(uint8_t type) {
  switch (static_cast<TileMessageType>(type)) {
    case TileMessageType::kFrameHeader:
      return "frame header";
    case TileMessageType::kTileBatch:
      return "tile batch";
    case TileMessageType::kHeartbeat:
      return "heartbeat";
    case TileMessageType::kEnvelope:
      return "envelope";
    case TileMessageType::kFragment:
      return "fragment";
  }
  return nullptr;
}

bool IsType(std::span<const uint8_t> message, TileMessageType type) {
  return !message.empty() && message[0] == static_cast<uint8_t>(type);
}

bool RefuseMalformed(std::span<const uint8_t> message, std::string& error) {
  if (message.empty()) return Refuse(error, "an empty tile message");
  const char* name = MessageName(message[0]);
  if (name == nullptr) return Refuse(error, FormatText("a tile message of unknown type %d", message[0]));
  return Refuse(error, FormatText("a malformed %s", name));
}

bool TakeHeartbeat(std::span<const uint8_t> message, Delivery& delivery, std::string& error) {
  if (!agent::ParseHeartbeat(message)) return RefuseMalformed(message, error);
  delivery.kind = DeliveryKind::kHeartbeat;
  return true;
}

bool NestsEnvelope(std::span<const uint8_t> message) {
  return message.size() > agent::kEnvelopeHeaderBytes &&
         IsType(message.subspan(agent::kEnvelopeHeaderBytes), TileMessageType::kEnvelope);
}

}  // namespace

bool FrameAssembler::Take(std::span<const uint8_t> message, Delivery& delivery, std::string& error) {
  delivery = {};
  // Before its first keyframe a sender has no epoch to put on an envelope, and only heartbeats to send.
  if (IsType(message, TileMessageType::kHeartbeat)) return TakeHeartbeat(message, delivery, error);
  if (!IsType(message, TileMessageType::kEnvelope)) {
    const char* name = message.empty() ? nullptr : MessageName(message[0]);
    if (name == nullptr) return RefuseMalformed(message, error);
    return Refuse(error, FormatText("a %s outside an envelope", name));
  }
  if (NestsEnvelope(message)) return Refuse(error, "an envelope inside an envelope");
  const auto envelope = agent::ParseEnvelope(message);
  if (!envelope) return RefuseMalformed(message, error);
  if (!FollowEnvelope(envelope->header, error)) return false;
  return TakeInner(envelope->message, delivery, error);
}

bool FrameAssembler::FollowEnvelope(const agent::EnvelopeHeader& header, std::string& error) {
  const PictureSize size{header.width, header.height};
  if (header.epoch < epoch_)
    return Refuse(error, FormatText("the epoch went back from %u to %u", epoch_, header.epoch));
  if (header.epoch == epoch_) {
    if (size == size_) return true;
    return Refuse(error, FormatText("the picture changed from %dx%d to %dx%d within epoch %u", size_.width,
                                    size_.height, size.width, size.height, epoch_));
  }
  if (InTheMaking())
    return Refuse(error,
                  FormatText("epoch %u began before frame %u was complete", header.epoch, frameSequence_));
  if (size.Pixels() > kMaxPicturePixels)
    return Refuse(error,
                  FormatText("a picture of %dx%d is larger than this viewer takes", size.width, size.height));
  epoch_ = header.epoch;
  size_ = size;
  return true;
}

bool FrameAssembler::TakeInner(std::span<const uint8_t> message, Delivery& delivery, std::string& error) {
  if (IsType(message, TileMessageType::kFragment)) return TakeFragment(message, delivery, error);
  // A heartbeat does not queue behind the pieces of a split message; everything else does.
  if (SplitInTheMaking() && !IsType(message, TileMessageType::kHeartbeat))
    return Refuse(error,
                  FormatText("a message of type %d amid the fragments of message %u", message[0], split_.id));
  return TakeWhole(message, delivery, error);
}

bool FrameAssembler::TakeFragment(std::span<const uint8_t> message, Delivery& delivery, std::string& error) {
  const auto fragment = agent::ParseFragment(message);
  if (!fragment) return RefuseMalformed(message, error);
  if (!JoinFragment(*fragment, error)) return false;
  if (split_.nextIndex < fragment->count) return true;

  joined_.swap(split_.bytes);
  split_.nextIndex = 0;
  if (IsType(joined_, TileMessageType::kFragment)) return Refuse(error, "a fragment inside a fragment");
  if (IsType(joined_, TileMessageType::kEnvelope)) return Refuse(error, "an envelope inside a fragment");
  return TakeWhole(joined_, delivery, error);
}

bool FrameAssembler::JoinFragment(const agent::ParsedFragment& fragment, std::string& error) {
  if (fragment.index == 0 && !SplitInTheMaking()) {
    split_.id = fragment.messageId;
    split_.totalBytes = fragment.totalBytes;
    split_.bytes.clear();
  }
  if (fragment.index != split_.nextIndex)
    return Refuse(error, FormatText("fragment %d of message %u where fragment %u was due", fragment.index,
                                    fragment.messageId, split_.nextIndex));
  if (fragment.messageId != split_.id || fragment.totalBytes != split_.totalBytes)
    return Refuse(error, FormatText("a fragment of message %u (%u bytes) amid message %u (%u bytes)",
                                    fragment.messageId, fragment.totalBytes, split_.id, split_.totalBytes));
  split_.bytes.insert(split_.bytes.end(), fragment.chunk.begin(), fragment.chunk.end());
  ++split_.nextIndex;
  return true;
}

bool FrameAssembler::TakeWhole(std::span<const uint8_t> message, Delivery& delivery, std::string& error) {
  if (IsType(message, TileMessageType::kFrameHeader)) return TakeHeader(message, delivery, error);
  if (IsType(message, TileMessageType::kTileBatch)) return TakeBatch(message, delivery, error);
  if (IsType(message, TileMessageType::kHeartbeat)) return TakeHeartbeat(message, delivery, error);
  return RefuseMalformed(message, error);
}

bool FrameAssembler::TakeHeader(std::span<const uint8_t> message, Delivery& delivery, std::string& error) {
  const auto header = agent::ParseFrameHeader(message);
  if (!header) return RefuseMalformed(message, error);
  if (!FollowHeader(*header, error)) return false;
  frameEpoch_ = epoch_;
  frameSequence_ = header->sequence;
  missingTiles_ = header->tileCount;
  delivery.kind = DeliveryKind::kFrameBegin;
  delivery.size = size_;
  delivery.keyframe = header->keyframe;
  return true;
}

bool FrameAssembler::FollowHeader(const agent::FrameHeader& header, std::string& error) {
  if (missingTiles_ > 0)
    return Refuse(error, FormatText("frame %u began while %u tiles of frame %u were missing", header.sequence,
                                    missingTiles_, frameSequence_));
  if (PictureSize{header.width, header.height} != size_)
    return Refuse(error, FormatText("a frame of %dx%d in an envelope of %dx%d", header.width, header.height,
                                    size_.width, size_.height));
  if (header.tileCount == 0) return Refuse(error, FormatText("frame %u has no tiles", header.sequence));
  if (frameEpoch_ != epoch_ && !header.keyframe)
    return Refuse(error, FormatText("epoch %u began without a keyframe", epoch_));
  // What a delta frame leaves out is taken from the frames before it, so none of them may be missing.
  if (frameEpoch_ != 0 && header.sequence != static_cast<uint32_t>(frameSequence_ + 1))
    return Refuse(error, FormatText("frame %u came after frame %u", header.sequence, frameSequence_));
  return true;
}

bool FrameAssembler::TakeBatch(std::span<const uint8_t> message, Delivery& delivery, std::string& error) {
  auto batch = agent::ParseTileBatch(message);
  if (!batch) return RefuseMalformed(message, error);
  batch_ = std::move(*batch);
  if (!CheckBatch(error)) return false;
  missingTiles_ -= static_cast<uint32_t>(batch_.records.size());
  delivery.kind = DeliveryKind::kTiles;
  delivery.tiles = batch_.records;
  delivery.frameEnds = missingTiles_ == 0;
  return true;
}

bool FrameAssembler::CheckBatch(std::string& error) const {
  if (missingTiles_ == 0) return Refuse(error, "a tile batch without a frame header");
  if (batch_.sequence != frameSequence_)
    return Refuse(error,
                  FormatText("a tile batch of frame %u inside frame %u", batch_.sequence, frameSequence_));
  if (batch_.records.empty()) return Refuse(error, "a tile batch without tiles");
  if (batch_.records.size() > missingTiles_)
    return Refuse(error, FormatText("a batch of %zu tiles where frame %u lacks %u", batch_.records.size(),
                                    frameSequence_, missingTiles_));
  for (const agent::TileRecord& tile : batch_.records)
    if (!CheckRectangle(tile, error)) return false;
  return true;
}

bool FrameAssembler::CheckRectangle(const agent::TileRecord& tile, std::string& error) const {
  const bool isEmpty = tile.width == 0 || tile.height == 0;
  if (!isEmpty && tile.x + tile.width <= size_.width && tile.y + tile.height <= size_.height) return true;
  return Refuse(
      error, FormatText("tile %d at (%d,%d) of %dx%d does not lie in the frame of %dx%d", tile.index, tile.x,
                        tile.y, tile.width, tile.height, size_.width, size_.height));
}

}  // namespace cvn::view
