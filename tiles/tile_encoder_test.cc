#include "tiles/tile_encoder.h"

#include <gtest/gtest.h>

#include <new>

#include "testing/thrown_text.h"
#include "testing/tile_encoder_fixture.h"
#include "tiles/exact_coding.h"

namespace cvn::agent {
namespace {

TEST_F(TileEncoderTest, FirstFrameHasEveryTileAndLaterOnesWhatChanged) {
  TileScreen screen(97, 70);
  screen.Photograph(2);
  TileEncoder encoder(97, 70, nullptr, SmallTiles());
  const EncodedFrame first = encoder.Encode(screen.Bytes());
  EXPECT_TRUE(first.keyframe);
  EXPECT_EQ(Indices(first), FirstTiles(20));
  EXPECT_EQ(first.encodedTiles, 20);
  EXPECT_EQ(first.losslessTiles, 20);
  int64_t payloadBytes = 0;
  for (const EncodedTile& tile : first.tiles) payloadBytes += static_cast<int64_t>(tile.payload.size());
  EXPECT_EQ(first.payloadBytes, payloadBytes);

  screen.Draw(19, 9);  // The last: 17 x 10 pixels at 80, 60.
  const EncodedFrame second = encoder.Encode(screen.Bytes());
  EXPECT_FALSE(second.keyframe || second.coarse || second.losslessRefine);
  EXPECT_EQ(second.totalTiles, 20);
  ASSERT_EQ(second.tiles.size(), 1u);
  const EncodedTile& tile = second.tiles[0];
  EXPECT_EQ(
      (std::vector<uint32_t>{tile.index, tile.column, tile.row, tile.x, tile.y, tile.width, tile.height}),
      (std::vector<uint32_t>{19, 4, 3, 80, 60, 17, 10}));
  EXPECT_EQ(tile.coding, TileCoding::kPalette);
  const std::vector<uint8_t> pixels = screen.TileBytes(19);
  ExactCoder exact;
  exact.CountColors({pixels.data(), 17, 10, 68}, false);
  EXPECT_EQ(tile.payload, exact.EncodePalette());
  EXPECT_TRUE(encoder.Encode(screen.Bytes()).tiles.empty());
}

TEST_F(TileEncoderTest, ForgettingTheReferenceMakesAKeyframe) {
  TileScreen screen = TileScreen::OfTiles(3, 3);
  auto encoder = Started(screen);
  encoder->ForgetReference();
  const EncodedFrame frame = encoder->Encode(screen.Bytes(), std::span<const PixelRect>());
  EXPECT_TRUE(frame.keyframe) << "whatever is said to have changed";
  EXPECT_EQ(Indices(frame), FirstTiles(9));
  EXPECT_TRUE(encoder->Encode(screen.Bytes()).tiles.empty());
}

TEST_F(TileEncoderTest, RefusesTooShortAFrame) {
  TileEncoder encoder(10, 10, nullptr, {});
  EXPECT_EQ(ThrownText<std::invalid_argument>([&] { encoder.Encode(std::vector<uint8_t>(399)); }),
            "frame smaller than the configured grid");
  EXPECT_TRUE(encoder.Encode(std::vector<uint8_t>(400)).keyframe);
}

TEST_F(TileEncoderTest, FrameThatFailedIsMadeUpForByAKeyframe) {
  TileScreen screen = TileScreen::OfTiles(3, 3);
  auto encoder = Started(screen);
  screen.Flatten(1, 200);
  screen.Photograph(5);
  codec.onEncode = [] { throw std::bad_alloc(); };
  EXPECT_THROW(encoder->Encode(screen.Bytes()), std::bad_alloc);
  codec.onEncode = [] {};
  const EncodedFrame frame = encoder->Encode(screen.Bytes());
  EXPECT_TRUE(frame.keyframe);
  EXPECT_EQ(frame.tiles.size(), 9u);
}

TEST_F(TileEncoderTest, StripsAreSentWhole) {
  TileEncoderSettings settings;
  settings.strips = 7;
  TileEncoder encoder(1920, 1080, nullptr, settings);
  std::vector<uint8_t> frame(1920 * 1080 * 4);
  EXPECT_EQ(encoder.Encode(frame).tiles.size(), 7u);
  frame.back() = 1;
  EXPECT_EQ(Indices(encoder.Encode(frame)), std::vector<int>{6});
}

TEST_F(TileEncoderTest, QualityIsClamped) {
  for (const auto& [tileQ, used] : {std::pair{-7, 1}, {0, 1}, {1, 1}, {55, 55}, {100, 100}, {150, 100}}) {
    TileScreen screen = TileScreen::OfTiles(2, 1);
    screen.Photograph(0);
    TileEncoderSettings settings = SmallTiles();
    settings.tileQ = tileQ;
    auto encoder = Started(screen, settings);
    EXPECT_EQ(codec.lastQuality, used) << tileQ << " from the start";
    encoder->SetQuality(50, 256, 3);
    encoder->SetQuality(tileQ, 256, 3);
    screen.Photograph(0);
    encoder->Encode(screen.Bytes());
    EXPECT_EQ(codec.lastQuality, used) << tileQ;
  }
}

TEST_F(TileEncoderTest, PaletteColorsAreClamped) {
  const struct {
    int allowed, colors;
    bool grayscale;
    TileCoding coding;
  } rows[] = {
      {-1, 1, false, TileCoding::kPalette},  {0, 2, false, TileCoding::kWebp},
      {8, 8, false, TileCoding::kPalette},   {8, 9, false, TileCoding::kWebp},
      {1000, 257, false, TileCoding::kWebp}, {1000, 256, false, TileCoding::kPalette},
      {256, 32, true, TileCoding::kPalette}, {256, 33, true, TileCoding::kWebp},
      {16, 17, true, TileCoding::kWebp},
  };
  for (const auto& row : rows) {
    TileScreen screen = TileScreen::OfTiles(2, 1);
    screen.Draw(1, row.colors);
    TileEncoderSettings settings = SmallTiles();
    settings.paletteColors = row.allowed;
    settings.losslessBudget = -4;
    TileEncoder encoder(2 * kTile, kTile, &codec, settings);
    encoder.SetAllowWebp(true);
    encoder.SetGrayscale(row.grayscale);
    EXPECT_EQ(encoder.Encode(screen.Bytes()).tiles.at(1).coding, row.coding)
        << row.allowed << " allowed, " << row.colors << " present, from the start";
    encoder.SetQuality(90, 100, 0);
    encoder.SetQuality(90, row.allowed, 0);
    encoder.ForgetReference();
    EXPECT_EQ(encoder.Encode(screen.Bytes()).tiles.at(1).coding, row.coding)
        << row.allowed << " allowed, " << row.colors << " present";
  }
}

TEST_F(TileEncoderTest, LosslessBudgetIsClampedAndKeptWhenNegative) {
  const struct {
    const char* what;
    int before, then;
    bool photograph;
    TileCoding coding;
  } rows[] = {
      {"a budget that is enough", 0, 9, false, TileCoding::kPalette},
      {"none", 9, 0, false, TileCoding::kWebp},
      {"negative keeps 9", 9, -1, false, TileCoding::kPalette},
      {"negative keeps 0", 0, -1, false, TileCoding::kWebp},
      {"noise costs a little over 32 bits a pixel: 33 would let it in", 0, 1000, true, TileCoding::kWebp},
  };
  for (const auto& row : rows) {
    TileScreen screen = TileScreen::OfTiles(2, 1);
    auto encoder = Started(screen);
    encoder->SetQuality(90, 4, row.before);
    encoder->SetQuality(90, 4, row.then);
    screen.Draw(0, 20);
    if (row.photograph) screen.Photograph(0);
    EXPECT_EQ(encoder->Encode(screen.Bytes()).tiles.at(0).coding, row.coding) << row.what;
  }
}

TEST_F(TileEncoderTest, HoldBelongsToItsTile) {
  TileScreen screen = TileScreen::OfTiles(3, 3);
  TileEncoderSettings settings = SmallTiles();
  settings.paletteColors = 4;
  settings.photoHoldFrames = 1;
  settings.losslessBudget = 9;
  auto encoder = Started(screen, settings);
  encoder->SetAllowWebp(false);
  screen.Photograph(1);
  EXPECT_EQ(encoder->Encode(screen.Bytes()).losslessTiles, 0);
  screen.Draw(1, 20);
  screen.Draw(2, 20);
  EXPECT_EQ(encoder->Encode(screen.Bytes()).losslessTiles, 1) << "tile 2 was never held";
  screen.Draw(1, 21);
  screen.Draw(2, 21);
  EXPECT_EQ(encoder->Encode(screen.Bytes()).losslessTiles, 2) << "tile 1 was held once";
}

}  // namespace
}  // namespace cvn::agent
