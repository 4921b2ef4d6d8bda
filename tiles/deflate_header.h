#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "tiles/bit_writer.h"
#include "tiles/huffman.h"

namespace cvn::agent {

/// The header of a dynamic deflate block (RFC 1951, 3.2.7): the lengths of both codes, run by run, in a code
/// of their own.
class DeflateHeader {
 public:
  /// The end of block must be among the literals. With no distance in use one of no bits is listed.
  void Build(const HuffmanCode& literals, const HuffmanCode& distances);

  /// How many bits `Write` takes, the block's type included.
  uint64_t Bits() const { return bits_; }
  void Write(bool final, BitWriter& out) const;

 private:
  static constexpr size_t kLengthSymbols = 19;
  /// Most code lengths that a header can list.
  static constexpr size_t kMostLengths = 286 + 30;
  /// A multiple of 64 lengths, one before them and room to compare beyond them.
  static constexpr size_t kLengthRoom = 1 + 320 + 16;

  void CollectLengths(const HuffmanCode& literals, const HuffmanCode& distances);
  void ListRuns();
  void ListRun(size_t codeLength, size_t count);
  void ListLongRun(size_t codeLength, size_t count);
  void List(size_t symbol, size_t extra);
  void BuildLengthCode();

  size_t literals_ = 0;
  size_t distances_ = 0;
  /// Symbols of the code-length alphabet, each with its extra bits from bit 8 up, and room for two more.
  std::array<uint16_t, kMostLengths + 2> listed_{};
  size_t listedCount_ = 0;
  std::array<uint16_t, 32> symbolCounts_{};
  std::array<uint8_t, kLengthRoom> codeLengths_{};
  HuffmanCode code_;
  /// The codes, from bit 16 up their length, from bit 24 up their length with the extra bits behind it.
  std::array<uint32_t, kLengthSymbols> packedCodes_{};
  /// Lengths of `code_` that are listed, in their own order.
  size_t codesListed_ = 0;
  uint64_t bits_ = 0;
};

}  // namespace cvn::agent
