#include "tiles/deflate_block.h"

#include <algorithm>

namespace cvn::agent {
namespace {

constexpr unsigned kBlockHeaderBits = 3;
constexpr size_t kMaxStoredBytes = 65535;
/// What storing a block costs beyond its bytes.
constexpr size_t kStoredOverheadBytes = 5;

}  // namespace

void DeflateBlockWriter::Write(TokenBlock& block, bool final, BitWriter& out) {
  block.literalCounts[kEndOfBlock] = 1;
  literals_.Build(block.literalCounts, kMaxCodeBits);
  distances_.Build(block.distanceCounts, kMaxCodeBits);
  header_.Build(literals_, distances_);
  const uint64_t bits = header_.Bits() + PackLiterals(block) + PackDistances(block);
  if (!block.source.empty() && bits / 8 >= block.source.size() + kStoredOverheadBytes)
    return WriteStored(block.source, final, out);
  header_.Write(final, out);
  WriteTokens(block, out);
}

/// Lays out the bits of every token's first part; returns how many all of them take, the block's end
/// included.
uint64_t DeflateBlockWriter::PackLiterals(const TokenBlock& block) {
  uint64_t bits = 0;
  const auto used = literals_.Used();
  size_t i = 0;
  for (; used[i] < kEndOfBlock; ++i) {
    const unsigned codeBits = literals_.Bits(used[i]);
    bits += uint64_t{codeBits} * block.literalCounts[used[i]];
    literalBits_[used[i]] = literals_.Code(used[i]) | codeBits << 24;
  }
  bits += literals_.Bits(kEndOfBlock);
  for (++i; i < used.size(); ++i) bits += block.literalCounts[used[i]] * uint64_t{PackLengths(used[i])};
  return bits;
}

/// Lays out all lengths of one symbol; returns how many bits one takes.
unsigned DeflateBlockWriter::PackLengths(size_t symbol) {
  const LengthRange range = kLengthRanges[symbol - kEndOfBlock - 1];
  const unsigned codeBits = literals_.Bits(symbol);
  const unsigned totalBits = codeBits + range.extraBits;
  PackedBits* const packed = &literalBits_[256 - kMinMatchBytes + range.shortestBytes];
  // The range of 227 ends one short: 258 has a symbol of its own.
  const uint32_t lengths = std::min(1U << range.extraBits, kMaxMatchBytes + 1 - range.shortestBytes);
  for (uint32_t extra = 0; extra < lengths; ++extra)
    packed[extra] = literals_.Code(symbol) | extra << codeBits | totalBits << 24;
  return totalBits;
}

uint64_t DeflateBlockWriter::PackDistances(const TokenBlock& block) {
  uint64_t bits = 0;
  for (const uint16_t symbol : distances_.Used()) {
    const unsigned codeBits = distances_.Bits(symbol);
    const unsigned totalBits = codeBits + DistanceExtraBits(symbol);
    bits += uint64_t{totalBits} * block.distanceCounts[symbol];
    distanceCodes_[symbol] = distances_.Code(symbol) | codeBits << 16 | totalBits << 24;
  }
  return bits;
}

void DeflateBlockWriter::WriteTokens(const TokenBlock& block, BitWriter& out) const {
  BitWriter bits = out;  // A local, so that the stores cannot alias its state.
  for (const Token token : std::span(block.tokens).first(block.tokenCount)) {
    const PackedBits literal = literalBits_[token % kLiteralsAndLengths];
    const PackedCode distance = distanceCodes_[token >> kDistanceShift & kDistanceMask];
    const uint64_t extra = token >> kDistanceExtraShift;
    const uint64_t second = (distance & 0xFFFF) | extra << (distance >> 16 & 0xFF);
    bits.Put((literal & 0xFFFFFF) | second << (literal >> 24), (literal >> 24) + (distance >> 24));
  }
  bits.Put(literals_.Code(kEndOfBlock), literals_.Bits(kEndOfBlock));
  out = bits;
}

void DeflateBlockWriter::WriteStored(std::span<const uint8_t> bytes, bool final, BitWriter& out) {
  do {
    const auto chunk = bytes.first(std::min(bytes.size(), kMaxStoredBytes));
    bytes = bytes.subspan(chunk.size());
    out.Put(final && bytes.empty() ? 1 : 0, kBlockHeaderBits);  // The type is 0.
    out.AlignToByte();
    out.Put(chunk.size() | (chunk.size() ^ 0xFFFF) << 16, 32);
    out.PutBytes(chunk);
  } while (!bytes.empty());
}

}  // namespace cvn::agent
