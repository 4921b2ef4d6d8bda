#pragma once

#include <cstdint>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "tiles/tile_message.h"

namespace cvn::agent {

/// What a message of the tile channel says, for tests to compare: "keyframe 0: 8 tiles of 64 in 256x128",
/// "frame 1: ...", "batch 1: 3 4" (the tiles' indices), "heartbeat 2", else "?". An
/// enveloped one stands behind its epoch and frame size: "[1 256x128] heartbeat 2".
inline std::string TileMessageText(std::span<const uint8_t> message) {
  std::ostringstream text;
  if (const auto envelope = ParseEnvelope(message)) {
    const EnvelopeHeader& stream = envelope->header;
    text << '[' << stream.epoch << ' ' << stream.width << 'x' << stream.height << "] "
         << TileMessageText(envelope->message);
  } else if (const auto header = ParseFrameHeader(message)) {
    text << (header->keyframe ? "keyframe " : "frame ") << header->sequence << ": " << header->tileCount
         << " tiles of " << header->tileHeight << " in " << header->width << 'x' << header->height;
  } else if (const auto batch = ParseTileBatch(message)) {
    text << "batch " << batch->sequence << ':';
    for (const TileRecord& record : batch->records) text << ' ' << record.index;
  } else if (const auto nextSequence = ParseHeartbeat(message)) {
    text << "heartbeat " << *nextSequence;
  } else {
    text << '?';
  }
  return text.str();
}

inline std::vector<std::string> TileMessageTexts(const std::vector<std::vector<uint8_t>>& messages) {
  std::vector<std::string> texts;
  texts.reserve(messages.size());
  for (const auto& message : messages) texts.push_back(TileMessageText(message));
  return texts;
}

}  // namespace cvn::agent
