#include "view/tile_decoder.h"

#include <gtest/gtest.h>

#include <numeric>

#include "view/stream_for_test.h"

namespace cvn::view {
namespace {

constexpr uint32_t kUntouched = 0x5a5a5a5a;
constexpr uint8_t kPalette = 1;
constexpr uint8_t kLossless = 2;

/// A 3x2 tile drawn at (1, 1) of a picture of 5x4.
struct Drawing {
  explicit Drawing(const Bytes& payload, uint8_t coding) {
    agent::TileRecord tile{
        .index = 9, .x = 1, .y = 1, .width = 3, .height = 2, .coding = coding, .payload = payload};
    auto* const first = reinterpret_cast<uint8_t*>(picture.data() + 5 + 1);
    drawn = decoder.Decode(tile, {first, 5 * 4}, error);
  }

  TileDecoder decoder;
  std::vector<uint32_t> picture = std::vector<uint32_t>(5 * 4, kUntouched);
  bool drawn = false;
  std::string error;
};

std::vector<uint32_t> PictureWith(const std::vector<uint32_t>& tilePixels) {
  std::vector<uint32_t> picture(5 * 4, kUntouched);
  for (size_t i = 0; i < tilePixels.size(); ++i) picture[(1 + i / 3) * 5 + 1 + i % 3] = tilePixels[i];
  return picture;
}

TEST(TileDecoder, DrawsExactlyTheTile) {
  const std::vector<uint32_t> pixels{0xff000001, 0xff000002, 0xff000003, 0x12345678, 0, 0xffffffff};
  EXPECT_EQ(Drawing(Zip(PixelBytes(pixels)), kLossless).picture, PictureWith(pixels));

  const std::vector<uint32_t> palette{0xff0000ff, 0xff00ff00, 0xffff0000};
  EXPECT_EQ(Drawing(Zip(PaletteContent(3, palette, {0, 1, 2, 2, 1, 0})), kPalette).picture,
            PictureWith({palette[0], palette[1], palette[2], palette[2], palette[1], palette[0]}));
}

TEST(TileDecoder, KnowsAPaletteOfAllTwoHundredAndFiftySixColours) {
  std::vector<uint32_t> palette(256);
  std::iota(palette.begin(), palette.end(), 0xff000100);
  const Drawing drawing(Zip(PaletteContent(256, palette, {0, 255, 254, 1, 128, 127})), kPalette);
  EXPECT_EQ(drawing.error, "");
  EXPECT_EQ(drawing.picture,
            PictureWith({0xff000100, 0xff0001ff, 0xff0001fe, 0xff000101, 0xff000180, 0xff00017f}));
}

TEST(TileDecoder, DrawsManyTilesOfManySizesOneAfterAnother) {
  TileDecoder decoder;
  for (const PictureSize size : {PictureSize{64, 64}, {1, 1}, {200, 3}, {36, 6}, {64, 64}}) {
    const agent::EncodedTile coded = GradientTile(0, 0, size, 0xff000000);
    const agent::TileRecord tile{.width = static_cast<uint16_t>(size.width),
                                 .height = static_cast<uint16_t>(size.height),
                                 .coding = kLossless,
                                 .payload = coded.payload};
    std::vector<uint32_t> picture(static_cast<size_t>(size.Pixels()));
    std::string error;
    auto* const first = reinterpret_cast<uint8_t*>(picture.data());
    ASSERT_TRUE(decoder.Decode(tile, {first, static_cast<size_t>(size.width) * 4}, error)) << error;
    for (size_t i = 0; i < picture.size(); ++i) ASSERT_EQ(picture[i], 0xff000000 + i);
  }
}

Bytes Without(Bytes bytes, size_t lastBytes) {
  bytes.resize(bytes.size() - lastBytes);
  return bytes;
}

Bytes Flipped(Bytes bytes, size_t fromEnd) {
  bytes[bytes.size() - fromEnd] ^= 1;
  return bytes;
}

Bytes WithTail(Bytes bytes) {
  bytes.push_back(0);
  return bytes;
}

TEST(TileDecoder, RefusesBadPayloadsAndDrawsNothingOfThem) {
  const Bytes pixels(3 * 2 * 4, 7);
  const std::vector<uint32_t> colors{1, 2};
  const Bytes indices{0, 1, 0, 1, 0, 1};
  const struct {
    const char* what;
    uint8_t coding;
    Bytes payload;
    const char* error;
  } rows[] = {
      {"no payload", kLossless, {}, "the payload of tile 9 does not inflate: it ends early"},
      {"no zlib stream",
       kLossless,
       {1, 2, 3, 4},
       "the payload of tile 9 does not inflate: incorrect header check"},
      {"cut short", kLossless, Without(Zip(pixels), 5),
       "the payload of tile 9 does not inflate: it ends early"},
      {"checksum cut", kLossless, Without(Zip(pixels), 1),
       "the payload of tile 9 does not inflate: it ends early"},
      {"checksum wrong", kLossless, Flipped(Zip(pixels), 1),
       "the payload of tile 9 does not inflate: incorrect data check"},
      {"a byte behind", kLossless, WithTail(Zip(pixels)),
       "the payload of tile 9 does not inflate: something follows its end"},
      {"nothing in it", kLossless, Zip({}), "the payload of tile 9 does not inflate: it is empty"},
      {"a byte short", kLossless, Zip(Without(pixels, 1)),
       "lossless tile 9 inflates to 23 bytes instead of 24"},
      {"a byte long", kLossless, Zip(WithTail(pixels)),
       "the payload of tile 9 does not inflate: it holds more than the tile"},
      {"a bomb", kLossless, Zip(Bytes(10'000'000, 0)),
       "the payload of tile 9 does not inflate: it holds more than the tile"},
      {"a palette bomb", kPalette, Zip(Bytes(10'000'000, 1)),
       "the payload of tile 9 does not inflate: it holds more than the tile"},
      {"no room for a count", kPalette, Zip(Bytes(1, 1)), "palette tile 9 has a palette of 0 colours"},
      {"no colours", kPalette, Zip(PaletteContent(0, {}, indices)),
       "palette tile 9 has a palette of 0 colours"},
      {"257 colours", kPalette, Zip(PaletteContent(257, colors, indices)),
       "palette tile 9 has a palette of 257 colours"},
      {"palette cut short", kPalette, Zip(PaletteContent(200, colors, indices)),
       "palette tile 9 of 200 colours inflates to 16 bytes instead of 808"},
      {"an index short", kPalette, Zip(PaletteContent(2, colors, Without(indices, 1))),
       "palette tile 9 of 2 colours inflates to 15 bytes instead of 16"},
      {"an index long", kPalette, Zip(PaletteContent(2, colors, WithTail(indices))),
       "palette tile 9 of 2 colours inflates to 17 bytes instead of 16"},
      {"index beyond the palette", kPalette, Zip(PaletteContent(2, colors, {0, 1, 0, 1, 0, 2})),
       "palette tile 9 uses colour 2 of a palette of 2"},
      {"JPEG", 3, Zip(pixels), "tile 9 has coding 3 (JPEG), which this viewer does not know"},
      {"WebP", 4, Zip(pixels), "tile 9 has coding 4 (WebP), which this viewer does not know"},
      {"coding 0", 0, Zip(pixels), "tile 9 has coding 0, which this viewer does not know"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const Drawing drawing(row.payload, row.coding);
    EXPECT_FALSE(drawing.drawn);
    EXPECT_EQ(drawing.error, row.error);
    EXPECT_EQ(drawing.picture, PictureWith({}));
  }
}

TEST(TileDecoder, GoesOnAfterABadPayload) {
  TileDecoder decoder;
  std::vector<uint32_t> picture(6);
  auto* const first = reinterpret_cast<uint8_t*>(picture.data());
  const Bytes good = Zip(PixelBytes(std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
  const Bytes bad = Without(good, 5);
  agent::TileRecord tile{.width = 3, .height = 2, .coding = kLossless, .payload = bad};
  std::string error;
  EXPECT_FALSE(decoder.Decode(tile, {first, 12}, error));
  tile.payload = good;
  EXPECT_TRUE(decoder.Decode(tile, {first, 12}, error));
  EXPECT_EQ(picture, (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
}

}  // namespace
}  // namespace cvn::view
