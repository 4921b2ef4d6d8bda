#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "tiles/huffman.h"

namespace cvn::agent {

// What deflate (RFC 1951) is made of, and how its tokens are kept between parse and writing.

inline constexpr size_t kEndOfBlock = 256;
inline constexpr size_t kLiteralSymbols = 286;
inline constexpr size_t kDistanceSymbols = 30;
inline constexpr uint32_t kMinMatchBytes = 3;
inline constexpr uint32_t kMaxMatchBytes = 258;
inline constexpr uint32_t kWindowBytes = 32768;
inline constexpr size_t kBlockTokens = 16384;

/// The lengths of one length symbol: as many as its extra bits can tell apart, from the shortest up.
struct LengthRange {
  uint16_t shortestBytes;
  uint16_t extraBits;
};

/// Of the literal/length symbols from 257 on. 258 comes last and is not among the lengths of 227 up.
inline constexpr std::array<LengthRange, kLiteralSymbols - 257> kLengthRanges = {
    {{3, 0},  {4, 0},  {5, 0},  {6, 0},   {7, 0},   {8, 0},   {9, 0},   {10, 0},  {11, 1}, {13, 1},
     {15, 1}, {17, 1}, {19, 2}, {23, 2},  {27, 2},  {31, 2},  {35, 3},  {43, 3},  {51, 3}, {59, 3},
     {67, 4}, {83, 4}, {99, 4}, {115, 4}, {131, 5}, {163, 5}, {195, 5}, {227, 5}, {258, 0}}};

constexpr unsigned DistanceExtraBits(size_t symbol) {
  return symbol < 4 || symbol >= kDistanceSymbols ? 0 : static_cast<unsigned>(symbol) / 2 - 1;
}

/// A literal or a match: bits 0-8 the literal or 256 plus the match's bytes over 3, bits 9-13 the distance
/// symbol, bits 14-26 the distance's extra bits. A literal has the distance symbol `kNoDistance`, which is
/// written with no bits: so both kinds go one way.
using Token = uint32_t;
inline constexpr uint32_t kFirstLengthToken = 256 - kMinMatchBytes;
inline constexpr size_t kLiteralsAndLengths = 512;
inline constexpr unsigned kDistanceShift = 9;
inline constexpr unsigned kDistanceExtraShift = 14;
inline constexpr uint32_t kNoDistance = kDistanceSymbols;
inline constexpr uint32_t kDistanceMask = 0x1F;

/// The tokens of one deflate block, how often each symbol occurs in them, and the input bytes they stand for.
struct TokenBlock {
  std::array<Token, kBlockTokens> tokens;
  size_t tokenCount = 0;
  std::array<uint16_t, kMaxHuffmanSymbols> literalCounts;
  std::array<uint16_t, 32> distanceCounts;
  std::span<const uint8_t> source;

  void Clear() {
    tokenCount = 0;
    literalCounts.fill(0);
    distanceCounts.fill(0);
  }
};

}  // namespace cvn::agent
