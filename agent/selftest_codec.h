#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "agent/selftest_report.h"
#include "tiles/tile_image_codec.h"

namespace cvn::agent {

/// Reports which photographic codings this machine has, what they cost on a photographic test tile at quality
/// 80, and whether that tile survives them. `codec` may be null.
void ReportCodecs(TileImageCodec* codec, SelftestReport& report);

/// How close a decoded tile is to what was coded: peak signal-to-noise ratios in dB, at most 99.
struct Likeness {
  double colour = 0;
  /// Of the luma alone, which every coding keeps at full resolution.
  double brightness = 0;
};

/// A tile as the codec takes it: packed B, G, R, A pixels.
struct PackedTile {
  std::vector<uint8_t> pixels;
  int width = 0;
  int height = 0;
};

/// Decodes `payload` and holds it against the tile that was coded. No value when it cannot be decoded.
std::optional<Likeness> CompareDecoded(TileImageCodec& codec, std::span<const uint8_t> payload,
                                       const PackedTile& tile);

}  // namespace cvn::agent
