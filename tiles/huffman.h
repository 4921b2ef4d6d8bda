#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace cvn::agent {

/// The largest alphabet of deflate, rounded up so that it is scanned in whole vectors.
inline constexpr size_t kMaxHuffmanSymbols = 288;
inline constexpr size_t kMaxCodeBits = 15;

/// A length-limited canonical prefix code over the symbols that occur, as deflate (RFC 1951) defines it.
///
/// The work and the arrays filled are proportional to the symbols in use: entries of other symbols are stale.
/// A single symbol gets a code of one bit; otherwise the code is complete.
class HuffmanCode {
 public:
  /// `counts`: how often each symbol occurs, at most 288 symbols in a multiple of 32, and 2^maxBits used
  /// ones; the sum fits 32 bits. Lengths are at most `maxBits`, which is at most 15.
  void Build(std::span<const uint16_t> counts, size_t maxBits);

  /// The symbols in use, ascending.
  std::span<const uint16_t> Used() const { return std::span(used_).first(usedCount_); }
  unsigned Bits(size_t symbol) const { return codes_[symbol] >> 16; }
  /// The code with its first bit lowest, as it goes into the stream.
  uint32_t Code(size_t symbol) const { return codes_[symbol] & 0xFFFF; }

 private:
  /// Count in the upper half, symbol in the lower: leaves sort as plain numbers.
  using Leaf = uint32_t;

  void CollectUsed(std::span<const uint16_t> counts);
  void SortLeaves();
  size_t MergeLeaves(std::span<uint16_t> parent) const;
  void CountDepths();
  void LimitDepths(size_t maxBits);
  void AssignCodes();

  size_t usedCount_ = 0;
  std::array<uint16_t, kMaxHuffmanSymbols> used_{};
  /// Length in the upper half, code in the lower.
  std::array<uint32_t, kMaxHuffmanSymbols> codes_{};
  /// The used symbols, rarest first, and room for one more.
  std::array<Leaf, kMaxHuffmanSymbols + 1> leaves_{};
  /// How many leaves lie at each depth of the tree, down to `deepest_`; 288 leaves make at most depth 287.
  std::array<uint16_t, kMaxHuffmanSymbols> leavesAtDepth_{};
  size_t deepest_ = 0;
};

}  // namespace cvn::agent
