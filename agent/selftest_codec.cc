#include "agent/selftest_codec.h"

#include <algorithm>
#include <cmath>

namespace cvn::agent {
namespace {

constexpr int kTestTileSize = 64;
constexpr int kTestQuality = 80;
/// Below it a person sees that the test tile is not what was coded. Healthy codecs reach 38 dB.
constexpr double kTestTilePsnr = 30;
constexpr double kEqualPsnr = 99;

uint8_t Shade(double value) {
  return static_cast<uint8_t>(std::clamp(value, 0.0, 255.0));
}

/// Soft light and shadow under fine grain, as in a photograph.
PackedTile TestTile() {
  PackedTile tile{.pixels = {}, .width = kTestTileSize, .height = kTestTileSize};
  uint32_t grain = 1;
  for (int y = 0; y < kTestTileSize; ++y) {
    for (int x = 0; x < kTestTileSize; ++x) {
      grain = grain * 1664525 + 1013904223;
      const double light = 128 + 50 * std::sin(x * 0.11 + y * 0.05) + 30 * std::cos(x * 0.07 - y * 0.19) +
                           static_cast<double>(grain >> 24) / 32;
      tile.pixels.insert(tile.pixels.end(),
                         {Shade(light * 0.6 + y), Shade(light), Shade(light * 1.1 - x), 255});
    }
  }
  return tile;
}

double Luma(const uint8_t* pixel) {
  return 0.114 * pixel[0] + 0.587 * pixel[1] + 0.299 * pixel[2];
}

double Square(double value) {
  return value * value;
}

double Decibels(double meanSquare) {
  return meanSquare > 0 ? std::min(10 * std::log10(255.0 * 255.0 / meanSquare), kEqualPsnr) : kEqualPsnr;
}

Likeness Compare(std::span<const uint8_t> one, std::span<const uint8_t> other) {
  double colour = 0;
  double brightness = 0;
  for (size_t i = 0; i < one.size(); i += 4) {
    for (size_t byte = i; byte < i + 3; ++byte) colour += Square(one[byte] - other[byte]);
    brightness += Square(Luma(&one[i]) - Luma(&other[i]));
  }
  const double pixels = static_cast<double>(one.size()) / 4;
  return {.colour = Decibels(colour / (3 * pixels)), .brightness = Decibels(brightness / pixels)};
}

void ReportJpeg(std::span<const uint8_t> jpeg, SelftestReport& report) {
  if (jpeg.empty())
    report.Wrong("jpeg codec", "cannot encode (photographic tiles are sent losslessly)");
  else
    report.Line("jpeg codec", "%zu B at q%d for a photograph of %dx%d pixels", jpeg.size(), kTestQuality,
                kTestTileSize, kTestTileSize);
}

void ReportWebp(std::span<const uint8_t> webp, size_t jpegBytes, SelftestReport& report) {
  if (webp.empty()) {
    report.Line("webp codec", "unavailable (photographic tiles fall back to JPEG)");
  } else if (jpegBytes == 0) {
    report.Line("webp codec", "libwebp, %zu B at q%d", webp.size(), kTestQuality);
  } else {
    report.Line("webp codec", "libwebp, %zu B vs JPEG %zu B at q80 (%.0f%% smaller)", webp.size(), jpegBytes,
                100 - 100 * static_cast<double>(webp.size()) / static_cast<double>(jpegBytes));
  }
}

void ReportRoundTrip(const char* coding, const std::optional<Likeness>& likeness, SelftestReport& report) {
  if (!likeness)
    report.Wrong("decode check", "the test photograph's %s cannot be decoded", coding);
  else if (likeness->colour < kTestTilePsnr)
    report.Wrong("decode check", "the test photograph as %s is %.1f dB, not %.0f", coding, likeness->colour,
                 kTestTilePsnr);
  else
    report.Line("decode check", "the test photograph as %s: %.1f dB", coding, likeness->colour);
}

}  // namespace

void ReportCodecs(TileImageCodec* codec, SelftestReport& report) {
  if (codec == nullptr) {
    report.Line("photo codec", "unavailable (lossless only)");
    return;
  }
  const PackedTile tile = TestTile();
  const auto jpeg = codec->EncodeJpeg(tile.pixels, kTestTileSize, kTestTileSize, kTestQuality);
  const auto webp = codec->EncodeWebp(tile.pixels, kTestTileSize, kTestTileSize, kTestQuality)
                        .value_or(std::vector<uint8_t>());
  ReportJpeg(jpeg, report);
  ReportWebp(webp, jpeg.size(), report);
  const auto decoded = [&](std::span<const uint8_t> payload) {
    return CompareDecoded(*codec, payload, tile);
  };
  if (!jpeg.empty()) ReportRoundTrip("JPEG", decoded(jpeg), report);
  if (!webp.empty()) ReportRoundTrip("WebP", decoded(webp), report);
}

std::optional<Likeness> CompareDecoded(TileImageCodec& codec, std::span<const uint8_t> payload,
                                       const PackedTile& tile) {
  std::vector<uint8_t> decoded;
  if (!codec.Decode(payload, tile.width, tile.height, decoded) || decoded.size() != tile.pixels.size())
    return std::nullopt;
  return Compare(tile.pixels, decoded);
}

}  // namespace cvn::agent
