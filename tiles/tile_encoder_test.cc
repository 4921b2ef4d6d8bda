#include "tiles/tile_encoder.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

#include "testing/tile_encoder_fixture.h"
#include "tiles/exact_coding.h"

namespace cvn::agent {
namespace {

TEST_F(TileEncoderTest, FirstFrameHasEveryTileAndTheSameAgainHasNone) {
  TileScreen screen(97, 70);
  screen.Photograph(2);
  TileEncoder encoder(97, 70, nullptr, SmallTiles());
  const EncodedFrame first = encoder.Encode(screen.Bytes());
  EXPECT_TRUE(first.keyframe);
  EXPECT_FALSE(first.coarse);
  EXPECT_FALSE(first.losslessRefine);
  EXPECT_EQ(Indices(first), FirstTiles(20));
  EXPECT_EQ(first.encodedTiles, 20);
  EXPECT_EQ(first.totalTiles, 20);
  EXPECT_EQ(first.losslessTiles, 20);
  int64_t payloadBytes = 0;
  for (const EncodedTile& tile : first.tiles) payloadBytes += static_cast<int64_t>(tile.payload.size());
  EXPECT_EQ(first.payloadBytes, payloadBytes);

  const EncodedFrame second = encoder.Encode(screen.Bytes());
  EXPECT_FALSE(second.keyframe);
  EXPECT_TRUE(second.tiles.empty());
  EXPECT_EQ(second.payloadBytes, 0);
  EXPECT_EQ(second.totalTiles, 20);
}

TEST_F(TileEncoderTest, TilesCarryTheirPlaceAndTheirPixels) {
  TileScreen screen(97, 70);
  auto encoder = Started(screen);
  screen.Draw(19, 9);  // The last: 17 x 10 pixels at 80, 60.
  const EncodedFrame frame = encoder->Encode(screen.Bytes());
  ASSERT_EQ(frame.tiles.size(), 1u);
  const EncodedTile& tile = frame.tiles[0];
  EXPECT_EQ(tile.index, 19u);
  EXPECT_EQ(tile.column, 4u);
  EXPECT_EQ(tile.row, 3u);
  EXPECT_EQ(tile.x, 80u);
  EXPECT_EQ(tile.y, 60u);
  EXPECT_EQ(tile.width, 17u);
  EXPECT_EQ(tile.height, 10u);
  EXPECT_EQ(tile.coding, TileCoding::kPalette);
  const std::vector<uint8_t> pixels = screen.TileBytes(19);
  ExactCoder exact;
  exact.CountColors({pixels.data(), 17, 10, 68}, false);
  EXPECT_EQ(tile.payload, exact.EncodePalette());
}

TEST_F(TileEncoderTest, ForgettingTheReferenceMakesAKeyframe) {
  TileScreen screen = TileScreen::OfTiles(3, 3);
  auto encoder = Started(screen);
  const std::vector<PixelRect> nothing;
  for (const bool hinted : {false, true}) {
    encoder->ForgetReference();
    const EncodedFrame frame =
        hinted ? encoder->Encode(screen.Bytes(), nothing) : encoder->Encode(screen.Bytes());
    EXPECT_TRUE(frame.keyframe) << hinted;
    EXPECT_FALSE(frame.coarse) << hinted;
    EXPECT_EQ(Indices(frame), FirstTiles(9)) << hinted;
    EXPECT_TRUE(encoder->Encode(screen.Bytes()).tiles.empty()) << hinted;
  }
}

TEST_F(TileEncoderTest, ExactTextsOfExceptions) {
  const auto sizesText = [](int width, int height, int tileSize) -> std::string {
    try {
      TileEncoderSettings settings;
      settings.tileSize = tileSize;
      TileEncoder(width, height, nullptr, settings);
    } catch (const std::out_of_range& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(sizesText(0, 10, 64), "frame size");
  EXPECT_EQ(sizesText(10, 10, 0), "tile size");

  TileEncoder encoder(10, 10, nullptr, {});
  try {
    encoder.Encode(std::vector<uint8_t>(399));
    ADD_FAILURE() << "too short a frame was accepted";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "frame smaller than the configured grid");
  }
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

TEST_F(TileEncoderTest, StripsAreHashedAndSentWhole) {
  const struct {
    int strips;
    int tileHeight;
    int lastHeight;
  } rows[] = {{3, 360, 360}, {7, 155, 150}};
  for (const auto& row : rows) {
    TileEncoderSettings settings;
    settings.strips = row.strips;
    TileEncoder encoder(1920, 1080, nullptr, settings);
    EXPECT_EQ(encoder.TileHeight(), row.tileHeight);
    std::vector<uint8_t> frame(1920 * 1080 * 4);
    const EncodedFrame first = encoder.Encode(frame);
    ASSERT_EQ(first.tiles.size(), static_cast<size_t>(row.strips));
    EXPECT_EQ(first.tiles.back().width, 1920u);
    EXPECT_EQ(first.tiles.back().height, static_cast<uint32_t>(row.lastHeight));
    frame.back() = 1;
    EXPECT_EQ(Indices(encoder.Encode(frame)), std::vector<int>{row.strips - 1});
  }
}

TEST_F(TileEncoderTest, QualityIsClamped) {
  const struct {
    int tileQ;
    int used;
  } rows[] = {{-7, 1}, {0, 1}, {1, 1}, {55, 55}, {100, 100}, {150, 100}};
  for (const auto& row : rows) {
    TileScreen screen = TileScreen::OfTiles(2, 1);
    auto encoder = Started(screen);
    encoder->SetQuality(row.tileQ, 256, 3);
    screen.Photograph(0);
    encoder->Encode(screen.Bytes());
    EXPECT_EQ(codec.lastQuality, row.used) << row.tileQ;

    TileEncoderSettings settings = SmallTiles();
    settings.tileQ = row.tileQ;
    Started(screen, settings);
    EXPECT_EQ(codec.lastQuality, row.used) << row.tileQ << " from the start";
  }
}

TEST_F(TileEncoderTest, PaletteColorsAreClamped) {
  const struct {
    int paletteColors;
    int colors;
    bool grayscale;
    TileCoding coding;
  } rows[] = {
      {-1, 1, false, TileCoding::kPalette},     {0, 2, false, TileCoding::kWebp},
      {1, 2, false, TileCoding::kWebp},         {8, 8, false, TileCoding::kPalette},
      {8, 9, false, TileCoding::kWebp},         {1000, 257, false, TileCoding::kWebp},
      {1000, 256, false, TileCoding::kPalette}, {256, 32, true, TileCoding::kPalette},
      {256, 33, true, TileCoding::kWebp},       {16, 17, true, TileCoding::kWebp},
  };
  for (const auto& row : rows) {
    const std::string what =
        std::to_string(row.paletteColors) + " allowed, " + std::to_string(row.colors) + " present";
    TileScreen screen = TileScreen::OfTiles(2, 1);
    auto encoder = Started(screen);
    encoder->SetQuality(90, row.paletteColors, 0);
    encoder->SetGrayscale(row.grayscale);
    screen.Draw(1, row.colors);
    EXPECT_EQ(encoder->Encode(screen.Bytes()).tiles.at(0).coding, row.coding) << what;

    TileEncoderSettings settings = SmallTiles();
    settings.paletteColors = row.paletteColors;
    settings.losslessBudget = -4;
    TileEncoder fresh(2 * kTile, kTile, &codec, settings);
    fresh.SetAllowWebp(true);
    fresh.SetGrayscale(row.grayscale);
    EXPECT_EQ(fresh.Encode(screen.Bytes()).tiles.at(1).coding, row.coding) << what << ", from the start";
  }
}

TEST_F(TileEncoderTest, LosslessBudgetIsClampedAndKeptWhenNegative) {
  const struct {
    const char* what;
    int before;
    int then;
    TileCoding drawing;
  } rows[] = {
      {"a budget that is enough", 0, 9, TileCoding::kPalette},
      {"none", 9, 0, TileCoding::kWebp},
      {"negative keeps 9", 9, -1, TileCoding::kPalette},
      {"negative keeps 0", 0, -1, TileCoding::kWebp},
  };
  for (const auto& row : rows) {
    TileScreen screen = TileScreen::OfTiles(2, 1);
    auto encoder = Started(screen);
    encoder->SetQuality(90, 4, row.before);
    encoder->SetQuality(90, 4, row.then);
    screen.Draw(0, 20);
    EXPECT_EQ(encoder->Encode(screen.Bytes()).tiles.at(0).coding, row.drawing) << row.what;
  }
  // Noise costs a little over 32 bits a pixel: 33 would let it in.
  TileScreen screen = TileScreen::OfTiles(2, 1);
  auto encoder = Started(screen);
  encoder->SetQuality(90, 1, 1000);
  screen.Photograph(0);
  EXPECT_EQ(encoder->Encode(screen.Bytes()).tiles.at(0).coding, TileCoding::kWebp);
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
