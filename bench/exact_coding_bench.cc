// Exact coding of tiles beside zlib and a plain palette, on the same tiles in the same run. Counters: `us`
// microseconds a tile, `vs_...` how many times faster than that rival, `size_vs_...` payload bytes relative
// to its. Before anything is timed, every result is checked.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstring>
#include <memory>
#include <stdexcept>

#include "bench/plain_coding.h"
#include "bench/rivals.h"
#include "bench/screen_content.h"
#include "tiles/deflate.h"
#include "tiles/exact_coding.h"
#include "tiles/palette.h"

namespace cvn::bench {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kTileSize = 64;

/// Inputs with the readable bytes behind them that the writer asks for.
struct Input {
  Bytes readable;
  size_t count = 0;
};

Input Readable(std::span<const uint8_t> bytes) {
  Input input{Bytes(bytes.begin(), bytes.end()), bytes.size()};
  input.readable.resize(bytes.size() + agent::kReadableBytesBehind);
  return input;
}

Bytes Packed(const agent::PixelView& tile) {
  Bytes packed;
  for (int y = 0; y < tile.height; ++y)
    packed.insert(packed.end(), tile.Row(y), tile.Row(y) + tile.RowBytes());
  return packed;
}

enum class TileKind { kText, kOneColor, kRaw };

/// The payloads before compression: palettes of tiles with a few colours or with one, or pixels as they are.
std::vector<Input> InputsOf(const Screen& screen, TileKind kind) {
  agent::PaletteBuilder palette;
  std::vector<Input> inputs;
  for (const agent::PixelView& tile : TilesOf(screen, kTileSize)) {
    const int colors = palette.Build(tile, false);
    if (kind == TileKind::kRaw && colors > 1) inputs.push_back(Readable(Packed(tile)));
    if (kind == TileKind::kText && colors > 1 && colors <= 256) inputs.push_back(Readable(palette.Payload()));
    if (kind == TileKind::kOneColor && colors == 1) inputs.push_back(Readable(palette.Payload()));
  }
  return inputs;
}

void Require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

void RequireInflates(std::span<const uint8_t> stream, const Input& input) {
  Bytes output(input.count + 1);
  auto count = static_cast<uLongf>(output.size());
  Require(uncompress(output.data(), &count, stream.data(), static_cast<uLong>(stream.size())) == Z_OK &&
              count == input.count && std::memcmp(output.data(), input.readable.data(), count) == 0,
          "a stream does not inflate to its input");
}

void Report(benchmark::State& state, const Rivals& rivals) {
  const double own = rivals.MicrosecondsPerInput(0);
  state.counters["us"] = own;
  for (size_t i = 1; i < rivals.Count(); ++i)
    state.counters["vs_" + rivals.Name(i)] = rivals.MicrosecondsPerInput(i) / own;
}

void DeflateTiles(benchmark::State& state, ScreenStyle style, TileKind kind) {
  const std::vector<Input> inputs = InputsOf(MakeScreen(style, 1920, 1080), kind);
  agent::ZlibWriter writer;
  ZlibRival level1(1);
  ZlibRival level3(3);
  double own = 0;
  double bytes1 = 0;
  double bytes3 = 0;
  for (const Input& input : inputs) {
    const auto stream = writer.Compress(input.readable.data(), input.count);
    RequireInflates(stream, input);
    own += static_cast<double>(stream.size());
    bytes1 += static_cast<double>(level1.Compress(input.readable.data(), input.count));
    bytes3 += static_cast<double>(level3.Compress(input.readable.data(), input.count));
  }
  // Where tiles come from: just gathered or indexed.
  Bytes near(size_t{1} << 16);
  const auto bringNear = [&](size_t i) {
    std::memcpy(near.data(), inputs[i].readable.data(), inputs[i].readable.size());
  };
  const auto by = [&](auto& coder) {
    return [&](size_t i) { benchmark::DoNotOptimize(coder.Compress(near.data(), inputs[i].count)); };
  };
  Rivals rivals({{"own", by(writer)}, {"zlib1", by(level1)}, {"zlib3", by(level3)}}, inputs.size(),
                bringNear);
  for (auto unused : state) rivals.Run();
  Report(state, rivals);
  state.counters["tiles"] = static_cast<double>(inputs.size());
  state.counters["size_vs_zlib1"] = own / bytes1;
  state.counters["size_vs_zlib3"] = own / bytes3;
}

void CountTiles(benchmark::State& state, ScreenStyle style) {
  const Screen screen = MakeScreen(style, 1920, 1080);
  const std::vector<agent::PixelView> tiles = TilesOf(screen, kTileSize);
  agent::PaletteBuilder palette;
  auto plain = std::make_unique<PlainPalette>();
  double fewColors = 0;
  for (const agent::PixelView& tile : tiles) {
    const int colors = palette.Build(tile, false);
    Require(colors == plain->Build(tile), "colour counts differ");
    fewColors += colors <= 256 ? 1 : 0;
  }
  Rivals rivals({{"own", [&](size_t i) { benchmark::DoNotOptimize(palette.Build(tiles[i], false)); }},
                 {"plain", [&](size_t i) { benchmark::DoNotOptimize(plain->Build(tiles[i])); }}},
                tiles.size());
  for (auto unused : state) rivals.Run();
  Report(state, rivals);
  state.counters["ns_per_pixel"] = rivals.MicrosecondsPerInput(0) * 1000 / (kTileSize * kTileSize);
  state.counters["few_colors"] = fewColors / static_cast<double>(tiles.size());
}

void Register(const std::string& name, const std::function<void(benchmark::State&)>& run) {
  benchmark::RegisterBenchmark(name.c_str(), run)->Unit(benchmark::kMillisecond);
}

const bool kRegistered = [] {
  for (const ScreenStyle style : kAllScreenStyles) {
    const std::string name(NameOf(style));
    if (style != ScreenStyle::kPhotograph)
      Register("deflate/palette/" + name, [=](auto& state) { DeflateTiles(state, style, TileKind::kText); });
    if (style == ScreenStyle::kFlat)
      Register("deflate/one_color", [=](auto& state) { DeflateTiles(state, style, TileKind::kOneColor); });
    Register("deflate/raw/" + name, [=](auto& state) { DeflateTiles(state, style, TileKind::kRaw); });
    Register("palette/" + name, [=](auto& state) { CountTiles(state, style); });
  }
  return true;
}();

}  // namespace
}  // namespace cvn::bench
