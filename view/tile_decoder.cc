#include "view/tile_decoder.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "view/text.h"

namespace cvn::view {
namespace {

constexpr size_t kPixelBytes = 4;
constexpr size_t kMaxPaletteColors = 256;
constexpr size_t kPaletteCountBytes = 2;

size_t TilePixels(const agent::TileRecord& tile) {
  return size_t{tile.width} * tile.height;
}

/// Tables and headers, which even a picture of one pixel brings along.
constexpr size_t kLossyOverheadBytes = 4096;

/// All 256 entries, so that drawing needs no check per pixel; those beyond the palette are never drawn.
using Palette = std::array<uint32_t, kMaxPaletteColors>;

void DrawIndices(std::span<const uint8_t> indices, size_t width, const Palette& palette, PixelRows target) {
  for (size_t at = 0; at < indices.size(); at += width, target.first += target.strideBytes)
    for (size_t x = 0; x < width; ++x)
      std::memcpy(target.first + x * kPixelBytes, &palette[indices[at + x]], kPixelBytes);
}

void DrawPixels(std::span<const uint8_t> pixels, size_t width, PixelRows target) {
  const size_t rowBytes = width * kPixelBytes;
  for (size_t at = 0; at < pixels.size(); at += rowBytes, target.first += target.strideBytes)
    std::memcpy(target.first, pixels.data() + at, rowBytes);
}

const char* InflateFault(int result, const z_stream& stream) {
  if (result == Z_STREAM_END) return stream.avail_in > 0 ? "something follows its end" : "it is empty";
  if (result == Z_NEED_DICT) return "it asks for a dictionary";
  if (stream.msg != nullptr) return stream.msg;
  return stream.avail_in == 0 ? "it ends early" : "it holds more than the tile";
}

/// A plain loop: compilers turn it into vector code, which they do not do for std::max_element.
uint8_t Largest(std::span<const uint8_t> bytes) {
  uint8_t largest = 0;
  for (const uint8_t byte : bytes) largest = std::max(largest, byte);
  return largest;
}

}  // namespace

struct TileDecoder::Inflater {
  Inflater() {
    if (inflateInit(&stream) != Z_OK) throw std::bad_alloc();
  }
  ~Inflater() { inflateEnd(&stream); }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  z_stream stream{};
};

bool IsLossy(uint8_t coding) {
  return coding == static_cast<uint8_t>(agent::TileCoding::kJpeg) ||
         coding == static_cast<uint8_t>(agent::TileCoding::kWebp);
}

TileDecoder::TileDecoder(TileImageCodec& codec) : inflater_(std::make_unique<Inflater>()), codec_(codec) {}
TileDecoder::~TileDecoder() = default;

bool TileDecoder::Decode(const agent::TileRecord& tile, const PixelRows& target, std::string& error) {
  switch (static_cast<agent::TileCoding>(tile.coding)) {
    case agent::TileCoding::kPalette:
      return DecodePalette(tile, target, error);
    case agent::TileCoding::kLossless:
      return DecodeLossless(tile, target, error);
    case agent::TileCoding::kJpeg:
    case agent::TileCoding::kWebp:
      return DecodeLossy(tile, target, error);
  }
  return Refuse(
      error, FormatText("tile %d has coding %d, which this viewer does not know", tile.index, tile.coding));
}

bool TileDecoder::DecodeLossless(const agent::TileRecord& tile, const PixelRows& target, std::string& error) {
  const size_t expectedBytes = TilePixels(tile) * kPixelBytes;
  const auto pixels = Inflate(tile, expectedBytes, error);
  if (pixels.empty()) return false;
  if (pixels.size() != expectedBytes)
    return Refuse(error, FormatText("lossless tile %d inflates to %zu bytes instead of %zu", tile.index,
                                    pixels.size(), expectedBytes));
  DrawPixels(pixels, tile.width, target);
  return true;
}

bool TileDecoder::DecodePalette(const agent::TileRecord& tile, const PixelRows& target, std::string& error) {
  const size_t pixelCount = TilePixels(tile);
  const size_t maxBytes = kPaletteCountBytes + kMaxPaletteColors * kPixelBytes + pixelCount;
  const auto bytes = Inflate(tile, maxBytes, error);
  if (bytes.empty()) return false;
  // The one little-endian number of the format.
  const size_t colors = bytes.size() < kPaletteCountBytes ? 0 : bytes[0] | size_t{bytes[1]} << 8;
  if (colors < 1 || colors > kMaxPaletteColors)
    return Refuse(error, FormatText("palette tile %d has a palette of %zu colours", tile.index, colors));
  const size_t expectedBytes = kPaletteCountBytes + colors * kPixelBytes + pixelCount;
  if (bytes.size() != expectedBytes)
    return Refuse(error, FormatText("palette tile %d of %zu colours inflates to %zu bytes instead of %zu",
                                    tile.index, colors, bytes.size(), expectedBytes));

  const auto indices = bytes.last(pixelCount);
  const uint8_t largest = Largest(indices);
  if (largest >= colors)
    return Refuse(
        error, FormatText("palette tile %d uses colour %d of a palette of %zu", tile.index, largest, colors));
  Palette palette;
  std::memcpy(palette.data(), bytes.data() + kPaletteCountBytes, colors * kPixelBytes);
  DrawIndices(indices, tile.width, palette, target);
  return true;
}

bool TileDecoder::DecodeLossy(const agent::TileRecord& tile, const PixelRows& target, std::string& error) {
  const size_t expectedBytes = TilePixels(tile) * kPixelBytes;
  const bool isJpeg = tile.coding == static_cast<uint8_t>(agent::TileCoding::kJpeg);
  const char* const name = isJpeg ? "JPEG" : "WebP";
  if (tile.payload.size() > expectedBytes + kLossyOverheadBytes)
    return Refuse(error, FormatText("%s tile %d has %zu bytes, more than its %dx%d pixels can need", name,
                                    tile.index, tile.payload.size(), tile.width, tile.height));
  if (!codec_.Decode(tile.payload, tile.width, tile.height, lossyPixels_) ||
      lossyPixels_.size() != expectedBytes)
    return Refuse(error, FormatText("the payload of %s tile %d does not decode to %dx%d pixels", name,
                                    tile.index, tile.width, tile.height));
  DrawPixels(lossyPixels_, tile.width, target);
  return true;
}

std::span<const uint8_t> TileDecoder::Inflate(const agent::TileRecord& tile, size_t maxBytes,
                                              std::string& error) {
  if (maxBytes > bufferBytes_) {
    buffer_ = std::make_unique_for_overwrite<uint8_t[]>(maxBytes);
    bufferBytes_ = maxBytes;
  }
  z_stream& stream = inflater_->stream;
  inflateReset(&stream);
  stream.next_in = const_cast<Bytef*>(tile.payload.data());
  stream.avail_in = static_cast<uInt>(tile.payload.size());
  stream.next_out = buffer_.get();
  stream.avail_out = static_cast<uInt>(maxBytes);

  // With Z_FINISH and room for everything there is no second call, and zlib needs no window of its own.
  const int result = inflate(&stream, Z_FINISH);
  const size_t inflated = maxBytes - stream.avail_out;
  if (result == Z_STREAM_END && stream.avail_in == 0 && inflated > 0) return {buffer_.get(), inflated};
  Refuse(error,
         FormatText("the payload of tile %d does not inflate: %s", tile.index, InflateFault(result, stream)));
  return {};
}

}  // namespace cvn::view
