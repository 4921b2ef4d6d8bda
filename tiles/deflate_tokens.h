#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "tiles/huffman.h"

namespace cvn::agent {

inline constexpr size_t kLiteralSymbols = 286;
inline constexpr size_t kDistanceSymbols = 30;
inline constexpr size_t kEndOfBlock = 256;
inline constexpr uint32_t kMinMatchBytes = 3;
inline constexpr uint32_t kMaxMatchBytes = 258;
inline constexpr uint32_t kWindowBytes = 32768;
inline constexpr size_t kBlockTokens = 16384;

/// A literal or a match, split into the symbols and extra bits of RFC 1951: bits 0-8 the literal/length
/// symbol, 9-13 the length's extra bits, 14-18 the distance symbol, 19-31 the distance's extra bits. A
/// literal has the distance symbol `kNoDistance`, which is written with no bits: so both kinds go one way.
using Token = uint32_t;
inline constexpr unsigned kLengthExtraShift = 9;
inline constexpr unsigned kDistanceShift = 14;
inline constexpr unsigned kDistanceExtraShift = 19;
inline constexpr uint32_t kNoDistance = 30;
inline constexpr uint32_t kSymbolMask = 0x1FF;
inline constexpr uint32_t kLengthExtraMask = 0x1F;
inline constexpr uint32_t kDistanceMask = 0x1F;

/// Extra bits behind a literal/length symbol.
constexpr unsigned LengthExtraBits(size_t symbol) {
  return symbol < 265 || symbol >= 285 ? 0 : static_cast<unsigned>(symbol - 261) / 4;
}

/// Extra bits behind a distance symbol.
constexpr unsigned DistanceExtraBits(size_t symbol) {
  return symbol < 4 || symbol >= kNoDistance ? 0 : static_cast<unsigned>(symbol) / 2 - 1;
}

/// Length symbol and extra bits of a match, laid out as in a token.
constexpr Token LengthToken(uint32_t lengthBytes) {
  if (lengthBytes == kMaxMatchBytes) return 285;
  const uint32_t steps = lengthBytes - kMinMatchBytes;
  const unsigned extraBits = steps < 8 ? 0 : static_cast<unsigned>(std::bit_width(steps)) - 3;
  const uint32_t symbol = 257 + 4 * extraBits + (steps >> extraBits);
  return symbol | (steps & ((1U << extraBits) - 1)) << kLengthExtraShift;
}

/// Distance symbol and extra bits of a match, laid out as in a token.
constexpr Token DistanceToken(uint32_t distanceBytes) {
  const uint32_t steps = distanceBytes - 1;
  const unsigned extraBits = static_cast<unsigned>(std::bit_width(steps | 2)) - 2;
  const uint32_t symbol = 2 * extraBits + (steps >> extraBits);
  return symbol << kDistanceShift | (steps & ((1U << extraBits) - 1)) << kDistanceExtraShift;
}

/// The tokens of one deflate block, how often each symbol occurs in them, and the input bytes they stand for.
struct TokenBlock {
  std::array<Token, kBlockTokens> tokens;
  size_t tokenCount = 0;
  std::array<uint16_t, kMaxHuffmanSymbols> literalCounts;
  std::array<uint16_t, 32> distanceCounts;
  std::span<const uint8_t> source;
};

}  // namespace cvn::agent
