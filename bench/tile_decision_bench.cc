// What the decision between the codings makes of a screen of 1920x1080, by preset: the whole screen at once
// on a fast line and on one of 300 kbit/s, where it is a coarse frame and the same by every preset, and a
// film of 640x360 in a document on both. Time is that of one frame, by the clock and of all processors;
// counters: `kB` of its payload, and how many of its tiles took which coding.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "bench/screen_content.h"
#include "session/quality_preset.h"
#include "session/rate_ladder.h"
#include "tiles/linux/turbo_image_codec.h"
#include "tiles/tile_encoder.h"

namespace cvn::bench {
namespace {

using agent::QualityPreset;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kSlowKbps = 300;
constexpr const char* kFilm = "film";

enum class Line { kFast, kSlow };

int TargetKbps(QualityPreset preset, Line line) {
  if (line == Line::kSlow) return kSlowKbps;
  agent::RateLadder ladder;
  agent::LadderReport report;
  report.preset = preset;
  ladder.Step(report);
  return ladder.Rate().kbps;
}

void Prepare(agent::TileEncoder& encoder, QualityPreset preset, Line line) {
  const agent::QualityValues values = agent::ValuesFor(preset, TargetKbps(preset, line));
  encoder.SetQuality(values.tileQuality, values.paletteColors, values.losslessBudget);
  encoder.SetAllowWebp(line == Line::kSlow);
}

std::vector<Screen> WholeScreens(ScreenStyle style) {
  std::vector<Screen> screens;
  for (const uint32_t seed : {1U, 2U, 3U}) screens.push_back(MakeScreen(style, kWidth, kHeight, seed));
  return screens;
}

/// A film that pans over a photograph.
std::vector<Screen> FilmScreens() {
  constexpr int kFilmWidth = 640;
  constexpr int kFilmHeight = 360;
  constexpr int kFrames = 8;
  constexpr int kStep = 6;
  const Screen scene = MakeScreen(ScreenStyle::kPhotograph, kFilmWidth + kFrames * kStep, kFilmHeight);
  std::vector<Screen> screens(kFrames, MakeScreen(ScreenStyle::kDocument, kWidth, kHeight));
  for (int frame = 0; frame < kFrames; ++frame) {
    const agent::PixelView shown = scene.Part(frame * kStep, 0, kFilmWidth, kFilmHeight);
    for (int y = 0; y < kFilmHeight; ++y) {
      const size_t place = (static_cast<size_t>(300 + y) * kWidth + 700) * 4;
      std::memcpy(&screens[static_cast<size_t>(frame)].pixels[place], shown.Row(y), shown.RowBytes());
    }
  }
  return screens;
}

class Outcome {
 public:
  void Add(const agent::EncodedFrame& frame) {
    bytes_ += static_cast<double>(frame.payloadBytes);
    coarse_ += frame.coarse ? 1 : 0;
    for (const agent::EncodedTile& tile : frame.tiles) ++tiles_[static_cast<size_t>(tile.coding)];
  }

  void Report(benchmark::State& state) const {
    const auto mean = [](double sum) { return benchmark::Counter(sum, benchmark::Counter::kAvgIterations); };
    state.counters["kB"] = mean(bytes_ / 1000);
    state.counters["coarse"] = mean(coarse_);
    const char* const names[] = {"palette", "lossless", "jpeg", "webp"};
    for (size_t coding = 1; coding < tiles_.size(); ++coding)
      state.counters[names[coding - 1]] = mean(tiles_[coding]);
  }

 private:
  double bytes_ = 0;
  double coarse_ = 0;
  std::array<double, 5> tiles_{};
};

/// One screen after the other. On a fast line a screen that has changed everywhere costs as much as a
/// keyframe.
void EncodeScreens(benchmark::State& state, const std::vector<Screen>& screens, QualityPreset preset,
                   Line line) {
  const auto codec = agent::CreateTurboImageCodec();
  agent::TileEncoder encoder(kWidth, kHeight, codec.get(), {});
  Prepare(encoder, preset, line);
  encoder.Encode(screens.back().pixels);
  Outcome outcome;
  size_t next = 0;
  for (auto unused : state) outcome.Add(encoder.Encode(screens[next++ % screens.size()].pixels));
  outcome.Report(state);
}

template <typename MakeScreens>
void Register(const std::string& content, MakeScreens makeScreens) {
  for (const Line line : {Line::kFast, Line::kSlow}) {
    for (const QualityPreset preset :
         {QualityPreset::kHigh, QualityPreset::kBalanced, QualityPreset::kDataSaver}) {
      if (line == Line::kSlow && content != kFilm && preset != QualityPreset::kHigh) continue;
      const std::string name =
          content + (line == Line::kFast ? "/fast/" : "/slow/") + agent::PresetName(preset);
      benchmark::RegisterBenchmark(name.c_str(),
                                   [=](auto& state) { EncodeScreens(state, makeScreens(), preset, line); })
          ->Unit(benchmark::kMillisecond)
          ->MeasureProcessCPUTime()
          ->Iterations(3);
    }
  }
}

const bool kRegistered = [] {
  for (const ScreenStyle style :
       {ScreenStyle::kTerminal, ScreenStyle::kDocument, ScreenStyle::kSpreadsheet, ScreenStyle::kPhotograph})
    Register(std::string(NameOf(style)), [style] { return WholeScreens(style); });
  Register(kFilm, FilmScreens);
  return true;
}();

}  // namespace
}  // namespace cvn::bench
