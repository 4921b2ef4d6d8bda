#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "base/geometry.h"
#include "tiles/encoded_frame.h"
#include "tiles/tile_encoder_settings.h"
#include "tiles/tile_image_codec.h"

namespace cvn::agent {

/// Turns frames of one fixed size into the tiles that changed, each coded by the cheapest coding that suits
/// it.
///
/// The first frame, and the first after `ForgetReference`, is a keyframe with every tile. One thread at a
/// time; one encoder for each frame geometry.
class TileEncoder {
 public:
  /// `codec` is borrowed and may be null: tiles with many colours then travel losslessly. Throws
  /// std::out_of_range("frame size") or ("tile size").
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
  /// Off until set. The line is slow: photographic tiles are tried as WebP first, and a frame in which much
  /// changed may be coarse.
  void SetAllowWebp(bool allow);
  /// Off until set. The caller has made every frame's colour bytes equal; palettes are then small.
  void SetGrayscale(bool grayscale);
  /// On until cleared. Cleared, every tile beyond the palette limit is photographic without a test, which
  /// saves time and costs sharpness.
  void SetEstimatePhotographic(bool estimate);
  /// The next frame is a keyframe.
  void ForgetReference();
  /// One-shot: the next frame codes the tiles of the last coarse frame again, changed or not. What would come
  /// after `mostBytes` of payload stays for another request. An unchanged frame without a tile then says that
  /// none is left.
  void RequestCoarseResend(int64_t mostBytes = INT64_MAX);
  /// One-shot: when nothing changed, the next frame codes a few lossy tiles exactly, and no more once
  /// `mostBytes` of payload are reached. An empty result then says that no tile is left to improve.
  void RequestRefine(int64_t mostBytes = INT64_MAX);

  int TileHeight() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace cvn::agent
