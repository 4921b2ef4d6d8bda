// Photographic coding of 64x64 tiles. Counters: `us` microseconds to encode a tile, `us_decode` to decode it,
// `bytes` of its payload, `psnr` of all tiles in decibels; `us_defaults` and `bytes_defaults` are those of
// libjpeg-turbo as it comes (a new handle a tile, 4:2:0, two pairs of Huffman tables), in the same run.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>

#include <jpeglib.h>

#include "bench/rivals.h"
#include "bench/screen_content.h"
#include "tiles/linux/turbo_image_codec.h"

namespace cvn::bench {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kSide = 64;

enum class Format { kJpeg, kWebp };

std::vector<Bytes> PackedTiles(ScreenStyle style) {
  std::vector<Bytes> tiles;
  const Screen screen = MakeScreen(style, 640, 512);
  for (const agent::PixelView& tile : TilesOf(screen, kSide)) {
    Bytes& packed = tiles.emplace_back();
    for (int y = 0; y < kSide; ++y) packed.insert(packed.end(), tile.Row(y), tile.Row(y) + tile.RowBytes());
  }
  return tiles;
}

Bytes EncodeByDefaults(const Bytes& tile, int quality) {
  jpeg_error_mgr errors;
  jpeg_compress_struct handle{};
  handle.err = jpeg_std_error(&errors);
  jpeg_create_compress(&handle);
  unsigned char* file = nullptr;
  unsigned long count = 0;
  jpeg_mem_dest(&handle, &file, &count);
  handle.image_width = handle.image_height = kSide;
  handle.input_components = 4;
  handle.in_color_space = JCS_EXT_BGRX;
  jpeg_set_defaults(&handle);
  jpeg_set_quality(&handle, quality, TRUE);
  jpeg_start_compress(&handle, TRUE);
  while (handle.next_scanline < kSide) {
    JSAMPROW row = const_cast<JSAMPROW>(&tile[size_t{handle.next_scanline} * kSide * 4]);
    jpeg_write_scanlines(&handle, &row, 1);
  }
  jpeg_finish_compress(&handle);
  jpeg_destroy_compress(&handle);
  Bytes result(file, file + count);
  std::free(file);
  return result;
}

Bytes Encode(TileImageCodec& codec, Format format, const Bytes& tile, int quality) {
  if (format == Format::kJpeg) return codec.EncodeJpeg(tile, kSide, kSide, quality);
  return codec.EncodeWebp(tile, kSide, kSide, quality).value_or(Bytes());
}

Bytes Decoded(TileImageCodec& codec, const Bytes& payload) {
  Bytes pixels;
  if (!codec.Decode(payload, kSide, kSide, pixels)) throw std::runtime_error("a payload does not decode");
  return pixels;
}

double SquaredError(const Bytes& one, const Bytes& other) {
  double sum = 0;
  for (size_t i = 0; i < one.size(); ++i)
    if (i % 4 != 3) sum += std::pow(one[i] - other[i], 2);
  return sum;
}

void CodeTiles(benchmark::State& state, ScreenStyle style, Format format, int quality) {
  const auto codec = agent::CreateTurboImageCodec();
  const std::vector<Bytes> tiles = PackedTiles(style);
  const auto count = static_cast<double>(tiles.size());
  std::vector<Bytes> payloads;
  double bytes = 0;
  double defaultBytes = 0;
  double error = 0;
  for (const Bytes& tile : tiles) {
    payloads.push_back(Encode(*codec, format, tile, quality));
    bytes += static_cast<double>(payloads.back().size());
    defaultBytes += static_cast<double>(EncodeByDefaults(tile, quality).size());
    error += SquaredError(tile, Decoded(*codec, payloads.back()));
  }
  Bytes pixels;
  Rivals rivals(
      {{"encode", [&](size_t i) { benchmark::DoNotOptimize(Encode(*codec, format, tiles[i], quality)); }},
       {"decode", [&](size_t i) { codec->Decode(payloads[i], kSide, kSide, pixels); }},
       {"defaults", [&](size_t i) { benchmark::DoNotOptimize(EncodeByDefaults(tiles[i], quality)); }}},
      tiles.size());
  for (auto unused : state) rivals.Run();
  state.counters["us"] = rivals.MicrosecondsPerInput(0);
  state.counters["us_decode"] = rivals.MicrosecondsPerInput(1);
  state.counters["us_defaults"] = rivals.MicrosecondsPerInput(2);
  state.counters["bytes"] = bytes / count;
  state.counters["bytes_defaults"] = defaultBytes / count;
  state.counters["psnr"] = 10 * std::log10(255.0 * 255.0 * kSide * kSide * 3 * count / error);
}

const bool kRegistered = [] {
  for (const ScreenStyle style : {ScreenStyle::kPhotograph, ScreenStyle::kDocument}) {
    for (const Format format : {Format::kJpeg, Format::kWebp}) {
      for (const int quality : {30, 80, 90}) {
        const std::string name = std::string(format == Format::kJpeg ? "jpeg" : "webp") + "/q" +
                                 std::to_string(quality) + "/" + std::string(NameOf(style));
        benchmark::RegisterBenchmark(name.c_str(),
                                     [=](auto& state) { CodeTiles(state, style, format, quality); })
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.2);
      }
    }
  }
  return true;
}();

}  // namespace
}  // namespace cvn::bench
