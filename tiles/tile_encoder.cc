#include "tiles/tile_encoder.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tiles/change_detector.h"
#include "tiles/exact_coding.h"
#include "tiles/pixel_view.h"
#include "tiles/tile_coder.h"
#include "tiles/tile_grid.h"

namespace cvn::agent {
namespace {

constexpr int kMostPaletteColors = kTooManyColors - 1;
constexpr int kMaxLosslessBudget = 32;
constexpr int kMaxGrayPalette = 32;

enum class FrameKind { kKeyframe, kDelta, kCoarseResend };

/// What is remembered of one tile between frames.
struct TileHistory {
  /// How many more codings take the tile for photographic without a test.
  int32_t photoHold = 0;
  /// Sent in the last coarse frame, and not again since.
  bool coarse = false;
  /// The viewer has a JPEG or WebP form of it.
  bool lossy = false;
  /// Its exact form was too large for a refine pass.
  bool refineRejected = false;
};

int ClampQuality(int quality) {
  return std::clamp(quality, 1, 100);
}

}  // namespace

struct TileEncoder::State {
  State(int width, int height, TileImageCodec* theCodec, const TileEncoderSettings& theSettings);

  void CollectChanged(std::span<const int> differing, FrameKind kind);
  bool IsCoarse(FrameKind kind) const;
  TileCodingRules Rules(bool coarse) const;
  EncodedFrame CodeChanged(std::span<const uint8_t> pixels, FrameKind kind);
  EncodedFrame RefinePass(std::span<const uint8_t> pixels);
  void Remember(int index, TileCoding coding);

  PixelView ViewOf(std::span<const uint8_t> pixels, int index) const;
  void Append(EncodedFrame& frame, int index, CodedTile coded) const;
  TileHistory& HistoryOf(int index) { return history[static_cast<size_t>(index)]; }

  const TileGrid grid;
  const TileEncoderSettings settings;
  TileImageCodec* const codec;
  int tileQ;
  int paletteColors;
  int losslessBudget;

  bool allowWebp = false;
  bool grayscale = false;
  bool estimatePhotographic = true;
  bool haveReference = false;
  bool resendCoarse = false;
  bool refineRequested = false;
  /// Of the tiles that a coarse re-send or a refine pass adds to what has changed.
  int64_t mostExtraBytes = INT64_MAX;

