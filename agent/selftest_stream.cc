#include "agent/selftest_stream.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "agent/selftest_capture.h"
#include "agent/selftest_codec.h"
#include "session/quality_preset.h"
#include "session/stream_rate.h"
#include "tiles/tile_encoder.h"
#include "tiles/tile_grid.h"

namespace cvn::agent {
namespace {

/// Of brightness: a screen may show anything, and noise in strong colours, the worst there is, loses its
/// colour detail to sub-sampling (6 dB are left of it) but keeps 31 dB of its brightness.
constexpr double kScreenTilePsnr = 25;
constexpr std::chrono::milliseconds kMoment{250};
constexpr QualityPreset kPresets[] = {QualityPreset::kHigh, QualityPreset::kBalanced,
                                      QualityPreset::kDataSaver};

struct TimedFrame {
  EncodedFrame encoded;
  double ms = 0;
};

EncodedFrame Encode(TileEncoder& encoder, const CapturedFrame& frame) {
  return encoder.Encode({frame.pixels, static_cast<size_t>(frame.byteSize)});
}

TimedFrame EncodeTimed(TileEncoder& encoder, const CapturedFrame& frame, const Clock& clock) {
  const int64_t startNs = clock.NowNs();
  TimedFrame result{.encoded = Encode(encoder, frame)};
  result.ms = MillisecondsSince(clock, startNs);
  return result;
}

std::unique_ptr<TileEncoder> MakeEncoder(const SelftestParts& parts, const CapturedFrame& frame,
                                         const TileEncoderSettings& settings) {
  return std::make_unique<TileEncoder>(static_cast<int>(frame.width), static_cast<int>(frame.height),
                                       parts.codec, settings);
}

long long CountOf(const EncodedFrame& encoded, TileCoding coding) {
  return std::ranges::count(encoded.tiles, coding, &EncodedTile::coding);
}

bool IsPhotographic(const EncodedTile& tile) {
  return tile.coding == TileCoding::kJpeg || tile.coding == TileCoding::kWebp;
}

void ReportGrid(const TileGrid& grid, SelftestReport& report) {
  report.Line("grid", "%d x %d tiles of %dx%d", grid.Columns(), grid.Rows(), grid.TileWidth(),
              grid.TileHeight());
}

void ReportKeyframe(const TimedFrame& keyframe, SelftestReport& report) {
  const EncodedFrame& encoded = keyframe.encoded;
  report.Line("keyframe", "%d tiles (%lld palette, %lld lossless, %lld JPEG, %lld WebP), %lld B, %.1f ms",
              encoded.encodedTiles, CountOf(encoded, TileCoding::kPalette),
              CountOf(encoded, TileCoding::kLossless), CountOf(encoded, TileCoding::kJpeg),
              CountOf(encoded, TileCoding::kWebp), static_cast<long long>(encoded.payloadBytes), keyframe.ms);
}

void ReportStaticFrame(const TimedFrame& frame, SelftestReport& report) {
  const int tiles = frame.encoded.encodedTiles;
  const auto bytes = static_cast<long long>(frame.encoded.payloadBytes);
  if (tiles == 0)
    report.Line("static frame", "%d tiles, %lld B, %.1f ms", tiles, bytes, frame.ms);
  else
    report.Wrong("static frame", "%d tiles, %lld B, %.1f ms (WRONG: a static screen must cost nothing)",
                 tiles, bytes, frame.ms);
}

PackedTile CopyTile(const CapturedFrame& frame, const EncodedTile& tile) {
  PackedTile copy{
      .pixels = {}, .width = static_cast<int>(tile.width), .height = static_cast<int>(tile.height)};
  for (uint32_t y = tile.y; y < tile.y + tile.height; ++y) {
    const uint8_t* row = frame.pixels + (size_t{y} * frame.width + tile.x) * 4;
    copy.pixels.insert(copy.pixels.end(), row, row + size_t{tile.width} * 4);
  }
  return copy;
}

struct DecodeTally {
  int tiles = 0;
  int undecodable = 0;
  double worstPsnr = 99;
};

DecodeTally DecodePhotographic(TileImageCodec& codec, const CapturedFrame& frame,
                               const EncodedFrame& encoded) {
  DecodeTally tally;
  for (const EncodedTile& tile : encoded.tiles) {
    if (!IsPhotographic(tile)) continue;
    ++tally.tiles;
    const auto likeness = CompareDecoded(codec, tile.payload, CopyTile(frame, tile));
    if (likeness)
      tally.worstPsnr = std::min(tally.worstPsnr, likeness->brightness);
    else
      ++tally.undecodable;
  }
  return tally;
}

void ReportDecodeTally(const DecodeTally& tally, SelftestReport& report) {
  if (tally.tiles == 0)
    report.Line("decode check", "no JPEG or WebP tile in the keyframe");
  else if (tally.undecodable > 0)
    report.Wrong("decode check", "%d of %d JPEG and WebP tiles of the keyframe cannot be decoded",
                 tally.undecodable, tally.tiles);
  else if (tally.worstPsnr < kScreenTilePsnr)
    report.Wrong("decode check",
                 "%d JPEG and WebP tiles of the keyframe, worst brightness %.1f dB, less than %.0f",
                 tally.tiles, tally.worstPsnr, kScreenTilePsnr);
  else
    report.Line("decode check", "%d JPEG and WebP tiles of the keyframe, worst brightness %.1f dB",
                tally.tiles, tally.worstPsnr);
}

void ReportDecodeCheck(TileImageCodec* codec, const CapturedFrame& frame, const EncodedFrame& encoded,
                       SelftestReport& report) {
  if (codec != nullptr) ReportDecodeTally(DecodePhotographic(*codec, frame, encoded), report);
  report.Line("", "%d palette and lossless tiles not decoded: only the viewer can", encoded.losslessTiles);
}

TileEncoderSettings SettingsOf(const SelftestParts& parts) {
  TileEncoderSettings settings;
  settings.strips = parts.strips;
  return settings;
}

/// One preset's encoder and what it has made of the first frame.
struct PresetStream {
  QualityPreset preset;
  QualityValues values;
  std::unique_ptr<TileEncoder> encoder;
  int64_t keyframeBytes = 0;
};

/// At the rate with which a session starts.
PresetStream StartPreset(const SelftestParts& parts, const CapturedFrame& frame, QualityPreset preset) {
  const QualityValues values = ValuesFor(preset, kStartingRate.kbps);
  auto encoder = MakeEncoder(parts, frame, SettingsOf(parts));
  encoder->SetQuality(values.tileQuality, values.paletteColors, values.losslessBudget);
  const int64_t keyframeBytes = Encode(*encoder, frame).payloadBytes;
  return {preset, values, std::move(encoder), keyframeBytes};
}

void ReportPreset(PresetStream& stream, const CapturedFrame& next, SelftestReport& report) {
  const EncodedFrame encoded = Encode(*stream.encoder, next);
  report.Line(PresetName(stream.preset),
              "q%d, %3d colours, %d bpp: keyframe %8lld B, next frame %8lld B (%d tiles)",
              stream.values.tileQuality, stream.values.paletteColors, stream.values.losslessBudget,
              static_cast<long long>(stream.keyframeBytes), static_cast<long long>(encoded.payloadBytes),
              encoded.encodedTiles);
}

}  // namespace

void ReportTiles(const SelftestParts& parts, const CapturedFrame& frame, SelftestReport& report) {
  const TileEncoderSettings settings = SettingsOf(parts);
  ReportGrid(TileGrid(static_cast<int>(frame.width), static_cast<int>(frame.height), settings.tileSize,
                      settings.strips),
             report);
  const auto encoder = MakeEncoder(parts, frame, settings);
  const TimedFrame keyframe = EncodeTimed(*encoder, frame, parts.clock);
  ReportKeyframe(keyframe, report);
  ReportStaticFrame(EncodeTimed(*encoder, frame, parts.clock), report);
  ReportDecodeCheck(parts.codec, frame, keyframe.encoded, report);
}

void ReportPresets(const SelftestParts& parts, ScreenCapturer& capturer, const CapturedFrame& frame,
                   SelftestReport& report) {
  std::vector<PresetStream> streams;
  for (const QualityPreset preset : kPresets) streams.push_back(StartPreset(parts, frame, preset));
  parts.wait(kMoment);
  const auto next = CaptureFrame(parts, capturer, "next frame", report);
  if (!next) return;
  if (next->width != frame.width || next->height != frame.height) {
    report.Line("presets", "not measured: the screen has just changed its size");
    return;
  }
  for (PresetStream& stream : streams) ReportPreset(stream, *next, report);
}

}  // namespace cvn::agent
