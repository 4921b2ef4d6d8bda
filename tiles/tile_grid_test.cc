#include "tiles/tile_grid.h"

#include <gtest/gtest.h>

#include <vector>

#include "testing/thrown_text.h"

namespace cvn::agent {
namespace {

TEST(TileGrid, CutsWithoutPadding) {
  const struct {
    const char* what;
    int width, height, tileSize, strips;
    int columns, rows, tileHeight;
    TileRect last;
  } rows[] = {
      {"edge tiles are smaller", 100, 70, 64, 0, 2, 2, 64, {64, 64, 36, 6}},
      {"exact fit", 128, 64, 64, 0, 2, 1, 64, {64, 0, 64, 64}},
      {"one pixel more", 129, 65, 64, 0, 3, 2, 64, {128, 64, 1, 1}},
      {"three strips", 1920, 1080, 64, 3, 1, 3, 360, {0, 720, 1920, 360}},
      {"seven strips, the last one lower", 1920, 1080, 64, 7, 1, 7, 155, {0, 930, 1920, 150}},
      {"more strips than lines", 10, 3, 64, 7, 1, 3, 1, {0, 2, 10, 1}},
      {"strips need no tile size", 10, 10, 0, 2, 1, 2, 5, {0, 5, 10, 5}},
      {"negative strips mean squares", 100, 70, 64, -1, 2, 2, 64, {64, 64, 36, 6}},
      {"a tile as large as numbers go", 100, 70, 0x7fffffff, 0, 1, 1, 0x7fffffff, {0, 0, 100, 70}},
  };
  for (const auto& row : rows) {
    const TileGrid grid(row.width, row.height, row.tileSize, row.strips);
    EXPECT_EQ(grid.Columns(), row.columns) << row.what;
    EXPECT_EQ(grid.Rows(), row.rows) << row.what;
    EXPECT_EQ(grid.TileHeight(), row.tileHeight) << row.what;
    EXPECT_EQ(grid.Rect(grid.TileCount() - 1), row.last) << row.what;
  }
}

TEST(TileGrid, CoversEveryPixelOnce) {
  const TileGrid grid(101, 67, 13, 0);
  std::vector<int> hits(size_t{101} * 67);
  for (int index = 0; index < grid.TileCount(); ++index) {
    const TileRect tile = grid.Rect(index);
    for (int y = tile.y; y < tile.y + tile.height; ++y)
      for (int x = tile.x; x < tile.x + tile.width; ++x)
        ++hits[static_cast<size_t>(y) * 101 + static_cast<size_t>(x)];
  }
  EXPECT_EQ(hits, std::vector<int>(hits.size(), 1));
}

TEST(TileGrid, RefusesWhatCannotBe) {
  const struct {
    int width, height, tileSize, strips;
    const char* text;
  } rows[] = {
      {0, 10, 64, 0, "frame size"}, {10, -1, 64, 3, "frame size"}, {10, 10, 0, 0, "tile size"},
      {0, 0, 0, 0, "frame size"},   {10, 10, -64, 0, "tile size"}, {70000, 70000, 1, 0, "frame size"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(ThrownText([&] { TileGrid(row.width, row.height, row.tileSize, row.strips); }), row.text);

  const TileGrid grid(100, 70, 64, 0);
  for (const int index : {-1, 4}) EXPECT_EQ(ThrownText([&] { grid.Rect(index); }), "tile index") << index;
}

}  // namespace
}  // namespace cvn::agent
