#pragma once

#include <zlib.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "tiles/tile_message.h"
#include "view/picture_size.h"
#include "view/view_platform.h"

// What tests send to the viewer: tiles coded by zlib, and frames as an agent sends them.

namespace cvn::view {

using Bytes = std::vector<uint8_t>;

inline Bytes Zip(std::span<const uint8_t> bytes) {
  uLongf zippedBytes = compressBound(static_cast<uLong>(bytes.size()));
  Bytes zipped(zippedBytes);
  compress2(zipped.data(), &zippedBytes, bytes.data(), static_cast<uLong>(bytes.size()), 1);
  zipped.resize(zippedBytes);
  return zipped;
}

/// Pixels as they stand in memory: B, G, R, X.
inline Bytes PixelBytes(std::span<const uint32_t> pixels) {
  Bytes bytes;
  for (const uint32_t pixel : pixels)
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<uint8_t>(pixel >> shift));
  return bytes;
}

/// The content of a palette payload before compression, with whatever count and indices the test says.
inline Bytes PaletteContent(int count, std::span<const uint32_t> colors, const Bytes& indices) {
  Bytes content{static_cast<uint8_t>(count), static_cast<uint8_t>(count >> 8)};
  const Bytes colorBytes = PixelBytes(colors);
  content.insert(content.end(), colorBytes.begin(), colorBytes.end());
  content.insert(content.end(), indices.begin(), indices.end());
  return content;
}

inline agent::EncodedTile TileAt(uint32_t x, uint32_t y, PictureSize size) {
  const auto width = static_cast<uint32_t>(size.width);
  return {.x = x, .y = y, .width = width, .height = static_cast<uint32_t>(size.height), .payload = {}};
}

/// One colour, as a palette tile.
inline agent::EncodedTile FlatTile(uint32_t x, uint32_t y, PictureSize size, uint32_t color) {
  agent::EncodedTile tile = TileAt(x, y, size);
  tile.coding = agent::TileCoding::kPalette;
  tile.payload = Zip(PaletteContent(1, std::vector{color}, Bytes(static_cast<size_t>(size.Pixels()), 0)));
  return tile;
}

/// Every pixel another colour, from `firstColor` on, as a lossless tile.
inline agent::EncodedTile GradientTile(uint32_t x, uint32_t y, PictureSize size, uint32_t firstColor) {
  std::vector<uint32_t> pixels(static_cast<size_t>(size.Pixels()));
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = firstColor + static_cast<uint32_t>(i);
  agent::EncodedTile tile = TileAt(x, y, size);
  tile.coding = agent::TileCoding::kLossless;
  tile.payload = Zip(PixelBytes(pixels));
  return tile;
}

inline TileImageCodec& TestCodec() {
  static const std::unique_ptr<TileImageCodec> codec = CreateHostImageCodec();
  return *codec;
}

/// Some colour, nearly.
inline agent::EncodedTile JpegTile(uint32_t x, uint32_t y, PictureSize size) {
  agent::EncodedTile tile = TileAt(x, y, size);
  tile.coding = agent::TileCoding::kJpeg;
  const Bytes pixels(static_cast<size_t>(size.Pixels()) * 4, 0x80);
  tile.payload = TestCodec().EncodeJpeg(pixels, size.width, size.height, 80);
  return tile;
}

/// Writes a stream as an agent on the v3 protocol does: each frame is a header and one batch, enveloped and
/// split where it must be.
class StreamWriter {
 public:
  explicit StreamWriter(PictureSize size) : size_(size) {}

  /// The messages of one frame. A keyframe begins an epoch.
  std::vector<Bytes> Frame(std::span<const agent::EncodedTile> tiles, bool keyframe) {
    if (keyframe) ++epoch_;
    const uint32_t sequence = nextSequence_++;
    std::vector<Bytes> messages = Pack(agent::BuildFrameHeader(Header(sequence, keyframe, tiles.size())));
    for (Bytes& message : Pack(agent::BuildTileBatch(sequence, tiles)))
      messages.push_back(std::move(message));
    return messages;
  }

  Bytes Enveloped(Bytes message) const {
    return agent::Envelope(agent::kTilesV3, epoch_, size_.width, size_.height, std::move(message));
  }

  /// From the next keyframe on.
  void SetSize(PictureSize size) { size_ = size; }

  agent::FrameHeader Header(uint32_t sequence, bool keyframe, size_t tileCount) const {
    const auto width = static_cast<uint16_t>(size_.width);
    const auto height = static_cast<uint16_t>(size_.height);
    return {sequence, keyframe, width, height, 64, static_cast<uint16_t>(tileCount)};
  }

 private:
  std::vector<Bytes> Pack(Bytes message) {
    if (!agent::NeedsFragments(agent::kTilesV3, message.size())) return {Enveloped(std::move(message))};
    std::vector<Bytes> pieces = agent::Fragment(message, nextMessageId_++);
    for (Bytes& piece : pieces) piece = Enveloped(std::move(piece));
    return pieces;
  }

  PictureSize size_;
  uint32_t epoch_ = 0;
  uint32_t nextSequence_ = 0;
  uint32_t nextMessageId_ = 0;
};

}  // namespace cvn::view
