#include "tiles/tile_hash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "base/hash.h"

namespace cvn::agent {
namespace {

std::vector<uint8_t> Noise(size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(count);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

// The definition, without anything clever.
uint64_t PlainHash(const TileGrid& grid, const std::vector<uint8_t>& frame, int index) {
  const TileRect tile = grid.Rect(index);
  std::vector<uint8_t> bytes;
  for (int y = tile.y; y < tile.y + tile.height; ++y) {
    const auto row = frame.begin() + (int64_t{y} * grid.Width() + tile.x) * 4;
    bytes.insert(bytes.end(), row, row + tile.width * 4);
  }
  if (tile.width == grid.Width()) return Xxh64(bytes);
  uint64_t hash = 0xcbf29ce484222325;
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001b3;
  return hash;
}

TEST(TileHash, EqualsThePlainLoopForEveryShape) {
  const struct {
    const char* what;
    int width, height, tileSize, strips;
  } rows[] = {
      {"full HD's columns, one row and a bit", 1920, 70, 64, 0},
      {"narrow last column", 1366, 65, 64, 0},
      {"one pixel in the last column", 321, 3, 64, 0},
      {"just as wide as two tiles", 128, 64, 64, 0},
      {"one tile, which is full-width", 64, 100, 64, 0},
      {"narrower than a tile", 37, 100, 64, 0},
      {"tiles of odd size", 1000, 40, 13, 0},
      {"tiles of one pixel", 37, 5, 1, 0},
      {"lines of more than one segment", 3000, 9, 100, 0},
      {"a segment and its half", 2000, 5, 96, 0},
      {"strips", 200, 100, 64, 3},
      {"strips of one line", 7, 3, 64, 7},
  };
  for (const auto& row : rows) {
    const TileGrid grid(row.width, row.height, row.tileSize, row.strips);
    auto frame = Noise(static_cast<size_t>(row.width) * static_cast<size_t>(row.height) * 4, 1);
    std::fill_n(frame.begin(), frame.size() / 4, uint8_t{0xff});
    std::vector<uint64_t> hashes(static_cast<size_t>(grid.Columns()));
    for (int gridRow = 0; gridRow < grid.Rows(); ++gridRow) {
      HashTiles(grid, frame, gridRow * grid.Columns(), hashes);
      for (int column = 0; column < grid.Columns(); ++column) {
        ASSERT_EQ(hashes[static_cast<size_t>(column)],
                  PlainHash(grid, frame, gridRow * grid.Columns() + column))
            << row.what << ", row " << gridRow << ", column " << column;
      }
    }
  }
}

TEST(TileHash, OfAnyPartOfARowIsTheSame) {
  const TileGrid grid(900, 64, 32, 0);
  const auto frame = Noise(900 * 64 * 4, 2);
  std::vector<uint64_t> whole(static_cast<size_t>(grid.Columns()));
  HashTiles(grid, frame, grid.Columns(), whole);
  for (size_t first = 0; first < whole.size(); first += 3) {
    for (size_t count = 1; first + count <= whole.size(); ++count) {
      std::vector<uint64_t> part(count);
      HashTiles(grid, frame, grid.Columns() + static_cast<int>(first), part);
      ASSERT_TRUE(std::equal(part.begin(), part.end(), whole.begin() + static_cast<ptrdiff_t>(first)))
          << first << " " << count;
    }
  }
}

}  // namespace
}  // namespace cvn::agent
