#include "tiles/exact_coding.h"

#include <cstring>
#include <span>

#include "tiles/deflate.h"
#include "tiles/palette.h"

namespace cvn::agent {
namespace {

static_assert(kTooManyColors == kMaxPaletteColors + 1);

std::vector<uint8_t> Copied(std::span<const uint8_t> bytes) {
  return {bytes.begin(), bytes.end()};
}

}  // namespace

struct ExactCoder::State {
  std::span<const uint8_t> CompressPixels(const PixelView& pixels);

  PaletteBuilder palette;
  ZlibWriter zlib;
  /// The rows of a view, brought together.
  std::vector<uint8_t> packed;
};

std::span<const uint8_t> ExactCoder::State::CompressPixels(const PixelView& pixels) {
  const size_t needed = pixels.PackedBytes() + kReadableBytesBehind;
  if (packed.size() < needed) packed.resize(needed);
  const size_t rowBytes = pixels.RowBytes();
  for (int y = 0; y < pixels.height; ++y)
    std::memcpy(packed.data() + static_cast<size_t>(y) * rowBytes, pixels.Row(y), rowBytes);
  return zlib.Compress(packed.data(), pixels.PackedBytes());
}

ExactCoder::ExactCoder() : state_(std::make_unique<State>()) {}
ExactCoder::~ExactCoder() = default;

int ExactCoder::CountColors(const PixelView& pixels, bool grayscale) {
  return state_->palette.Build(pixels, grayscale);
}

std::vector<uint8_t> ExactCoder::EncodePalette() {
  const auto payload = state_->palette.Payload();
  return Copied(state_->zlib.Compress(payload.data(), payload.size()));
}

std::vector<uint8_t> ExactCoder::EncodeLossless(const PixelView& pixels) {
  return Copied(state_->CompressPixels(pixels));
}

size_t ExactCoder::LosslessBytes(const PixelView& pixels) {
  return state_->CompressPixels(pixels).size();
}

}  // namespace cvn::agent
