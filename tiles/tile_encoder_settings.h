#pragma once

#include <cstdint>

namespace cvn::agent {

/// How tiles are cut and coded. Quality fields are clamped where they are used.
struct TileEncoderSettings {
  /// Edge of a square tile in pixels.
  int32_t tileSize = 64;
  /// >= 1: that many full-width strips instead of square tiles.
  int32_t strips = 0;

  /// 1..256: a tile of at most this many colours is always a palette tile.
  int32_t paletteColors = 256;
  /// 1..100, of photographic tiles.
  int32_t tileQ = 90;

  /// A coarse frame answers a change of much of the screen quickly and roughly: at most `coarseQuality`, once
  /// `coarseFraction` of all tiles and at least `coarseMinTiles` have changed.
  bool coarseEnabled = true;
  int32_t coarseQuality = 30;
  double coarseFraction = 0.5;
  int32_t coarseMinTiles = 6;

  /// Bits per pixel, 0..32, that a tile with more colours may cost and still be coded exactly.
  int32_t losslessBudget = 3;
  /// Up to this many times the budget a photographic tile is probably text or a drawing: WebP keeps it
  /// clearer.
  int32_t photoNearFactor = 3;
  /// How many further codings of a tile go without the test once it was found photographic.
  int32_t photoHoldFrames = 60;
  /// Every n-th row makes the sample that spares clear photographs the full attempt; it may cost
  /// `sampleBudgetFactor` times the budget.
  int32_t sampleRowStep = 8;
  int32_t sampleBudgetFactor = 4;

  /// A refine pass sends at most this many lossy tiles exactly, none that costs more bits per pixel.
  int32_t refineTilesPerPass = 2;
  int32_t refineBudget = 8;
};

}  // namespace cvn::agent