  ChangeDetector detector;
  std::vector<TileHistory> history;
  std::vector<int> changed;
  TileCoder coder;
};

TileEncoder::State::State(int width, int height, TileImageCodec* theCodec,
                          const TileEncoderSettings& theSettings)
    : grid(width, height, theSettings.tileSize, theSettings.strips),
      settings(theSettings),
      codec(theCodec),
      tileQ(ClampQuality(theSettings.tileQ)),
      paletteColors(std::clamp(theSettings.paletteColors, 1, kMostPaletteColors)),
      losslessBudget(std::clamp(theSettings.losslessBudget, 0, kMaxLosslessBudget)),
      detector(grid),
      history(static_cast<size_t>(grid.TileCount())) {
  changed.reserve(history.size());
}

void TileEncoder::State::CollectChanged(std::span<const int> differing, FrameKind kind) {
  changed.clear();
  auto next = differing.begin();
  for (int index = 0; index < grid.TileCount(); ++index) {
    const bool differs = next != differing.end() && *next == index;
    if (differs) ++next;
    bool& coarse = HistoryOf(index).coarse;
    if (differs) coarse = false;
    const bool resent = kind == FrameKind::kCoarseResend && coarse;
    if (differs || resent || kind == FrameKind::kKeyframe) changed.push_back(index);
  }
}

bool TileEncoder::State::IsCoarse(FrameKind kind) const {
  if (!settings.coarseEnabled || !allowWebp || !codec || kind != FrameKind::kDelta) return false;
  const double share = std::trunc(static_cast<double>(grid.TileCount()) * settings.coarseFraction);
  return static_cast<double>(changed.size()) >= std::max(static_cast<double>(settings.coarseMinTiles), share);
}

TileCodingRules TileEncoder::State::Rules(bool coarse) const {
  return {.settings = settings,
          .codec = codec,
          .quality = coarse ? ClampQuality(std::min(tileQ, settings.coarseQuality)) : tileQ,
          .paletteLimit = grayscale ? std::min(paletteColors, kMaxGrayPalette) : paletteColors,
          .grayscale = grayscale,
          .allowLossless = !coarse,
          .allowWebp = allowWebp,
          .estimatePhotographic = estimatePhotographic,
          .losslessBudget = losslessBudget};
}

EncodedFrame TileEncoder::State::CodeChanged(std::span<const uint8_t> pixels, FrameKind kind) {
  EncodedFrame frame;
  frame.keyframe = kind == FrameKind::kKeyframe;
  frame.coarse = IsCoarse(kind);
  frame.totalTiles = grid.TileCount();
  frame.tiles.reserve(changed.size());
  const TileCodingRules rules = Rules(frame.coarse);
  if (frame.coarse)
    for (TileHistory& tile : history) tile.coarse = false;
  for (const int index : changed) {
    TileHistory& tile = HistoryOf(index);
    const bool resent = kind == FrameKind::kCoarseResend && tile.coarse;
    if (resent && frame.payloadBytes >= mostExtraBytes) continue;
    CodedTile coded = coder.Code(ViewOf(pixels, index), rules, tile.photoHold);
    Remember(index, coded.coding);
    tile.coarse = frame.coarse;
    Append(frame, index, std::move(coded));
  }
  return frame;
}

EncodedFrame TileEncoder::State::RefinePass(std::span<const uint8_t> pixels) {
  EncodedFrame frame;
  frame.losslessRefine = true;
  frame.totalTiles = grid.TileCount();
  for (int index = 0; index < grid.TileCount(); ++index) {
    if (frame.encodedTiles >= settings.refineTilesPerPass || frame.payloadBytes >= mostExtraBytes) break;
    TileHistory& tile = HistoryOf(index);
    if (!tile.lossy || tile.refineRejected) continue;
    const PixelView view = ViewOf(pixels, index);
    CodedTile exact = coder.CodeExactly(view, grayscale);
    tile.refineRejected = exact.Bits() > static_cast<int64_t>(view.PixelCount()) * settings.refineBudget;
    if (tile.refineRejected) continue;
    tile.lossy = false;
    Append(frame, index, std::move(exact));
  }
  return frame;
}

void TileEncoder::State::Remember(int index, TileCoding coding) {
  TileHistory& tile = HistoryOf(index);
  tile.lossy = coding == TileCoding::kJpeg || coding == TileCoding::kWebp;
  // Deliberate: a rejected tile stays rejected until it has been sent exactly, also when its content changes.
  if (!tile.lossy) tile.refineRejected = false;
}

PixelView TileEncoder::State::ViewOf(std::span<const uint8_t> pixels, int index) const {
  const TileRect rect = grid.Rect(index);
  const size_t strideBytes = static_cast<size_t>(grid.Width()) * 4;
  const size_t offset = static_cast<size_t>(rect.y) * strideBytes + static_cast<size_t>(rect.x) * 4;
  return {pixels.data() + offset, rect.width, rect.height, strideBytes};
}

void TileEncoder::State::Append(EncodedFrame& frame, int index, CodedTile coded) const {
  const TileRect rect = grid.Rect(index);
  ++frame.encodedTiles;
  frame.payloadBytes += static_cast<int64_t>(coded.payload.size());
  if (coded.coding == TileCoding::kPalette || coded.coding == TileCoding::kLossless) ++frame.losslessTiles;
  frame.tiles.push_back({.index = static_cast<uint32_t>(index),
                         .column = static_cast<uint32_t>(index % grid.Columns()),
                         .row = static_cast<uint32_t>(index / grid.Columns()),
                         .x = static_cast<uint32_t>(rect.x),
                         .y = static_cast<uint32_t>(rect.y),
                         .width = static_cast<uint32_t>(rect.width),
                         .height = static_cast<uint32_t>(rect.height),
                         .coding = coded.coding,
                         .payload = std::move(coded.payload)});
}

TileEncoder::TileEncoder(int width, int height, TileImageCodec* codec, const TileEncoderSettings& settings)
    : state_(std::make_unique<State>(width, height, codec, settings)) {}

TileEncoder::~TileEncoder() = default;

EncodedFrame TileEncoder::Encode(std::span<const uint8_t> pixels,
                                 std::optional<std::span<const PixelRect>> changed) {
  State& state = *state_;
  const auto frameBytes =
      static_cast<size_t>(state.grid.Width()) * static_cast<size_t>(state.grid.Height()) * 4;
  if (pixels.size() < frameBytes) throw std::invalid_argument("frame smaller than the configured grid");
  // The reference counts again when the frame is complete: if coding throws, the next frame is a keyframe.
  const bool hadReference = std::exchange(state.haveReference, false);
  const bool resend = std::exchange(state.resendCoarse, false) && hadReference;
  const bool refine = std::exchange(state.refineRequested, false) && hadReference && !resend;
  const FrameKind kind = !hadReference ? FrameKind::kKeyframe
                         : resend      ? FrameKind::kCoarseResend
                                       : FrameKind::kDelta;
  state.CollectChanged(state.detector.Detect(pixels, changed), kind);
  EncodedFrame frame =
      refine && state.changed.empty() ? state.RefinePass(pixels) : state.CodeChanged(pixels, kind);
  state.haveReference = true;
  return frame;
}

void TileEncoder::SetQuality(int tileQ, int paletteColors, int losslessBudget) {
  state_->tileQ = ClampQuality(tileQ);
  state_->paletteColors = std::clamp(paletteColors, 1, kMostPaletteColors);
  if (losslessBudget >= 0) state_->losslessBudget = std::min(losslessBudget, kMaxLosslessBudget);
}

void TileEncoder::SetAllowWebp(bool allow) {
  state_->allowWebp = allow;
}
void TileEncoder::SetGrayscale(bool grayscale) {
  state_->grayscale = grayscale;
}
void TileEncoder::SetEstimatePhotographic(bool estimate) {
  state_->estimatePhotographic = estimate;
}
void TileEncoder::ForgetReference() {
  state_->haveReference = false;
}
void TileEncoder::RequestCoarseResend(int64_t mostBytes) {
  state_->resendCoarse = true;
  state_->mostExtraBytes = mostBytes;
}
void TileEncoder::RequestRefine(int64_t mostBytes) {
  state_->refineRequested = true;
  state_->mostExtraBytes = mostBytes;
}
int TileEncoder::TileHeight() const {
  return state_->grid.TileHeight();
}

}  // namespace cvn::agent
