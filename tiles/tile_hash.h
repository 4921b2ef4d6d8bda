#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "tiles/tile_grid.h"

namespace cvn::agent {

/// Content hashes of `hashes.size()` neighbouring tiles of one grid row, beginning with tile `firstIndex`.
///
/// A full-width tile is hashed as one block by XXH64, any other by FNV-1a over its rows; the two are
/// deliberately not interchangeable, so a tile must always be hashed for the same grid. `frame` has the
/// grid's size, rows of width * 4 bytes. Allocates nothing; any thread.
void HashTiles(const TileGrid& grid, std::span<const uint8_t> frame, int firstIndex,
               std::span<uint64_t> hashes);

/// Equally wide tiles side by side: `firstByte` is the top left one's first, each line of a tile has
/// `tileLineBytes`, and the next line of the same tile follows after `strideBytes`.
struct TileRun {
  const uint8_t* firstByte = nullptr;
  size_t strideBytes = 0;
  size_t tileLineBytes = 0;
  int lines = 0;
};

/// Continues one FNV-1a value for each tile of the run. Every variant gives the same values; lines are
/// outermost in all of them, so that memory is read once and in order.
using FnvRunFunction = void (*)(const TileRun& run, std::span<uint64_t> hashes);

/// Runs anywhere: four tiles at a time, since one value alone leaves the multiplier waiting for itself.
void FnvRunBaseline(const TileRun& run, std::span<uint64_t> hashes);

/// Sixteen tiles at a time; only where `CpuHasAvx2()`.
void FnvRunAvx2(const TileRun& run, std::span<uint64_t> hashes);

bool CpuHasAvx2();

}  // namespace cvn::agent
