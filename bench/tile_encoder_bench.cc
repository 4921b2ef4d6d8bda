// Whole frames of 1920x1080 through the tile encoder, and the hashing of their tiles, beside the plain ways
// of doing the same in the same run. Counters: `ms` milliseconds a frame, `vs_...` how many times faster than
// that rival. Before anything is timed, every result is checked.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstring>
#include <memory>
#include <stdexcept>

#include "base/hash.h"
#include "bench/plain_coding.h"
#include "bench/rivals.h"
#include "bench/screen_content.h"
#include "tiles/tile_encoder.h"
#include "tiles/tile_hash.h"

namespace cvn::bench {
namespace {

using Bytes = std::vector<uint8_t>;
using Hashes = std::vector<uint64_t>;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr size_t kStrideBytes = size_t{kWidth} * 4;
constexpr int kTileSize = 64;

void Require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

void Report(benchmark::State& state, const Rivals& rivals) {
  const double own = rivals.MicrosecondsPerInput(0);
  state.counters["ms"] = own / 1000;
  for (size_t i = 1; i < rivals.Count(); ++i)
    state.counters["vs_" + rivals.Name(i)] = rivals.MicrosecondsPerInput(i) / own;
}

/// Several pictures, so that none is still in the cache when its turn comes again.
std::vector<Screen> Frames(ScreenStyle style) {
  std::vector<Screen> frames;
  for (const uint32_t seed : {1U, 2U, 3U, 4U}) frames.push_back(MakeScreen(style, kWidth, kHeight, seed));
  return frames;
}

agent::PixelView ViewOf(const Screen& screen, const agent::TileRect& tile) {
  return screen.Part(tile.x, tile.y, tile.width, tile.height);
}

/// One chain, tile after tile.
void PlainHashes(const Screen& screen, const agent::TileGrid& grid, Hashes& hashes) {
  for (int index = 0; index < grid.TileCount(); ++index) {
    const agent::PixelView tile = ViewOf(screen, grid.Rect(index));
    uint64_t hash = agent::kFnv1aOffsetBasis;
    for (int y = 0; y < tile.height; ++y) hash = agent::Fnv1a64({tile.Row(y), tile.RowBytes()}, hash);
    hashes[static_cast<size_t>(index)] = hash;
  }
}

void RunHashes(const Screen& screen, const agent::TileGrid& grid, agent::FnvRunFunction function,
               Hashes& hashes) {
  std::fill(hashes.begin(), hashes.end(), agent::kFnv1aOffsetBasis);
  for (int row = 0; row < grid.Rows(); ++row) {
    const int first = row * grid.Columns();
    const agent::PixelView tile = ViewOf(screen, grid.Rect(first));
    function({tile.firstByte, kStrideBytes, tile.RowBytes(), tile.height},
             std::span(hashes).subspan(static_cast<size_t>(first), static_cast<size_t>(grid.Columns())));
  }
}

void HashFrame(benchmark::State& state, agent::FnvRunFunction function) {
  const agent::TileGrid grid(kWidth, kHeight, kTileSize, 0);
  const std::vector<Screen> frames = Frames(ScreenStyle::kPhotograph);
  Hashes own(static_cast<size_t>(grid.TileCount()));
  Hashes plain(own.size());
  for (const Screen& frame : frames) {
    RunHashes(frame, grid, function, own);
    PlainHashes(frame, grid, plain);
    Require(own == plain, "hashes differ");
  }
  Bytes copy(frames[0].pixels.size());
  Rivals rivals(
      {{"own", [&](size_t i) { RunHashes(frames[i], grid, function, own); }},
       {"plain", [&](size_t i) { PlainHashes(frames[i], grid, plain); }},
       {"memcpy", [&](size_t i) { std::memcpy(copy.data(), frames[i].pixels.data(), copy.size()); }}},
      frames.size());
  for (auto unused : state) rivals.Run();
  Report(state, rivals);
}

/// A viewer's canvas.
Bytes Inflate(std::span<const uint8_t> stream, size_t most) {
  Bytes output(most);
  auto count = static_cast<uLongf>(most);
  Require(uncompress(output.data(), &count, stream.data(), static_cast<uLong>(stream.size())) == Z_OK,
          "zlib");
  output.resize(count);
  return output;
}

Bytes PixelsOf(const agent::EncodedTile& tile) {
  const size_t count = size_t{tile.width} * tile.height;
  if (tile.coding == agent::TileCoding::kLossless) return Inflate(tile.payload, count * 4);
  const Bytes palette = Inflate(tile.payload, 2 + 1024 + count);
  const size_t colors = palette[0] + size_t{256} * palette[1];
  Bytes pixels;
  for (size_t i = 2 + colors * 4; i < palette.size(); ++i) {
    const auto color = palette.begin() + 2 + palette[i] * 4;
    pixels.insert(pixels.end(), color, color + 4);
  }
  return pixels;
}

void RequireSamePicture(const agent::EncodedFrame& frame, const Screen& screen) {
  Require(frame.keyframe && frame.tiles.size() == 510, "no keyframe");
  for (const agent::EncodedTile& tile : frame.tiles) {
    const Bytes pixels = PixelsOf(tile);
    const agent::PixelView view = screen.Part(static_cast<int>(tile.x), static_cast<int>(tile.y),
                                              static_cast<int>(tile.width), static_cast<int>(tile.height));
    Require(pixels.size() == view.PackedBytes(), "a tile's size");
    for (int y = 0; y < view.height; ++y)
      Require(
          std::memcmp(&pixels[static_cast<size_t>(y) * view.RowBytes()], view.Row(y), view.RowBytes()) == 0,
          "a tile's pixels");
  }
}

/// The same keyframe by plain hashing, an open hash for colours and zlib.
class PlainKeyframe {
 public:
  explicit PlainKeyframe(int level) : zlib_(level) {}

