#pragma once

#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "tiles/tile_image_codec.h"

namespace cvn::agent {

/// Answers with payloads of chosen sizes and remembers what it was last asked for.
class FakeImageCodec final : public TileImageCodec {
 public:
  /// 0 fails.
  size_t jpegBytes = 100;
  /// 0 fails.
  size_t webpBytes = 50;
  int jpegCalls = 0;
  int webpCalls = 0;
  int lastQuality = 0;
  std::vector<uint8_t> lastPixels;
  /// Runs at the start of each call; may throw.
  std::function<void()> onEncode = [] {};

  std::vector<uint8_t> EncodeJpeg(std::span<const uint8_t> pixels, int, int, int quality) override {
    Note(pixels, quality);
    ++jpegCalls;
    return std::vector<uint8_t>(jpegBytes, 'j');
  }

  std::optional<std::vector<uint8_t>> EncodeWebp(std::span<const uint8_t> pixels, int, int,
                                                 int quality) override {
    Note(pixels, quality);
    ++webpCalls;
    if (webpBytes == 0) return std::nullopt;
    return std::vector<uint8_t>(webpBytes, 'w');
  }

  bool Decode(std::span<const uint8_t>, int, int, std::vector<uint8_t>&) override { return false; }

 private:
  void Note(std::span<const uint8_t> pixels, int quality) {
    onEncode();
    lastPixels.assign(pixels.begin(), pixels.end());
    lastQuality = quality;
  }
};

}  // namespace cvn::agent
