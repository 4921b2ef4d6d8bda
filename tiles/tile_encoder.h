#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "base/geometry.h"
#include "tiles/encoded_frame.h"
#include "tiles/tile_grid.h"
#include "tiles/tile_image_codec.h"

namespace cvn::agent {

/// How tiles are cut and coded. Quality fields are clamped where they are used.
struct TileEncoderSettings {
  int32_t tileSize = 64;
  /// >= 1: that many full-width strips instead of square tiles.
  int32_t strips = 0;
  int32_t paletteColors = 256;
  int32_t tileQ = 90;
  bool coarseEnabled = true;
  int32_t coarseQuality = 30;
  double coarseFraction = 0.5;
  int32_t coarseMinTiles = 6;
  int32_t refineTilesPerPass = 2;
  /// Bits per pixel, as are the two budgets below.
  int32_t losslessBudget = 3;
  int32_t refineBudget = 8;
  int32_t photoHoldFrames = 60;
  int32_t photoNearFactor = 3;
  int32_t sampleRowStep = 8;
  int32_t sampleBudgetFactor = 4;
};

/// Turns frames of one fixed size into the tiles that changed, each coded by the cheapest coding that suits
/// it.
///
/// The first frame, and the first after `ForgetReference`, is a keyframe with every tile. One thread at a
/// time; one encoder for each frame geometry.
class TileEncoder {
 public:
  /// `codec` is borrowed and may be null: tiles with many colours then travel losslessly. Throws
  /// std::out_of_range
  /// ("frame size", "tile size").
  TileEncoder(int width, int height, TileImageCodec* codec, const TileEncoderSettings& settings);
  ~TileEncoder();
  TileEncoder(const TileEncoder&) = delete;
  TileEncoder& operator=(const TileEncoder&) = delete;

  /// `pixels`: B, G, R, A rows, stride width * 4. `changed`: rectangles outside which no pixel differs from
  /// the frame last given to this encoder; absent means unknown. The result is the same with and without it,
  /// only the cost differs. Throws std::invalid_argument("frame smaller than the configured grid").
  EncodedFrame Encode(std::span<const uint8_t> pixels,
                      std::optional<std::span<const PixelRect>> changed = std::nullopt);

  /// tileQ is clamped to 1..100, paletteColors to 1..256; a negative losslessBudget changes nothing, else at
  /// most 32.
  void SetQuality(int tileQ, int paletteColors, int losslessBudget);
  void SetAllowWebp(bool allow);
  void SetGrayscale(bool grayscale);
  void SetEstimatePhotographic(bool estimate);
  /// The next frame is a keyframe.
  void ForgetReference();
  /// One-shot: the next frame codes the tiles of the last coarse frame again.
  void RequestCoarseResend();
  /// One-shot: when nothing changed, the next frame improves lossy tiles losslessly.
  void RequestRefine();

  int TileHeight() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace cvn::agent
