// Coarse frames, their re-sends and refine passes: what is sent roughly first and exactly later.
#include <gtest/gtest.h>

#include <array>

#include "testing/tile_encoder_fixture.h"
#include "tiles/tile_coder.h"

namespace cvn::agent {
namespace {

TEST_F(TileEncoderTest, CoarseFrameNeedsEnoughOfTheScreen) {
  const struct {
    const char* what;
    int columns, rows, changed;
    double fraction;
    int minTiles;
    bool coarse;
  } rows[] = {
      {"half of 16", 4, 4, 8, 0.5, 6, true},
      {"one less", 4, 4, 7, 0.5, 6, false},
      {"4.5 is truncated to 4, the minimum is 6", 3, 3, 6, 0.5, 6, true},
      {"the minimum is 6", 3, 3, 5, 0.5, 6, false},
      {"4.5 is truncated to 4", 3, 3, 4, 0.5, 1, true},
      {"4 are not 3", 3, 3, 3, 0.5, 1, false},
  };
  for (const auto& row : rows) {
    TileScreen screen = TileScreen::OfTiles(row.columns, row.rows);
    TileEncoderSettings settings = SmallTiles();
    settings.coarseFraction = row.fraction;
    settings.coarseMinTiles = row.minTiles;
    auto encoder = Started(screen, settings);
    for (int i = 0; i < row.changed; ++i) screen.Draw(i, 7);
    EXPECT_EQ(encoder->Encode(screen.Bytes()).coarse, row.coarse) << row.what;
  }
}

TEST_F(TileEncoderTest, CoarseFrameNeedsPermissionCodecAndReference) {
  enum Obstacle { kNothing, kDisabled, kFastLine, kNoCodec, kNoReference, kResend };
  for (const Obstacle obstacle : {kNothing, kDisabled, kFastLine, kNoCodec, kNoReference, kResend}) {
    TileScreen screen = TileScreen::OfTiles(3, 3);
    TileEncoderSettings settings = SmallTiles();
    settings.coarseEnabled = obstacle != kDisabled;
    TileEncoder encoder(3 * kTile, 3 * kTile, obstacle == kNoCodec ? nullptr : &codec, settings);
    encoder.SetAllowWebp(obstacle != kFastLine);
    encoder.Encode(screen.Bytes());
    if (obstacle == kNoReference) encoder.ForgetReference();
    if (obstacle == kResend) encoder.RequestCoarseResend();
    for (int i = 0; i < 9; ++i) screen.Draw(i, 7);
    EXPECT_EQ(encoder.Encode(screen.Bytes()).coarse, obstacle == kNothing) << obstacle;
  }
}

TEST_F(TileEncoderTest, CoarseFrameIsRoughExceptForPaletteTiles) {
  for (const auto& [tileQ, coarseQuality, used] :
       {std::array{90, 30, 30}, std::array{20, 30, 20}, std::array{90, -5, 1}}) {
    TileScreen screen = TileScreen::OfTiles(3, 3);
    TileEncoderSettings settings = SmallTiles();
    settings.tileQ = tileQ;
    settings.coarseQuality = coarseQuality;
    settings.paletteColors = 8;
    settings.losslessBudget = 32;
    auto encoder = Started(screen, settings);
    for (int i = 0; i < 9; ++i) screen.Draw(i, i < 4 ? 8 : 9);
    const EncodedFrame frame = encoder->Encode(screen.Bytes());
    EXPECT_TRUE(frame.coarse);
    EXPECT_EQ(frame.losslessTiles, 4);
    for (const EncodedTile& tile : frame.tiles)
      EXPECT_EQ(tile.coding, tile.index < 4 ? TileCoding::kPalette : TileCoding::kWebp) << tile.index;
    EXPECT_EQ(codec.lastQuality, used);
  }
}

/// A 3 x 3 screen whose tiles 0 to 6 went out in a coarse frame.
class CoarseTilesTest : public TileEncoderTest {
 protected:
  CoarseTilesTest() : encoder(Started(screen)) {
    for (int i = 0; i < 7; ++i) screen.Photograph(i);
    EXPECT_TRUE(encoder->Encode(screen.Bytes()).coarse);
  }

  EncodedFrame Resend() {
    encoder->RequestCoarseResend();
    return encoder->Encode(screen.Bytes());
  }

  TileScreen screen = TileScreen::OfTiles(3, 3);
  std::unique_ptr<TileEncoder> encoder;
};

TEST_F(CoarseTilesTest, AreSentAgainOnceAtFullQuality) {
  const EncodedFrame again = Resend();
  EXPECT_EQ(Indices(again), FirstTiles(7));
  EXPECT_FALSE(again.coarse) << "however many they are";
  EXPECT_FALSE(again.keyframe);
  EXPECT_EQ(codec.lastQuality, 90);
  EXPECT_TRUE(encoder->Encode(screen.Bytes()).tiles.empty()) << "the request is one-shot";
  EXPECT_TRUE(Resend().tiles.empty()) << "and they are no longer coarse";
}

TEST_F(CoarseTilesTest, AreSentAgainWithWhatChangedUnlessSentMeanwhile) {
  screen.Flatten(2, 99);
  EXPECT_EQ(encoder->Encode(screen.Bytes()).tiles.size(), 1u);
  screen.Flatten(8, 123);
  EXPECT_EQ(Indices(Resend()), (std::vector<int>{0, 1, 3, 4, 5, 6, 8}));
}

TEST_F(CoarseTilesTest, AreThoseOfTheLastCoarseFrameOnlyAndForgottenByAKeyframe) {
  for (int i = 3; i < 9; ++i) screen.Photograph(i);
  EXPECT_TRUE(encoder->Encode(screen.Bytes()).coarse);
  EXPECT_EQ(Indices(Resend()), (std::vector<int>{3, 4, 5, 6, 7, 8}));

  for (int i = 0; i < 9; ++i) screen.Photograph(i);
  EXPECT_TRUE(encoder->Encode(screen.Bytes()).coarse);
  encoder->ForgetReference();
  EXPECT_TRUE(Resend().keyframe) << "the request is taken without effect";
  EXPECT_TRUE(Resend().tiles.empty());
}

/// A 3 x 3 screen that the viewer has entirely as JPEG.
class RefineTest : public TileEncoderTest {
 protected:
  static TileEncoderSettings Settings() {
    TileEncoderSettings settings = SmallTiles();
    settings.paletteColors = 4;
    settings.losslessBudget = 0;
    settings.refineBudget = 32;
    return settings;
  }

