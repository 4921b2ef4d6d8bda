#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "tiles/bit_writer.h"
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
  static constexpr size_t kLengthSymbols = 19;

  /// A code with its length and, in `totalBits`, the extra bits behind it as well.
  struct Entry {
    uint16_t code;
    uint8_t codeBits;
    uint8_t totalBits;
  };

  void BuildCodes(const TokenBlock& block);
  size_t ListCodeLengths(const HuffmanCode& code, size_t leastSymbols);
  void ListZeros(size_t count);
  void ListRepeats(size_t codeLength, size_t count);
  void List(size_t symbol, size_t extra);
  uint64_t HeaderBits() const;
  void WriteHeader(bool final, BitWriter& out) const;
  void WriteTokens(const TokenBlock& block, BitWriter& out) const;

  HuffmanCode literals_;
  HuffmanCode distances_;
  HuffmanCode lengths_;
  std::array<Entry, kMaxHuffmanSymbols> literalEntries_{};
  std::array<Entry, 32> distanceEntries_{};
  /// Both codes' lengths as symbols of the code-length alphabet, each with its extra bits from bit 8 up.
  std::array<uint16_t, kLiteralSymbols + kDistanceSymbols> listed_{};
  size_t listedCount_ = 0;
  std::array<uint16_t, kLengthSymbols> lengthCounts_{};
  /// How many symbols of each code the header lists; the code-length alphabet in its order of transmission.
  size_t listedLiterals_ = 0;
  size_t listedDistances_ = 0;
  size_t listedLengths_ = 0;
};

}  // namespace cvn::agent
