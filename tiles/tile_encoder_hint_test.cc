#include "tiles/tile_encoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

#include "testing/tile_encoder_fixture.h"

namespace cvn::agent {
namespace {

// Random changes, requests and repaints; one encoder is told where, the other looks everywhere.
TEST_F(TileEncoderTest, HintedAndUnhintedEncodersSayTheSame) {
  std::mt19937 random(11);
  const auto upTo = [&](int limit) { return static_cast<int>(random() % static_cast<uint32_t>(limit)); };
  for (const int width : {7 * kTile, 5 * kTile + 3, kTile, 9}) {
    const int height = 4 * kTile + 5;
    TileScreen screen(width, height);
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
      ASSERT_EQ((std::array{frame.keyframe, frame.coarse, frame.losslessRefine}),
                (std::array{expected.keyframe, expected.coarse, expected.losslessRefine}));
      for (size_t i = 0; i < frame.tiles.size(); ++i)
        ASSERT_EQ(frame.tiles[i].payload, expected.tiles[i].payload) << width << ", round " << round;
    }
  }
}

TEST_F(TileEncoderTest, HintSparesTheTilesItDoesNotTouch) {
  TileScreen screen = TileScreen::OfTiles(4, 4);
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
