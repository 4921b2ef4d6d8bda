#include "tiles/tile_encoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <stdexcept>

#include "testing/fake_image_codec.h"
#include "tiles/exact_coding.h"
#include "tiles/tile_grid.h"

namespace cvn::agent {
namespace {

// 400 pixels: enough for more colours than a palette holds.
constexpr int kTile = 20;

/// A picture made of tiles, changed tile by tile.
class Screen {
 public:
  Screen(int width, int height)
      : grid_(width, height, kTile, 0), bytes_(static_cast<size_t>(width * height) * 4) {
    for (int index = 0; index < grid_.TileCount(); ++index) Flatten(index, static_cast<uint8_t>(index));
  }

  /// `columns` x `rows` whole tiles.
  static Screen OfTiles(int columns, int rows) { return Screen(columns * kTile, rows * kTile); }

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

TileEncoderSettings SmallTiles() {
  TileEncoderSettings settings;
  settings.tileSize = kTile;
  return settings;
}

std::vector<int> Indices(const EncodedFrame& frame) {
  std::vector<int> indices;
  for (const EncodedTile& tile : frame.tiles) indices.push_back(static_cast<int>(tile.index));
  return indices;
}

std::vector<int> FirstTiles(int count) {
  std::vector<int> indices;
  for (int i = 0; i < count; ++i) indices.push_back(i);
  return indices;
}

class TileEncoderTest : public testing::Test {
 protected:
  /// An encoder that has seen `screen`, on a slow line with a codec.
  std::unique_ptr<TileEncoder> Started(const Screen& screen,
                                       const TileEncoderSettings& settings = SmallTiles()) {
    auto encoder =
        std::make_unique<TileEncoder>(screen.Grid().Width(), screen.Grid().Height(), &codec, settings);
    encoder->SetAllowWebp(true);
    EXPECT_TRUE(encoder->Encode(screen.Bytes()).keyframe);
    return encoder;
  }

