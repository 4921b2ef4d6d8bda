#include "tiles/tile_message.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "base/bytes.h"

namespace cvn::agent {
namespace {

constexpr size_t kMaxFragments = 65535;
constexpr int kMaxEnvelopeEdge = 65535;

bool IsVersionedTileProtocol(std::string_view protocol) {
  return protocol == kTilesV2 || protocol == kTilesV3;
}

size_t FragmentsFor(size_t messageBytes) {
  return (messageBytes + kFragmentChunkBytes - 1) / kFragmentChunkBytes;
}

size_t ChunkBytes(size_t messageBytes, size_t fragmentIndex) {
  return std::min(kFragmentChunkBytes, messageBytes - fragmentIndex * kFragmentChunkBytes);
}

bool StartsWith(ByteReader& reader, TileMessageType type) {
  return reader.U8() == static_cast<uint8_t>(type);
}

bool IsWhole(const ByteReader& reader) {
  return reader.Ok() && reader.AtEnd();
}

size_t BatchBytes(std::span<const EncodedTile> tiles) {
  size_t bytes = kTileBatchHeaderBytes;
  for (const EncodedTile& tile : tiles) bytes += kTileRecordHeaderBytes + tile.payload.size();
  return bytes;
}

void AppendRecord(ByteWriter& writer, const EncodedTile& tile) {
  for (const uint32_t field : {tile.index, tile.x, tile.y, tile.width, tile.height})
    writer.U16(static_cast<uint16_t>(field));
  writer.U8(static_cast<uint8_t>(tile.coding));
  writer.U32(static_cast<uint32_t>(tile.payload.size()));
  writer.Bytes(tile.payload);
}

TileRecord ReadRecord(ByteReader& reader) {
  TileRecord record;
  record.index = reader.U16();
  record.x = reader.U16();
  record.y = reader.U16();
  record.width = reader.U16();
  record.height = reader.U16();
  record.coding = reader.U8();
  record.payload = reader.Bytes(reader.U32());
  return record;
}

}  // namespace

std::vector<uint8_t> BuildFrameHeader(const FrameHeader& header) {
  ByteWriter writer(kFrameHeaderBytes);
  writer.U8(static_cast<uint8_t>(TileMessageType::kFrameHeader));
  writer.U32(header.sequence).U8(header.keyframe ? 1 : 0);
  writer.U16(header.width).U16(header.height).U16(header.tileHeight).U16(header.tileCount);
  return writer.Take();
}

std::optional<FrameHeader> ParseFrameHeader(std::span<const uint8_t> message) {
  ByteReader reader(message);
  if (!StartsWith(reader, TileMessageType::kFrameHeader)) return std::nullopt;
  FrameHeader header;
  header.sequence = reader.U32();
  const uint8_t keyframe = reader.U8();
  header.keyframe = keyframe == 1;
  header.width = reader.U16();
  header.height = reader.U16();
  header.tileHeight = reader.U16();
  header.tileCount = reader.U16();
  if (!IsWhole(reader) || keyframe > 1) return std::nullopt;
  return header;
}

std::vector<uint8_t> BuildTileBatch(uint32_t sequence, std::span<const EncodedTile> tiles) {
  ByteWriter writer(BatchBytes(tiles));
  writer.U8(static_cast<uint8_t>(TileMessageType::kTileBatch));
  writer.U32(sequence).U16(static_cast<uint16_t>(tiles.size()));
  for (const EncodedTile& tile : tiles) AppendRecord(writer, tile);
  return writer.Take();
}

std::optional<TileBatch> ParseTileBatch(std::span<const uint8_t> message) {
  ByteReader reader(message);
  if (!StartsWith(reader, TileMessageType::kTileBatch)) return std::nullopt;
  TileBatch batch;
  batch.sequence = reader.U32();
  const size_t count = reader.U16();
  // Believe the count only as far as the bytes could carry it.
  if (count > reader.Rest().size() / kTileRecordHeaderBytes) return std::nullopt;
  batch.records.reserve(count);
  for (size_t i = 0; i < count; ++i) batch.records.push_back(ReadRecord(reader));
  if (!IsWhole(reader)) return std::nullopt;
  return batch;
}

std::vector<uint8_t> BuildHeartbeat(uint32_t nextSequence) {
  ByteWriter writer(kHeartbeatBytes);
  writer.U8(static_cast<uint8_t>(TileMessageType::kHeartbeat)).U32(nextSequence);
  return writer.Take();
}

std::optional<uint32_t> ParseHeartbeat(std::span<const uint8_t> message) {
  ByteReader reader(message);
  if (!StartsWith(reader, TileMessageType::kHeartbeat)) return std::nullopt;
  const uint32_t nextSequence = reader.U32();
  if (!IsWhole(reader)) return std::nullopt;
  return nextSequence;
}

std::vector<uint8_t> Envelope(std::string_view protocol, uint32_t epoch, int width, int height,
                              std::vector<uint8_t> message) {
  if (!IsVersionedTileProtocol(protocol) || epoch == 0) return message;
  if (width < 1 || width > kMaxEnvelopeEdge || height < 1 || height > kMaxEnvelopeEdge)
    throw std::out_of_range("envelope dimensions");
  ByteWriter writer(kEnvelopeHeaderBytes + message.size());
  writer.U8(static_cast<uint8_t>(TileMessageType::kEnvelope)).U32(epoch);
  writer.U16(static_cast<uint16_t>(width)).U16(static_cast<uint16_t>(height)).Bytes(message);
  return writer.Take();
}

std::optional<ParsedEnvelope> ParseEnvelope(std::span<const uint8_t> message) {
  ByteReader reader(message);
  if (!StartsWith(reader, TileMessageType::kEnvelope)) return std::nullopt;
  ParsedEnvelope envelope;
  envelope.header.epoch = reader.U32();
  envelope.header.width = reader.U16();
  envelope.header.height = reader.U16();
  envelope.message = reader.Rest();
  const bool filled = reader.Ok() && !envelope.message.empty();
  if (!filled || envelope.header.epoch == 0) return std::nullopt;
  if (envelope.header.width == 0 || envelope.header.height == 0) return std::nullopt;
  if (envelope.message[0] == static_cast<uint8_t>(TileMessageType::kEnvelope)) return std::nullopt;
  return envelope;
}

bool NeedsFragments(std::string_view protocol, size_t messageBytes) {
  return protocol == kTilesV3 && messageBytes > kMaxV3MessageBytes - kEnvelopeHeaderBytes;
}

std::vector<std::vector<uint8_t>> Fragment(std::span<const uint8_t> message, uint32_t messageId) {
  if (message.empty() || message.size() > kMaxSplitMessageBytes) throw std::out_of_range("fragment input");
  const size_t count = FragmentsFor(message.size());
  if (count > kMaxFragments) throw std::out_of_range("fragment count");
  std::vector<std::vector<uint8_t>> fragments;
  fragments.reserve(count);
  for (size_t index = 0; index < count; ++index) {
    const auto chunk = message.subspan(index * kFragmentChunkBytes, ChunkBytes(message.size(), index));
    ByteWriter writer(kFragmentHeaderBytes + chunk.size());
    writer.U8(static_cast<uint8_t>(TileMessageType::kFragment)).U32(messageId);
    writer.U32(static_cast<uint32_t>(message.size()));
    writer.U16(static_cast<uint16_t>(index)).U16(static_cast<uint16_t>(count)).Bytes(chunk);
    fragments.push_back(writer.Take());
  }
  return fragments;
}

std::optional<ParsedFragment> ParseFragment(std::span<const uint8_t> message) {
  ByteReader reader(message);
  if (!StartsWith(reader, TileMessageType::kFragment)) return std::nullopt;
  ParsedFragment fragment;
  fragment.messageId = reader.U32();
  fragment.totalBytes = reader.U32();
  fragment.index = reader.U16();
  fragment.count = reader.U16();
  fragment.chunk = reader.Rest();
  if (!reader.Ok()) return std::nullopt;
  if (fragment.totalBytes == 0 || fragment.totalBytes > kMaxSplitMessageBytes) return std::nullopt;
  if (fragment.count != FragmentsFor(fragment.totalBytes)) return std::nullopt;
  if (fragment.index >= fragment.count) return std::nullopt;
  if (fragment.chunk.size() != ChunkBytes(fragment.totalBytes, fragment.index)) return std::nullopt;
  return fragment;
}

}  // namespace cvn::agent
