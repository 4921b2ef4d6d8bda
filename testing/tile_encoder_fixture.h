#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "testing/fake_image_codec.h"
#include "tiles/tile_encoder.h"
#include "tiles/tile_grid.h"

namespace cvn::agent {

// 400 pixels: enough for more colours than a palette holds.
inline constexpr int kTile = 20;

/// A picture made of tiles, changed tile by tile.
class TileScreen {
 public:
  TileScreen(int width, int height)
      : grid_(width, height, kTile, 0), bytes_(static_cast<size_t>(width * height) * 4) {
    for (int index = 0; index < grid_.TileCount(); ++index) Flatten(index, static_cast<uint8_t>(index));
  }

  /// `columns` x `rows` whole tiles.
  static TileScreen OfTiles(int columns, int rows) { return TileScreen(columns * kTile, rows * kTile); }

  const std::vector<uint8_t>& Bytes() const { return bytes_; }
  const TileGrid& Grid() const { return grid_; }

  /// One colour.
  void Flatten(int index, uint8_t value) {
    ForEachByte(index, [&](uint8_t& byte) { byte = value; });
  }
  /// Beyond every palette, and no exact form of it fits any budget.
  void Photograph(int index) {
    ForEachByte(index, [&](uint8_t& byte) { byte = static_cast<uint8_t>(random_()); });
  }
  /// So many colours; a few bits a pixel.
  void Draw(int index, int colors) {
    int i = 0;
    ForEachByte(index, [&](uint8_t& byte) {
      const int color = i / 4 % colors;
      byte = static_cast<uint8_t>(i % 4 == 1 ? color >> 8 : color);
      ++i;
    });
  }
  void SetPixel(int x, int y, uint8_t value) {
    bytes_[static_cast<size_t>(y * grid_.Width() + x) * 4] = value;
  }

  std::vector<uint8_t> TileBytes(int index) {
    std::vector<uint8_t> bytes;
    ForEachByte(index, [&](uint8_t& byte) { bytes.push_back(byte); });
    return bytes;
  }

 private:
  template <typename Action>
  void ForEachByte(int index, Action action) {
    const TileRect tile = grid_.Rect(index);
    for (int y = tile.y; y < tile.y + tile.height; ++y)
      for (int i = 0; i < tile.width * 4; ++i)
        action(bytes_[static_cast<size_t>(y * grid_.Width() + tile.x) * 4 + static_cast<size_t>(i)]);
  }

  TileGrid grid_;
  std::vector<uint8_t> bytes_;
  std::mt19937 random_{7};
};

inline TileEncoderSettings SmallTiles() {
  TileEncoderSettings settings;
  settings.tileSize = kTile;
  return settings;
}

inline std::vector<int> Indices(const EncodedFrame& frame) {
  std::vector<int> indices;
  for (const EncodedTile& tile : frame.tiles) indices.push_back(static_cast<int>(tile.index));
  return indices;
}

inline std::vector<int> FirstTiles(int count) {
  std::vector<int> indices(static_cast<size_t>(count));
  std::iota(indices.begin(), indices.end(), 0);
  return indices;
}

/// Encoders with small tiles and a codec that is a fake.
class TileEncoderTest : public testing::Test {
 protected:
  /// An encoder that has seen `screen`, on a slow line with a codec.
  std::unique_ptr<TileEncoder> Started(const TileScreen& screen,
                                       const TileEncoderSettings& settings = SmallTiles()) {
    auto encoder =
        std::make_unique<TileEncoder>(screen.Grid().Width(), screen.Grid().Height(), &codec, settings);
    encoder->SetAllowWebp(true);
    EXPECT_TRUE(encoder->Encode(screen.Bytes()).keyframe);
    return encoder;
  }

  FakeImageCodec codec;
};

}  // namespace cvn::agent