  RefineTest() {
    for (int i = 0; i < 9; ++i) screen.Draw(i, 20 + i);
    encoder = Started(screen, Settings());
  }

  EncodedFrame Refine() {
    encoder->RequestRefine();
    return encoder->Encode(screen.Bytes());
  }

  TileScreen screen = TileScreen::OfTiles(3, 3);
  std::unique_ptr<TileEncoder> encoder;
};

TEST_F(RefineTest, SendsAFewTilesExactlyEachTimeUntilNoneIsLeft) {
  screen.Flatten(3, 9);
  EXPECT_EQ(encoder->Encode(screen.Bytes()).losslessTiles, 1) << "exact meanwhile";
  for (const auto& expected : {std::vector<int>{0, 1}, {2, 4}, {5, 6}, {7, 8}, {}}) {
    const EncodedFrame frame = Refine();
    EXPECT_EQ(Indices(frame), expected);
    EXPECT_TRUE(frame.losslessRefine);
    EXPECT_EQ(frame.losslessTiles, static_cast<int>(expected.size()));
    for (const EncodedTile& tile : frame.tiles)
      EXPECT_EQ(tile.coding, TileCoding::kPalette) << "a palette may have 256 colours here";
  }
}

TEST_F(RefineTest, EndsAPassAtItsBytes) {
  encoder->RequestRefine(1);
  EXPECT_EQ(Indices(encoder->Encode(screen.Bytes())), std::vector<int>{0});
  EXPECT_EQ(Indices(Refine()), (std::vector<int>{1, 2})) << "the limit is one-shot";
}

TEST_F(RefineTest, WaitsForAScreenAtRest) {
  screen.Flatten(4, 1);
  const EncodedFrame changed = Refine();
  EXPECT_FALSE(changed.losslessRefine);
  EXPECT_EQ(Indices(changed), std::vector<int>{4});
  EXPECT_FALSE(encoder->Encode(screen.Bytes()).losslessRefine) << "the request is one-shot";

  encoder->ForgetReference();
  EXPECT_TRUE(Refine().keyframe);
  EXPECT_FALSE(encoder->Encode(screen.Bytes()).losslessRefine) << "taken by the keyframe without effect";

  encoder->RequestCoarseResend();
  EXPECT_FALSE(Refine().losslessRefine) << "a coarse re-send comes first";
}

TEST_F(RefineTest, PassesOverTilesThatAreTooLargeUntilTheyWereSentExactly) {
  screen.Photograph(1);  // 32 bits a pixel and the stream's own few bytes.
  encoder->Encode(screen.Bytes());
  EXPECT_EQ(Indices(Refine()), (std::vector<int>{0, 2}));
  screen.Draw(1, 30);
  encoder->Encode(screen.Bytes());
  EXPECT_EQ(Indices(Refine()), (std::vector<int>{3, 4})) << "still rejected, though it would fit now";
  screen.Flatten(1, 30);
  encoder->Encode(screen.Bytes());
  screen.Draw(1, 30);
  encoder->Encode(screen.Bytes());
  EXPECT_EQ(Indices(Refine()), (std::vector<int>{1, 5}));
}

// One bit for each of a tile's 400 pixels is 50 bytes: of all drawings, take one that costs whole bits.
TEST_F(RefineTest, BudgetIsInBitsPerPixel) {
  TileScreen one = TileScreen::OfTiles(2, 1);
  size_t exactBytes = 1;
  for (int colors = 5; exactBytes % 50 != 0; ++colors) {
    one.Draw(0, colors);
    const std::vector<uint8_t> pixels = one.TileBytes(0);
    exactBytes =
        TileCoder().CodeExactly({pixels.data(), kTile, kTile, size_t{kTile} * 4}, false).payload.size();
    ASSERT_LT(colors, 256);
  }
  TileEncoderSettings settings = Settings();
  for (const int spareBits : {0, -1}) {
    settings.refineBudget = static_cast<int>(exactBytes / 50) + spareBits;
    encoder = Started(one, settings);
    encoder->RequestRefine();
    EXPECT_EQ(encoder->Encode(one.Bytes()).tiles.size(), spareBits == 0 ? 1u : 0u) << spareBits;
  }
}

TEST_F(RefineTest, IgnoresTilesWhoseCodecFailed) {
  codec.jpegBytes = codec.webpBytes = 0;
  encoder = Started(screen, Settings());
  EXPECT_TRUE(Refine().tiles.empty());
}

}  // namespace
}  // namespace cvn::agent
