#include "tiles/linux/turbo_image_codec.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include <jpeglib.h>

#include "tiles/image_codec_test.h"

namespace cvn::agent {

std::unique_ptr<TileImageCodec> CreateHostImageCodec() {
  return CreateTurboImageCodec();
}

namespace {

using Bytes = std::vector<uint8_t>;

enum class Layout { kBaseline, kProgressive, kOneScanPerCoefficient };

std::vector<jpeg_scan_info> OneScanPerCoefficient() {
  std::vector<jpeg_scan_info> scans{{3, {0, 1, 2, 0}, 0, 0, 0, 0}};
  for (int component = 0; component < 3; ++component)
    for (int coefficient = 1; coefficient < 64; ++coefficient)
      scans.push_back({1, {component, 0, 0, 0}, coefficient, coefficient, 0, 0});
  return scans;
}

/// A file of R, G, B or gray rows, made by the library with its own defaults.
Bytes ForeignFile(const Bytes& rows, int components, Layout layout) {
  jpeg_error_mgr errors;
  jpeg_compress_struct handle{};
  handle.err = jpeg_std_error(&errors);
  jpeg_create_compress(&handle);
  unsigned char* file = nullptr;
  unsigned long count = 0;
  jpeg_mem_dest(&handle, &file, &count);
  handle.image_width = 64;
  handle.image_height = static_cast<JDIMENSION>(rows.size()) / 64 / static_cast<JDIMENSION>(components);
  handle.input_components = components;
  handle.in_color_space = components == 3 ? JCS_RGB : JCS_GRAYSCALE;
  jpeg_set_defaults(&handle);
  const auto scans = OneScanPerCoefficient();
  if (layout == Layout::kProgressive) jpeg_simple_progression(&handle);
  if (layout == Layout::kOneScanPerCoefficient) {
    handle.scan_info = scans.data();
    handle.num_scans = static_cast<int>(scans.size());
  }
  jpeg_start_compress(&handle, TRUE);
  while (handle.next_scanline < handle.image_height) {
    JSAMPROW row =
        const_cast<JSAMPROW>(&rows[size_t{handle.next_scanline} * 64 * static_cast<size_t>(components)]);
    jpeg_write_scanlines(&handle, &row, 1);
  }
  jpeg_finish_compress(&handle);
  jpeg_destroy_compress(&handle);
  const Bytes result(file, file + count);
  std::free(file);
  return result;
}

TEST(TurboImageCodec, DecodesOtherEncodersFilesButNoneOfHundredsOfScans) {
  const Bytes gray(64 * 64, 77);
  const Bytes color(64 * 64 * 3, 77);
  const struct {
    const char* what;
    Bytes file;
    bool decodes;
  } rows[] = {{"gray", ForeignFile(gray, 1, Layout::kBaseline), true},
              {"halved chroma", ForeignFile(color, 3, Layout::kBaseline), true},
              {"progressive", ForeignFile(color, 3, Layout::kProgressive), true},
              {"190 scans", ForeignFile(color, 3, Layout::kOneScanPerCoefficient), false}};
  const auto codec = CreateTurboImageCodec();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Bytes pixels;
    ASSERT_EQ(codec->Decode(row.file, 64, 64, pixels), row.decodes);
    if (!row.decodes) continue;
    const Bytes first(pixels.begin(), pixels.begin() + 4);
    EXPECT_EQ(first, (Bytes{77, 77, 77, 255}));
  }
}

TEST(TurboImageCodec, AnIncompleteJpegIsNotMadeUp) {
  const auto codec = CreateTurboImageCodec();
  Bytes payload = codec->EncodeJpeg(PhotographPixels(64, 64), 64, 64, 80);
  Bytes pixels;
  ASSERT_TRUE(codec->Decode(payload, 64, 64, pixels));
  while (!payload.empty()) {
    payload.pop_back();
    ASSERT_FALSE(codec->Decode(payload, 64, 64, pixels)) << payload.size() << " bytes";
  }
}

TEST(TurboImageCodec, ColoredTextKeepsItsColors) {
  Bytes text;
  for (int i = 0; i < 64 * 64; ++i) {
    const bool stroke = i % 64 % 5 == 0;
    text.insert(text.end(), {uint8_t(stroke ? 0 : 200), 40, uint8_t(stroke ? 220 : 0), 255});
  }
  const auto codec = CreateTurboImageCodec();
  Bytes pixels;
  ASSERT_TRUE(codec->Decode(codec->EncodeJpeg(text, 64, 64, 90), 64, 64, pixels));
  EXPECT_GT(PsnrDecibels(text, pixels), 30);
}

TEST(TurboImageCodec, HeadersLeaveRoomForTheTile) {
  const auto codec = CreateTurboImageCodec();
  EXPECT_LT(codec->EncodeJpeg(Bytes(64 * 64 * 4, 255), 64, 64, 80).size(), 600U);
}

TEST(TurboImageCodec, NoiseAtFullQualityFitsAndAFailedCallSpoilsNothing) {
  Bytes noise(64 * 64 * 4);
  uint32_t state = 1;
  for (uint8_t& byte : noise) byte = static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24);
  const auto codec = CreateTurboImageCodec();
  const Bytes expected = codec->EncodeJpeg(noise, 64, 64, 100);
  EXPECT_GT(expected.size(), 64U * 64);
  EXPECT_TRUE(codec->EncodeJpeg(Bytes(65535 * 4), 65535, 1, 50).empty()) << "wider than the library can do";
  EXPECT_EQ(codec->EncodeJpeg(noise, 64, 64, 100), expected);
}

}  // namespace
}  // namespace cvn::agent