  size_t Encode(const Screen& screen) {
    PlainHashes(screen, grid_, hashes_);
    size_t bytes = 0;
    for (int index = 0; index < grid_.TileCount(); ++index) {
      const agent::PixelView tile = ViewOf(screen, grid_.Rect(index));
      const bool few = palette_.Build(tile) <= 256;
      packed_.clear();
      if (few) {
        packed_ = palette_.Payload();
      } else {
        for (int y = 0; y < tile.height; ++y)
          packed_.insert(packed_.end(), tile.Row(y), tile.Row(y) + tile.RowBytes());
      }
      bytes += zlib_.Compress(packed_.data(), packed_.size());
    }
    return bytes;
  }

 private:
  const agent::TileGrid grid_{kWidth, kHeight, kTileSize, 0};
  Hashes hashes_ = Hashes(static_cast<size_t>(grid_.TileCount()));
  PlainPalette palette_;
  ZlibRival zlib_;
  Bytes packed_;
};

void Keyframe(benchmark::State& state, ScreenStyle style) {
  const std::vector<Screen> frames = Frames(style);
  agent::TileEncoder encoder(kWidth, kHeight, nullptr, {});
  auto level1 = std::make_unique<PlainKeyframe>(1);
  auto level3 = std::make_unique<PlainKeyframe>(3);
  const auto encode = [&](const Screen& screen) {
    encoder.ForgetReference();
    return encoder.Encode(screen.pixels);
  };
  double own = 0;
  double bytes1 = 0;
  double bytes3 = 0;
  for (const Screen& frame : frames) {
    const agent::EncodedFrame encoded = encode(frame);
    RequireSamePicture(encoded, frame);
    own += static_cast<double>(encoded.payloadBytes);
    bytes1 += static_cast<double>(level1->Encode(frame));
    bytes3 += static_cast<double>(level3->Encode(frame));
  }
  Rivals rivals({{"own", [&](size_t i) { benchmark::DoNotOptimize(encode(frames[i])); }},
                 {"zlib1", [&](size_t i) { benchmark::DoNotOptimize(level1->Encode(frames[i])); }},
                 {"zlib3", [&](size_t i) { benchmark::DoNotOptimize(level3->Encode(frames[i])); }}},
                frames.size());
  for (auto unused : state) rivals.Run();
  Report(state, rivals);
  state.counters["kB"] = own / 1000 / static_cast<double>(frames.size());
  state.counters["size_vs_zlib1"] = own / bytes1;
  state.counters["size_vs_zlib3"] = own / bytes3;
}

/// Nothing has changed: what looking costs without a hint, and with one of a line of text.
void StaticFrame(benchmark::State& state) {
  const std::vector<Screen> frames = Frames(ScreenStyle::kDocument);
  std::vector<std::unique_ptr<agent::TileEncoder>> encoders;
  for (const Screen& frame : frames) {
    encoders.push_back(
        std::make_unique<agent::TileEncoder>(kWidth, kHeight, nullptr, agent::TileEncoderSettings{}));
    encoders.back()->Encode(frame.pixels);
    Require(encoders.back()->Encode(frame.pixels).tiles.empty(), "a static screen must cost nothing");
  }
  const agent::PixelRect line{200, 500, 900, 520};
  const std::span<const agent::PixelRect> hint(&line, 1);
  Bytes copy(frames[0].pixels.size());
  Rivals rivals(
      {{"own", [&](size_t i) { benchmark::DoNotOptimize(encoders[i]->Encode(frames[i].pixels)); }},
       {"hinted", [&](size_t i) { benchmark::DoNotOptimize(encoders[i]->Encode(frames[i].pixels, hint)); }},
       {"memcpy", [&](size_t i) { std::memcpy(copy.data(), frames[i].pixels.data(), copy.size()); }}},
      frames.size());
  for (auto unused : state) rivals.Run();
  Report(state, rivals);
}

void Register(const std::string& name, const std::function<void(benchmark::State&)>& run) {
  benchmark::RegisterBenchmark(name.c_str(), run)->Unit(benchmark::kMillisecond)->MinTime(0.4);
}

const bool kRegistered = [] {
  Register("hash/baseline", [](auto& state) { HashFrame(state, agent::FnvRunBaseline); });
  if (agent::CpuHasAvx2()) Register("hash/avx2", [](auto& state) { HashFrame(state, agent::FnvRunAvx2); });
  Register("static_frame", StaticFrame);
  for (const ScreenStyle style : kAllScreenStyles)
    Register("keyframe/" + std::string(NameOf(style)), [=](auto& state) { Keyframe(state, style); });
  return true;
}();

}  // namespace
}  // namespace cvn::bench