  FakeImageCodec codec;
};

TEST_F(TileEncoderTest, FirstFrameHasEveryTileAndTheSameAgainHasNone) {
  Screen screen(97, 70);
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
  Screen screen(97, 70);
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
  Screen screen = Screen::OfTiles(3, 3);
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
  Screen screen = Screen::OfTiles(3, 3);
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

// ---- Coarse frames

TEST_F(TileEncoderTest, CoarseFrameNeedsEnoughOfTheScreen) {
  const struct {
    const char* what;
    int columns, rows, changed;
    double fraction;
    int minTiles;
    bool coarse;
  } rows[] = {
      {"half of 100", 10, 10, 50, 0.5, 6, true},
      {"one less", 10, 10, 49, 0.5, 6, false},
      {"4.5 is truncated to 4, the minimum is 6", 3, 3, 6, 0.5, 6, true},
      {"the minimum is 6", 3, 3, 5, 0.5, 6, false},
      {"4.5 is truncated to 4", 3, 3, 4, 0.5, 1, true},
      {"4 are not 3", 3, 3, 3, 0.5, 1, false},
  };
  for (const auto& row : rows) {
    Screen screen = Screen::OfTiles(row.columns, row.rows);
    TileEncoderSettings settings = SmallTiles();
    settings.coarseFraction = row.fraction;
    settings.coarseMinTiles = row.minTiles;
    auto encoder = Started(screen, settings);
    for (int i = 0; i < row.changed; ++i) screen.Draw(i, 7);
    const EncodedFrame frame = encoder->Encode(screen.Bytes());
    EXPECT_EQ(frame.coarse, row.coarse) << row.what;
    EXPECT_EQ(Indices(frame), FirstTiles(row.changed)) << row.what;
  }
}

TEST_F(TileEncoderTest, CoarseFrameNeedsPermissionCodecAndReference) {
  enum Obstacle { kNothing, kDisabled, kFastLine, kNoCodec, kNoReference, kResend };
  for (const Obstacle obstacle : {kNothing, kDisabled, kFastLine, kNoCodec, kNoReference, kResend}) {
    Screen screen = Screen::OfTiles(3, 3);
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
  const struct { int tileQ, coarseQuality, used; } rows[] = {{90, 30, 30}, {20, 30, 20}, {90, -5, 1}};
  for (const auto& row : rows) {
    Screen screen = Screen::OfTiles(3, 3);
    TileEncoderSettings settings = SmallTiles();
    settings.tileQ = row.tileQ;
    settings.coarseQuality = row.coarseQuality;
    settings.paletteColors = 8;
    settings.losslessBudget = 32;
    auto encoder = Started(screen, settings);
    for (int i = 0; i < 9; ++i) screen.Draw(i, i < 4 ? 8 : 9);
    const EncodedFrame frame = encoder->Encode(screen.Bytes());
    EXPECT_TRUE(frame.coarse);
    EXPECT_EQ(frame.losslessTiles, 4);
    for (const EncodedTile& tile : frame.tiles)
      EXPECT_EQ(tile.coding, tile.index < 4 ? TileCoding::kPalette : TileCoding::kWebp) << tile.index;
    EXPECT_EQ(codec.lastQuality, row.used);
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

  Screen screen = Screen::OfTiles(3, 3);
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

TEST_F(CoarseTilesTest, AreSentAgainTogetherWithWhatChanged) {
  screen.Flatten(8, 123);
  EXPECT_EQ(Indices(Resend()), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 8}));
}

TEST_F(CoarseTilesTest, AreNoLongerCoarseOnceSentInADeltaFrame) {
  screen.Flatten(2, 99);
  screen.Flatten(8, 99);
  EXPECT_EQ(encoder->Encode(screen.Bytes()).tiles.size(), 2u);
  EXPECT_EQ(Indices(Resend()), (std::vector<int>{0, 1, 3, 4, 5, 6}));
}

TEST_F(CoarseTilesTest, AreThoseOfTheLastCoarseFrameOnly) {
  for (int i = 3; i < 9; ++i) screen.Photograph(i);
  EXPECT_TRUE(encoder->Encode(screen.Bytes()).coarse);
  EXPECT_EQ(Indices(Resend()), (std::vector<int>{3, 4, 5, 6, 7, 8}));
}

TEST_F(CoarseTilesTest, AreForgottenByAKeyframe) {
  encoder->ForgetReference();
  EXPECT_TRUE(Resend().keyframe) << "the request is taken without effect";
  EXPECT_TRUE(encoder->Encode(screen.Bytes()).tiles.empty());
  EXPECT_TRUE(Resend().tiles.empty());
}

// ---- Refine passes

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

  Screen screen = Screen::OfTiles(3, 3);
  std::unique_ptr<TileEncoder> encoder;
};

TEST_F(RefineTest, SendsAFewTilesExactlyEachTimeUntilNoneIsLeft) {
  for (const auto& expected : {std::vector<int>{0, 1}, {2, 3}, {4, 5}, {6, 7}, {8}, {}}) {
    const EncodedFrame frame = Refine();
    EXPECT_EQ(Indices(frame), expected);
    EXPECT_TRUE(frame.losslessRefine);
    EXPECT_FALSE(frame.keyframe);
    EXPECT_FALSE(frame.coarse);
    EXPECT_EQ(frame.losslessTiles, static_cast<int>(expected.size()));
    EXPECT_EQ(frame.encodedTiles, static_cast<int>(expected.size()));
    EXPECT_EQ(frame.totalTiles, 9);
    for (const EncodedTile& tile : frame.tiles)
      EXPECT_EQ(tile.coding, TileCoding::kPalette) << "a palette may have 256 colours here";
  }
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

TEST_F(RefineTest, SkipsTilesThatWereSentExactlyMeanwhile) {
  screen.Flatten(0, 9);
  screen.Flatten(1, 9);
  EXPECT_EQ(encoder->Encode(screen.Bytes()).losslessTiles, 2);
  EXPECT_EQ(Indices(Refine()), (std::vector<int>{2, 3}));
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

TEST_F(RefineTest, BudgetIsInBitsPerPixel) {
  // The same content once more, to know its exact size and find the budgets on both sides of it.
  const size_t bytes = Refine().tiles[0].payload.size();
  const int enough = static_cast<int>((bytes * 8 + kTile * kTile - 1) / (kTile * kTile));
  for (const int budget : {enough, enough - 1}) {
    Screen one = Screen::OfTiles(2, 1);
    one.Draw(0, 20);
    TileEncoderSettings settings = Settings();
    settings.refineBudget = budget;
    encoder = Started(one, settings);
    encoder->RequestRefine();
    EXPECT_EQ(encoder->Encode(one.Bytes()).tiles.size(), budget == enough ? 1u : 0u) << budget;
  }
}

TEST_F(RefineTest, IgnoresTilesWhoseJpegFailed) {
  codec.jpegBytes = 0;
  codec.webpBytes = 0;
  encoder = Started(screen, Settings());
  EXPECT_TRUE(Refine().tiles.empty());
}

// ---- Quality

TEST_F(TileEncoderTest, QualityIsClamped) {
  const struct {
    int tileQ;
    int used;
  } rows[] = {{-7, 1}, {0, 1}, {1, 1}, {55, 55}, {100, 100}, {150, 100}};
  for (const auto& row : rows) {
    Screen screen = Screen::OfTiles(2, 1);
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
    Screen screen = Screen::OfTiles(2, 1);
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
    Screen screen = Screen::OfTiles(2, 1);
    auto encoder = Started(screen);
    encoder->SetQuality(90, 4, row.before);
    encoder->SetQuality(90, 4, row.then);
    screen.Draw(0, 20);
    EXPECT_EQ(encoder->Encode(screen.Bytes()).tiles.at(0).coding, row.drawing) << row.what;
  }
  // Noise costs a little over 32 bits a pixel: 33 would let it in.
  Screen screen = Screen::OfTiles(2, 1);
  auto encoder = Started(screen);
  encoder->SetQuality(90, 1, 1000);
  screen.Photograph(0);
  EXPECT_EQ(encoder->Encode(screen.Bytes()).tiles.at(0).coding, TileCoding::kWebp);
}

TEST_F(TileEncoderTest, HoldBelongsToItsTile) {
  Screen screen = Screen::OfTiles(3, 3);
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

// ---- Hints

// Random changes, requests and repaints; one encoder is told where, the other looks everywhere.
TEST_F(TileEncoderTest, HintedAndUnhintedEncodersSayTheSame) {
  std::mt19937 random(11);
  const auto upTo = [&](int limit) { return static_cast<int>(random() % static_cast<uint32_t>(limit)); };
  for (const int width : {7 * kTile, 5 * kTile + 3, kTile, 9}) {
    const int height = 4 * kTile + 5;
    Screen screen(width, height);
    TileEncoder plain(width, height, &codec, SmallTiles());
    TileEncoder hinted(width, height, &codec, SmallTiles());
    for (int round = 0; round < 300; ++round) {
      std::vector<PixelRect> rects(static_cast<size_t>(upTo(3)));
      for (PixelRect& rect : rects) {
        rect.left = upTo(width);
        rect.top = upTo(height);
        rect.right = rect.left + upTo(upTo(4) == 0 ? width : 4);
        rect.bottom = rect.top + upTo(upTo(4) == 0 ? height : 4);
        for (int y = rect.top; y < std::min(rect.bottom, height); ++y)
          for (int x = rect.left; x < std::min(rect.right, width); ++x)
            if (upTo(2) == 0) screen.SetPixel(x, y, static_cast<uint8_t>(random()));
        if (upTo(8) == 0) rect.left -= 1000;
        if (upTo(8) == 0) rect.bottom += 1000;
      }
      const int request = upTo(8);
      for (TileEncoder* encoder : {&plain, &hinted}) {
        encoder->SetAllowWebp(round % 50 < 25);
        if (request == 0) encoder->ForgetReference();
        if (request == 1) encoder->RequestCoarseResend();
        if (request == 2) encoder->RequestRefine();
      }
      const EncodedFrame expected = plain.Encode(screen.Bytes());
      const EncodedFrame frame = hinted.Encode(screen.Bytes(), rects);
      ASSERT_EQ(Indices(frame), Indices(expected)) << width << ", round " << round;
      ASSERT_EQ(frame.keyframe, expected.keyframe);
      ASSERT_EQ(frame.coarse, expected.coarse);
      ASSERT_EQ(frame.losslessRefine, expected.losslessRefine);
      ASSERT_EQ(frame.payloadBytes, expected.payloadBytes);
      for (size_t i = 0; i < frame.tiles.size(); ++i)
        ASSERT_EQ(frame.tiles[i].payload, expected.tiles[i].payload) << width << ", round " << round;
    }
  }
}

TEST_F(TileEncoderTest, HintSparesTheTilesItDoesNotTouch) {
  Screen screen = Screen::OfTiles(4, 4);
  auto encoder = Started(screen);
  // Tiles 5 and 6 side by side and tile 9 are named by these pixels; everything has changed.
  for (int i = 0; i < 16; ++i) screen.Flatten(i, static_cast<uint8_t>(100 + i));
  const std::vector<PixelRect> rects = {{2 * kTile - 1, kTile, 2 * kTile + 1, kTile + 1},
                                        {kTile, 3 * kTile - 1, kTile + 1, 3 * kTile},
                                        {0, 0, 0, 50},
                                        {-20, -20, 0, 0},
                                        {4 * kTile, 0, 5 * kTile, kTile}};
  EXPECT_EQ(Indices(encoder->Encode(screen.Bytes(), rects)), (std::vector<int>{5, 6, 9}));
  EXPECT_EQ(encoder->Encode(screen.Bytes()).tiles.size(), 13u);
}

}  // namespace
}  // namespace cvn::agent
