#include "view/tile_decoder.h"

#include <gtest/gtest.h>

#include <numeric>
#include <tuple>

#include "view/stream_for_test.h"

namespace cvn::view {
namespace {

constexpr uint32_t kUntouched = 0x5a5a5a5a;
constexpr uint8_t kPalette = 1;
constexpr uint8_t kLossless = 2;
constexpr uint8_t kJpeg = 3;
constexpr uint8_t kWebp = 4;

/// A 3x2 tile drawn at (1, 1) of a picture of 5x4.
struct Drawing {
  Drawing(const Bytes& payload, uint8_t coding) {
    agent::TileRecord tile{
        .index = 9, .x = 1, .y = 1, .width = 3, .height = 2, .coding = coding, .payload = payload};
    auto* const first = reinterpret_cast<uint8_t*>(picture.data() + 5 + 1);
    drawn = decoder.Decode(tile, {first, 5 * 4}, error);
  }

  /// One for all: neither sizes nor payloads before may matter.
  static inline TileDecoder decoder{TestCodec()};
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

  std::vector<uint32_t> all(256);
  std::iota(all.begin(), all.end(), 0xff000100);
  EXPECT_EQ(Drawing(Zip(PaletteContent(256, all, {0, 255, 254, 1, 128, 127})), kPalette).picture,
            PictureWith({0xff000100, 0xff0001ff, 0xff0001fe, 0xff000101, 0xff000180, 0xff00017f}));
}

TEST(TileDecoder, DrawsLossyTilesNearlyAndNothingBeside) {
  const Bytes pixels = PixelBytes(std::vector<uint32_t>(6, 0xff3070c0));
  for (const bool isJpeg : {true, false}) {
    const Bytes payload = isJpeg ? TestCodec().EncodeJpeg(pixels, 3, 2, 95)
                                 : TestCodec().EncodeWebp(pixels, 3, 2, 95).value_or(Bytes{});
    Drawing drawing(payload, isJpeg ? kJpeg : kWebp);
    ASSERT_TRUE(drawing.drawn) << drawing.error;
    for (uint32_t& pixel : drawing.picture) {
      if (pixel == kUntouched) continue;
      for (const auto& [shift, meant] : {std::pair{0, 0xc0}, {8, 0x70}, {16, 0x30}})
        EXPECT_NEAR(static_cast<int>(pixel >> shift & 0xff), meant, 6);
      pixel = 1;
    }
    EXPECT_EQ(drawing.picture, PictureWith(std::vector<uint32_t>(6, 1)));
  }
}

Bytes Resized(Bytes bytes, int change) {
  bytes.resize(bytes.size() + static_cast<size_t>(change));
  return bytes;
}

TEST(TileDecoder, RefusesBadPayloadsAndDrawsNothingOfThem) {
  const Bytes pixels(3 * 2 * 4, 7);
  const std::vector<uint32_t> colors{1, 2};
  const Bytes indices{0, 1, 0, 1, 0, 1};
  Bytes damaged = Zip(pixels);
  damaged.back() ^= 1;
  const Bytes jpeg = TestCodec().EncodeJpeg(pixels, 3, 2, 80);
  const Bytes other = TestCodec().EncodeJpeg(pixels, 2, 3, 80);
  const Bytes webp = TestCodec().EncodeWebp(pixels, 3, 2, 80).value_or(Bytes{});
  const std::string inflate = "the payload of tile 9 does not inflate: ";
  const std::string decode = " tile 9 does not decode to 3x2 pixels";
  const std::tuple<uint8_t, Bytes, std::string> rows[] = {
      {kLossless, {}, inflate + "it ends early"},
      {kLossless, Resized(Zip(pixels), -1), inflate + "it ends early"},
      {kLossless, damaged, inflate + "incorrect data check"},
      {kLossless, Resized(Zip(pixels), 1), inflate + "something follows its end"},
      {kLossless, Zip(Resized(pixels, -1)), "lossless tile 9 inflates to 23 bytes instead of 24"},
      {kLossless, Zip(Resized(pixels, 1)), inflate + "it holds more than the tile"},
      {kPalette, Zip(Bytes(10'000'000, 1)), inflate + "it holds more than the tile"},
      {kPalette, Zip(PaletteContent(257, colors, indices)), "palette tile 9 has a palette of 257 colours"},
      {kPalette, Zip(PaletteContent(2, colors, Resized(indices, 1))),
       "palette tile 9 of 2 colours inflates to 17 bytes instead of 16"},
      {kPalette, Zip(PaletteContent(2, colors, {0, 1, 0, 1, 0, 2})),
       "palette tile 9 uses colour 2 of a palette of 2"},
      {kJpeg, {}, "the payload of JPEG" + decode},
      {kJpeg, Resized(jpeg, -100), "the payload of JPEG" + decode},
      {kJpeg, other, "the payload of JPEG" + decode},
      {kJpeg, Resized(jpeg, 4120),
       "JPEG tile 9 has " + std::to_string(jpeg.size() + 4120) + " bytes, more than its 3x2 pixels can need"},
      {kWebp, Resized(webp, -9), "the payload of WebP" + decode},
      {5, Zip(pixels), "tile 9 has coding 5, which this viewer does not know"},
  };
  for (const auto& [coding, payload, refusal] : rows) {
    SCOPED_TRACE(refusal);
    const Drawing drawing(payload, coding);
    EXPECT_FALSE(drawing.drawn);
    EXPECT_EQ(drawing.error, refusal);
    EXPECT_EQ(drawing.picture, PictureWith({}));
  }
}

}  // namespace
}  // namespace cvn::view
