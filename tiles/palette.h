#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "tiles/pixel_view.h"

namespace cvn::agent {

inline constexpr int kMaxPaletteColors = 256;

/// Counts a tile's colours and builds its palette payload in one pass over the frame: 2 bytes of
/// little-endian palette size N, N entries of the 4 pixel bytes in order of first appearance, one index byte
/// per pixel.
///
/// Buffers live as long as the builder and are never cleared between tiles. One thread at a time.
class PaletteBuilder {
 public:
  /// The number of distinct pixels, exact up to 256, else 257. With `grayscale` pixels are told apart by
  /// their blue byte alone, and an entry is the first full pixel seen with it.
  int Build(const PixelView& pixels, bool grayscale);

  /// The payload of the last build, which must have found at most 256 colours. Valid until the next build; at
  /// least `kReadableBytesBehind` bytes behind it may be read.
  std::span<const uint8_t> Payload();

 private:
  /// What tells pixels of this build apart: the bits of a pixel that count, and the stamp of used slots.
  struct Identity {
    uint32_t keyMask = 0;
    uint32_t stamp = 0;
  };

  void Reset(const PixelView& pixels, bool grayscale);
  bool IndexRow(const uint8_t* row, int width, uint8_t* indices);
  bool IndexRuns(const uint8_t* pixels, int count, uint8_t* indices);
  bool IndexEachPixel(const uint8_t* pixels, int count, uint8_t* indices);
  int IndexOf(uint32_t pixel, Identity identity);
  int Append(uint32_t pixel, uint32_t slot, Identity identity);

  /// Open hash of colours. A slot holds index (8 bits), stamp (24), key (32); other stamps are empty slots.
  static constexpr int kSlotBits = 10;
  static constexpr uint32_t kSlots = 1U << kSlotBits;
  std::array<uint64_t, kSlots> slots_{};
  std::array<uint32_t, kMaxPaletteColors> palette_{};
  int colors_ = 0;
  Identity identity_;
  /// How many blocks are still to be indexed pixel by pixel because the last one had too many runs.
  int blocksWithoutRuns_ = 0;
  size_t indexBytes_ = 0;
  /// Room for the largest palette, then the indices, then room to store beyond them.
  std::vector<uint8_t> payload_;
};

}  // namespace cvn::agent
