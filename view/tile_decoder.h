#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tiles/tile_image_codec.h"
#include "tiles/tile_message.h"

namespace cvn::view {

/// Where a tile is drawn: its first pixel's B byte inside a picture of B, G, R, X pixels, and the bytes from
/// one picture row to the next.
struct PixelRows {
  uint8_t* first = nullptr;
  size_t strideBytes = 0;
};

/// Whether tiles of this coding bring their pixels only nearly.
bool IsLossy(uint8_t coding);

/// Decodes tiles of every coding (docs/wire-format.md) straight into a picture.
///
/// Trusts nothing in a payload: it is inflated into a buffer of the size that the tile's own rectangle allows
/// and no further, or given to the codec only when it is no longer than the rectangle's pixels warrant; and
/// nothing is drawn of a tile that is not whole. The inflater and the buffers are reused, so a tile costs no
/// allocation here once the largest has been seen. One thread at a time.
class TileDecoder {
 public:
  /// `codec` is borrowed.
  explicit TileDecoder(TileImageCodec& codec);
  ~TileDecoder();
  TileDecoder(const TileDecoder&) = delete;
  TileDecoder& operator=(const TileDecoder&) = delete;

  /// The tile's rectangle has been checked: at least 1x1, and all of it lies at `target`. False with `error`
  /// set, and nothing drawn, when the payload is not what the rectangle and the coding call for.
  bool Decode(const agent::TileRecord& tile, const PixelRows& target, std::string& error);

 private:
  struct Inflater;

  bool DecodeLossless(const agent::TileRecord& tile, const PixelRows& target, std::string& error);
  bool DecodePalette(const agent::TileRecord& tile, const PixelRows& target, std::string& error);
  bool DecodeLossy(const agent::TileRecord& tile, const PixelRows& target, std::string& error);
  /// Inflates the whole payload into at most `maxBytes`; an empty span with `error` set when it is longer, or
  /// is no zlib stream, or has something behind it.
  std::span<const uint8_t> Inflate(const agent::TileRecord& tile, size_t maxBytes, std::string& error);

  std::unique_ptr<Inflater> inflater_;
  std::unique_ptr<uint8_t[]> buffer_;
  size_t bufferBytes_ = 0;
  TileImageCodec& codec_;
  std::vector<uint8_t> lossyPixels_;
};

}  // namespace cvn::view
