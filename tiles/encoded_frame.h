#pragma once

#include <cstdint>
#include <vector>

namespace cvn::agent {

enum class TileCoding : uint8_t { kPalette = 1, kLossless = 2, kJpeg = 3, kWebp = 4 };

/// One coded tile. `index`, `x`, `y`, `width`, `height`, `coding` and `payload` travel on the wire.
struct EncodedTile {
  uint32_t index = 0;
  uint32_t column = 0;
  uint32_t row = 0;
  uint32_t x = 0;
  uint32_t y = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  TileCoding coding = TileCoding::kLossless;
  std::vector<uint8_t> payload;
};

/// Everything that has to be sent for one captured frame.
struct EncodedFrame {
  /// Ascending index.
  std::vector<EncodedTile> tiles;
  bool keyframe = false;
  int encodedTiles = 0;
  int totalTiles = 0;
  int64_t payloadBytes = 0;
  bool coarse = false;
  bool losslessRefine = false;
  /// How many of `tiles` are palette or lossless.
  int losslessTiles = 0;
};

}  // namespace cvn::agent
