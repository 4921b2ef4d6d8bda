#include "tiles/palette.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>

#include "tiles/deflate.h"
#include "tiles/vector_bytes.h"

namespace cvn::agent {
namespace {

constexpr size_t kSizeBytes = 2;
constexpr size_t kMostHeaderBytes = kSizeBytes + 4 * size_t{kMaxPaletteColors};
/// Where the indices start, so that every palette fits in front of them.
constexpr size_t kIndexOffset = 1056;
static_assert(kIndexOffset >= kMostHeaderBytes);

constexpr int kBlockPixels = 64;
constexpr size_t kBytesBehind = kBlockPixels;
static_assert(kBytesBehind >= kReadableBytesBehind);
/// With more runs than this in a block, finding them costs more than it saves: so many of the next blocks are
/// not searched for runs.
constexpr int kManyRuns = 40;
constexpr int kBlocksWithoutRuns = 8;

constexpr uint32_t kLastStamp = (1U << 24) - 1;

uint32_t LoadPixel(const uint8_t* bytes) {
  uint32_t pixel = 0;
  std::memcpy(&pixel, bytes, sizeof pixel);
  return pixel;
}

uint64_t ChangeMask(const uint8_t* pixels, int count) {
  if (count == kBlockPixels) return NativeLanes::ChangeMask64(pixels);
  uint64_t mask = 1;
  for (int i = 1; i < count; ++i)
    mask |= static_cast<uint64_t>(LoadPixel(pixels + 4 * i) != LoadPixel(pixels + 4 * i - 4)) << i;
  return mask;
}

/// May store up to a block behind the row.
void CopyRow(const uint8_t* from, uint8_t* to, size_t width) {
  if (width % kBlockPixels != 0) {
    std::memcpy(to, from, width);
    return;
  }
  for (size_t x = 0; x < width; x += kBlockPixels) std::memcpy(to + x, from + x, kBlockPixels);
}

}  // namespace

int PaletteBuilder::Build(const PixelView& pixels, bool grayscale) {
  Reset(pixels, grayscale);
  uint8_t* indices = payload_.data() + kIndexOffset;
  const auto width = static_cast<size_t>(pixels.width);
  for (int y = 0; y < pixels.height; ++y, indices += width) {
    if (y > 0 && NativeLanes::SameBytes(pixels.Row(y), pixels.Row(y - 1), pixels.RowBytes()))
      CopyRow(indices - width, indices, width);
    else if (!IndexRow(pixels.Row(y), pixels.width, indices))
      return colors_ = kMaxPaletteColors + 1;
  }
  return colors_;
}

std::span<const uint8_t> PaletteBuilder::Payload() {
  assert(colors_ <= kMaxPaletteColors && "the build found more colours than a palette holds");
  const auto colors = static_cast<size_t>(colors_);
  const size_t begin = kIndexOffset - kSizeBytes - 4 * colors;
  payload_[begin] = static_cast<uint8_t>(colors);
  payload_[begin + 1] = static_cast<uint8_t>(colors >> 8);
  std::memcpy(payload_.data() + begin + kSizeBytes, palette_.data(), 4 * colors);
  return std::span(payload_).subspan(begin, kIndexOffset - begin + indexBytes_);
}

void PaletteBuilder::Reset(const PixelView& pixels, bool grayscale) {
  indexBytes_ = pixels.PixelCount();
  const size_t needed = kIndexOffset + indexBytes_ + kBytesBehind;
  if (payload_.size() < needed) payload_.resize(needed);
  if (identity_.stamp == kLastStamp) {
    slots_.fill(0);
    identity_.stamp = 0;
  }
  ++identity_.stamp;
  // The blue byte comes first in memory.
  identity_.keyMask = !grayscale                                   ? 0xFFFFFFFFU
                      : std::endian::native == std::endian::little ? 0xFFU
                                                                   : 0xFF000000U;
  colors_ = 0;
  blocksWithoutRuns_ = 0;
}

bool PaletteBuilder::IndexRow(const uint8_t* row, int width, uint8_t* indices) {
  for (int x = 0; x < width; x += kBlockPixels) {
    const uint8_t* const pixels = row + 4 * static_cast<size_t>(x);
    const int count = std::min(width - x, kBlockPixels);
    const bool fits = blocksWithoutRuns_ > 0 ? IndexEachPixel(pixels, count, indices + x)
                                             : IndexRuns(pixels, count, indices + x);
    if (!fits) return false;
  }
  return true;
}

/// Each run stores its index over the whole block, to be overwritten from where the next run begins: no run
/// length, and so no branch, is needed.
bool PaletteBuilder::IndexRuns(const uint8_t* pixels, int count, uint8_t* indices) {
  const Identity identity = identity_;  // A copy, so that the stores cannot alias it.
  int runs = 0;
  for (uint64_t changes = ChangeMask(pixels, count); changes != 0; changes &= changes - 1, ++runs) {
    const int x = std::countr_zero(changes);
    const int index = IndexOf(LoadPixel(pixels + 4 * x), identity);
    if (index < 0) return false;
    std::memset(indices + x, index, kBlockPixels);
  }
  if (runs > kManyRuns) blocksWithoutRuns_ = kBlocksWithoutRuns;
  return true;
}

bool PaletteBuilder::IndexEachPixel(const uint8_t* pixels, int count, uint8_t* indices) {
  const Identity identity = identity_;
  --blocksWithoutRuns_;
  for (int x = 0; x < count; ++x) {
    const int index = IndexOf(LoadPixel(pixels + 4 * x), identity);
    if (index < 0) return false;
    indices[x] = static_cast<uint8_t>(index);
  }
  return true;
}

/// -1 when the palette is full and the pixel is not in it.
inline int PaletteBuilder::IndexOf(uint32_t pixel, Identity identity) {
  const uint32_t key = pixel & identity.keyMask;
  const uint64_t wanted = static_cast<uint64_t>(identity.stamp) << 32 | key;
  uint32_t slot = key * 0x9E3779B1U >> (32 - kSlotBits);
  for (;; slot = (slot + 1) % kSlots) {
    const uint64_t found = slots_[slot];
    if ((found ^ wanted) << 8 == 0) return static_cast<int>(found >> 56);
    if ((found >> 32 & kLastStamp) != identity.stamp) return Append(pixel, slot, identity);
  }
}

int PaletteBuilder::Append(uint32_t pixel, uint32_t slot, Identity identity) {
  if (colors_ == kMaxPaletteColors) return -1;
  const int index = colors_++;
  palette_[static_cast<size_t>(index)] = pixel;
  slots_[slot] = static_cast<uint64_t>(index) << 56 | static_cast<uint64_t>(identity.stamp) << 32 |
                 (pixel & identity.keyMask);
  return index;
}

}  // namespace cvn::agent
