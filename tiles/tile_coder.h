#pragma once

#include <cstdint>
#include <vector>

#include "tiles/encoded_frame.h"
#include "tiles/exact_coding.h"
#include "tiles/pixel_view.h"
#include "tiles/tile_encoder_settings.h"
#include "tiles/tile_image_codec.h"

namespace cvn::agent {

/// What one frame asks of the coding of each of its tiles.
struct TileCodingRules {
  const TileEncoderSettings& settings;
  /// Borrowed; null where no photographic codec exists.
  TileImageCodec* codec = nullptr;
  /// 1..100, of photographic tiles.
  int quality = 90;
  /// A tile of at most this many colours is always a palette tile.
  int paletteLimit = 256;
  /// All three colour bytes of every pixel are equal.
  bool grayscale = false;
  /// False in a coarse frame: what is no palette tile is photographic.
  bool allowLossless = true;
  bool allowWebp = false;
  /// False: no test, what is no palette tile is photographic.
  bool estimatePhotographic = true;
  /// Bits per pixel that a tile beyond the palette limit may cost and still be coded exactly; 0 codes all
  /// such tiles photographically.
  int losslessBudget = 3;
};

struct CodedTile {
  TileCoding coding = TileCoding::kLossless;
  std::vector<uint8_t> payload;

  int64_t Bits() const { return static_cast<int64_t>(payload.size()) * 8; }
};

/// Chooses the cheapest coding that suits a tile, and codes it. Keeps nothing between tiles but scratch
/// memory: threads that code tiles side by side have a coder each.
class TileCoder {
 public:
  /// `photoHold` is the tile's own: how many more times it counts as photographic without being tested.
  CodedTile Code(const PixelView& tile, const TileCodingRules& rules, int32_t& photoHold);

  /// A palette tile when it has at most 256 colours, else a lossless one.
  CodedTile CodeExactly(const PixelView& tile, bool grayscale);

 private:
  CodedTile CodeCounted(const PixelView& tile, int colors);
  CodedTile CodeTested(const PixelView& tile, const TileCodingRules& rules, int colors, int32_t& photoHold);
  CodedTile CodePhotographic(const PixelView& tile, const TileCodingRules& rules, bool preferWebp);
  int64_t EstimatedBitsPerPixel(const PixelView& tile, int rowStep);

  ExactCoder exact_;
  std::vector<uint8_t> packed_;
};

}  // namespace cvn::agent
