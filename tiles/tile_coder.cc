#include "tiles/tile_coder.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace cvn::agent {
namespace {

// Tightly packed, as the photographic codecs want them.
void PackPixels(const PixelView& tile, std::vector<uint8_t>& packed) {
  packed.resize(tile.PackedBytes());
  auto next = packed.begin();
  for (int y = 0; y < tile.height; ++y) next = std::copy_n(tile.Row(y), tile.RowBytes(), next);
}

int64_t CeilDivide(int64_t dividend, int64_t divisor) {
  return (dividend + divisor - 1) / divisor;
}

}  // namespace

CodedTile TileCoder::Code(const PixelView& tile, const TileCodingRules& rules, int32_t& photoHold) {
  const int colors = exact_.CountColors(tile, rules.grayscale);
  if (colors <= rules.paletteLimit) return {TileCoding::kPalette, exact_.EncodePalette()};
  if (!rules.codec) return {TileCoding::kLossless, exact_.EncodeLossless(tile)};
  if (!rules.allowLossless || !rules.estimatePhotographic || rules.losslessBudget <= 0)
    return CodePhotographic(tile, rules, false);
  if (photoHold > 0) {
    --photoHold;
    return CodePhotographic(tile, rules, false);
  }
  return CodeTested(tile, rules, colors, photoHold);
}

CodedTile TileCoder::CodeExactly(const PixelView& tile, bool grayscale) {
  return CodeCounted(tile, exact_.CountColors(tile, grayscale));
}

CodedTile TileCoder::CodeCounted(const PixelView& tile, int colors) {
  if (colors < kTooManyColors) return {TileCoding::kPalette, exact_.EncodePalette()};
  return {TileCoding::kLossless, exact_.EncodeLossless(tile)};
}

// A cheap look at every n-th row spares clear photographs the full attempt; whatever is judged photographic
// keeps that verdict for a while, since its neighbours in time will most likely be the same.
CodedTile TileCoder::CodeTested(const PixelView& tile, const TileCodingRules& rules, int colors,
                                int32_t& photoHold) {
  const int64_t budget = rules.losslessBudget;
  photoHold = rules.settings.photoHoldFrames;
  const int64_t estimate = EstimatedBitsPerPixel(tile, std::max(rules.settings.sampleRowStep, 1));
  if (estimate > budget * rules.settings.sampleBudgetFactor) return CodePhotographic(tile, rules, false);

  CodedTile exact = CodeCounted(tile, colors);
  const int64_t budgetBits = static_cast<int64_t>(tile.PixelCount()) * budget;
  if (exact.Bits() <= budgetBits) {
    photoHold = 0;
    return exact;
  }
  return CodePhotographic(tile, rules, exact.Bits() <= budgetBits * rules.settings.photoNearFactor);
}

CodedTile TileCoder::CodePhotographic(const PixelView& tile, const TileCodingRules& rules, bool preferWebp) {
  PackPixels(tile, packed_);
  if (rules.allowWebp || preferWebp) {
    auto webp = rules.codec->EncodeWebp(packed_, tile.width, tile.height, rules.quality);
    if (webp && !webp->empty()) return {TileCoding::kWebp, *std::move(webp)};
  }
  auto jpeg = rules.codec->EncodeJpeg(packed_, tile.width, tile.height, rules.quality);
  if (!jpeg.empty()) return {TileCoding::kJpeg, std::move(jpeg)};
  return {TileCoding::kLossless, exact_.EncodeLossless(tile)};
}

// 0, which suits any budget, where the tile is too low for a sample to say anything.
int64_t TileCoder::EstimatedBitsPerPixel(const PixelView& tile, int rowStep) {
  if (rowStep == 1 || tile.height / 2 < rowStep) return 0;
  PixelView sample = tile;
  sample.height = static_cast<int>(CeilDivide(tile.height, rowStep));
  sample.strideBytes *= static_cast<size_t>(rowStep);
  const auto bytes = static_cast<int64_t>(exact_.LosslessBytes(sample));
  return CeilDivide(bytes * 8, static_cast<int64_t>(sample.PixelCount()));
}

}  // namespace cvn::agent
