#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "tiles/encoded_frame.h"

namespace cvn::agent {

/// The tile channel's messages, big-endian, first byte the type; docs/wire-format.md has the tables. Building
/// and parsing stand side by side here. Building throws std::out_of_range where noted; parsing never throws
/// and yields nothing for anything malformed.
enum class TileMessageType : uint8_t {
  kFrameHeader = 1,
  kTileBatch = 3,
  kHeartbeat = 4,
  kEnvelope = 5,
  kFragment = 6
};

inline constexpr std::string_view kTilesV2 = "corvinet.tiles.v2";
inline constexpr std::string_view kTilesV3 = "corvinet.tiles.v3";

inline constexpr size_t kFrameHeaderBytes = 14;
inline constexpr size_t kTileBatchHeaderBytes = 7;
inline constexpr size_t kTileRecordHeaderBytes = 15;
inline constexpr size_t kHeartbeatBytes = 5;
inline constexpr size_t kEnvelopeHeaderBytes = 9;
inline constexpr size_t kFragmentHeaderBytes = 13;
inline constexpr size_t kMaxV3MessageBytes = 16384;
inline constexpr size_t kFragmentChunkBytes =
    kMaxV3MessageBytes - kEnvelopeHeaderBytes - kFragmentHeaderBytes;
static_assert(kFragmentChunkBytes == 16362);
inline constexpr size_t kMaxSplitMessageBytes = 8388608;
/// A batch is closed before its payloads would exceed this; a single larger tile travels alone.
inline constexpr size_t kMaxBatchPayloadBytes = 49152;

/// Type 1. Sizes and the count travel modulo 2^16.
struct FrameHeader {
  uint32_t sequence = 0;
  bool keyframe = false;
  uint16_t width = 0;
  uint16_t height = 0;
  uint16_t tileHeight = 0;
  uint16_t tileCount = 0;
};

/// One tile of a batch as received; the payload is borrowed from the message.
struct TileRecord {
  uint16_t index = 0;
  uint16_t x = 0;
  uint16_t y = 0;
  uint16_t width = 0;
  uint16_t height = 0;
  uint8_t coding = 0;
  std::span<const uint8_t> payload;
};

struct TileBatch {
  uint32_t sequence = 0;
  std::vector<TileRecord> records;
};

struct EnvelopeHeader {
  uint32_t epoch = 0;
  uint16_t width = 0;
  uint16_t height = 0;
};

struct ParsedEnvelope {
  EnvelopeHeader header;
  std::span<const uint8_t> message;
};

struct ParsedFragment {
  uint32_t messageId = 0;
  uint32_t totalBytes = 0;
  uint16_t index = 0;
  uint16_t count = 0;
  std::span<const uint8_t> chunk;
};

std::vector<uint8_t> BuildFrameHeader(const FrameHeader& header);
std::vector<uint8_t> BuildTileBatch(uint32_t sequence, std::span<const EncodedTile> tiles);
std::vector<uint8_t> BuildHeartbeat(uint32_t nextSequence);

/// Wraps `message` for the stream when `protocol` is v2 or v3 and an epoch exists (epoch > 0); otherwise
/// returns it unchanged. Throws std::out_of_range("envelope dimensions") unless both sizes lie in 1..65535.
std::vector<uint8_t> Envelope(std::string_view protocol, uint32_t epoch, int width, int height,
                              std::vector<uint8_t> message);

/// True when v3 must split a message of this size.
bool NeedsFragments(std::string_view protocol, size_t messageBytes);

/// The fragments of a message in index order, each still to be enveloped. Throws std::out_of_range("fragment
/// input") for an empty message or one over 8 MiB, ("fragment count") for more than 65535 pieces.
std::vector<std::vector<uint8_t>> Fragment(std::span<const uint8_t> message, uint32_t messageId);

std::optional<FrameHeader> ParseFrameHeader(std::span<const uint8_t> message);
std::optional<TileBatch> ParseTileBatch(std::span<const uint8_t> message);
std::optional<uint32_t> ParseHeartbeat(std::span<const uint8_t> message);
std::optional<ParsedEnvelope> ParseEnvelope(std::span<const uint8_t> message);
/// Checks that index, count, total and chunk agree with each other as the sender computes them.
std::optional<ParsedFragment> ParseFragment(std::span<const uint8_t> message);

}  // namespace cvn::agent
