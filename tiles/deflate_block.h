#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "tiles/bit_writer.h"
#include "tiles/deflate_header.h"
#include "tiles/deflate_tokens.h"
#include "tiles/huffman.h"

namespace cvn::agent {

/// Writes blocks of a deflate stream (RFC 1951): always with codes of their own, or stored where that would
/// not be smaller. Keeps its tables from block to block. One thread at a time.
class DeflateBlockWriter {
 public:
  /// Writes `block` and its end; counts the end of block among its symbols. Needs `MostBlockBytes` of room.
  void Write(TokenBlock& block, bool final, BitWriter& out);

  /// Writes bytes as they are, in as many stored blocks as that takes; of no bytes one empty block.
  static void WriteStored(std::span<const uint8_t> bytes, bool final, BitWriter& out);

  /// Upper bound of what one block takes, the room for wide stores included.
  static constexpr size_t MostBlockBytes(size_t sourceBytes) {
    return sourceBytes + 5 * (sourceBytes / 65535 + 1) + kMostHeaderBytes;
  }

 private:
  /// More than the largest header of a dynamic block and the stores behind the last bit.
  static constexpr size_t kMostHeaderBytes = 512;

  /// Bits that go out together and, from bit 24 up, how many they are.
  using PackedBits = uint32_t;
  /// A code, from bit 16 up its length, from bit 24 up its length with the extra bits behind it.
  using PackedCode = uint32_t;

  uint64_t PackLiterals(const TokenBlock& block);
  unsigned PackLengths(size_t symbol);
  uint64_t PackDistances(const TokenBlock& block);
  void WriteTokens(const TokenBlock& block, BitWriter& out) const;

  HuffmanCode literals_;
  HuffmanCode distances_;
  DeflateHeader header_;
  /// By the lower nine bits of a token, the length's extra bits included.
  std::array<PackedBits, kLiteralsAndLengths> literalBits_{};
  std::array<PackedCode, 32> distanceCodes_{};
};

}  // namespace cvn::agent
