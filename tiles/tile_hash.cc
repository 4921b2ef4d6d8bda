#include "tiles/tile_hash.h"

#include <algorithm>

#include "base/hash.h"

namespace cvn::agent {
namespace {

constexpr size_t kChains = 4;

uint64_t Continue(uint64_t hash, uint8_t byte) {
  return (hash ^ byte) * kFnv1aPrime;
}

void FnvFourLines(const uint8_t* firstLine, size_t lineBytes, uint64_t* hashes) {
  const uint8_t* const second = firstLine + lineBytes;
  const uint8_t* const third = second + lineBytes;
  const uint8_t* const fourth = third + lineBytes;
  uint64_t hash0 = hashes[0];
  uint64_t hash1 = hashes[1];
  uint64_t hash2 = hashes[2];
  uint64_t hash3 = hashes[3];
  for (size_t i = 0; i < lineBytes; ++i) {
    hash0 = Continue(hash0, firstLine[i]);
    hash1 = Continue(hash1, second[i]);
    hash2 = Continue(hash2, third[i]);
    hash3 = Continue(hash3, fourth[i]);
  }
  hashes[0] = hash0;
  hashes[1] = hash1;
  hashes[2] = hash2;
  hashes[3] = hash3;
}

FnvRunFunction FastestFnvRun() {
  return CpuHasAvx2() ? FnvRunAvx2 : FnvRunBaseline;
}

void FnvRun(const TileRun& run, std::span<uint64_t> hashes) {
  static const FnvRunFunction fastest = FastestFnvRun();
  std::fill(hashes.begin(), hashes.end(), kFnv1aOffsetBasis);
  fastest(run, hashes);
}

}  // namespace

bool CpuHasAvx2() {
  return __builtin_cpu_supports("avx2") != 0;
}

void FnvRunBaseline(const TileRun& run, std::span<uint64_t> hashes) {
  const size_t lineBytes = run.tileLineBytes;
  for (int line = 0; line < run.lines; ++line) {
    const uint8_t* next = run.firstByte + static_cast<size_t>(line) * run.strideBytes;
    size_t tile = 0;
    for (; tile + kChains <= hashes.size(); tile += kChains, next += kChains * lineBytes)
      FnvFourLines(next, lineBytes, &hashes[tile]);
    for (; tile < hashes.size(); ++tile, next += lineBytes)
      hashes[tile] = Fnv1a64({next, lineBytes}, hashes[tile]);
  }
}

void HashTiles(const TileGrid& grid, std::span<const uint8_t> frame, int firstIndex,
               std::span<uint64_t> hashes) {
  const TileRect first = grid.Rect(firstIndex);
  const size_t strideBytes = static_cast<size_t>(grid.Width()) * 4;
  const uint8_t* const firstByte =
      frame.data() + static_cast<size_t>(first.y) * strideBytes + static_cast<size_t>(first.x) * 4;
  if (grid.Columns() == 1) {
    hashes[0] = Xxh64({firstByte, static_cast<size_t>(first.height) * strideBytes});
    return;
  }
  // A last column that is narrower than the others is a run of its own.
  const int wideColumns = grid.Width() / grid.TileWidth();
  const size_t inner =
      std::min(hashes.size(), static_cast<size_t>(wideColumns - firstIndex % grid.Columns()));
  TileRun run{firstByte, strideBytes, static_cast<size_t>(grid.TileWidth()) * 4, first.height};
  FnvRun(run, hashes.first(inner));
  if (inner == hashes.size()) return;
  run.firstByte += inner * run.tileLineBytes;
  run.tileLineBytes = static_cast<size_t>(grid.Rect(firstIndex + static_cast<int>(inner)).width) * 4;
  FnvRun(run, hashes.subspan(inner));
}

}  // namespace cvn::agent
