#include "tiles/deflate_block.h"

#include <algorithm>

namespace cvn::agent {
namespace {

constexpr unsigned kBlockHeaderBits = 3;
constexpr uint64_t kDynamicType = 2;
constexpr size_t kMaxStoredBytes = 65535;
/// What storing a block costs beyond its bytes.
constexpr size_t kStoredOverheadBytes = 5;

constexpr size_t kRepeatPrevious = 16;
constexpr size_t kShortZeroRun = 17;
constexpr size_t kLongZeroRun = 18;
constexpr size_t kMaxLengthCodeBits = 7;
constexpr std::array<uint8_t, 19> kLengthOrder = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                  11, 4,  12, 3, 13, 2, 14, 1, 15};
constexpr size_t kLeastLengthCodes = 4;

constexpr unsigned LengthSymbolExtraBits(size_t symbol) {
  return symbol == kRepeatPrevious ? 2 : symbol == kShortZeroRun ? 3 : symbol == kLongZeroRun ? 7 : 0;
}

/// Makes the entries of the symbols in use, and says how many bits they take as often as they are counted.
template <typename Entry>
uint64_t FillEntries(const HuffmanCode& code, std::span<const uint16_t> counts, unsigned (*extraBits)(size_t),
                     std::span<Entry> entries) {
  uint64_t bits = 0;
  for (const uint16_t symbol : code.Used()) {
    const unsigned codeBits = code.Bits(symbol);
    const unsigned totalBits = codeBits + extraBits(symbol);
    entries[symbol] = {static_cast<uint16_t>(code.Code(symbol)), static_cast<uint8_t>(codeBits),
                       static_cast<uint8_t>(totalBits)};
    bits += uint64_t{totalBits} * counts[symbol];
  }
  return bits;
}

}  // namespace

void DeflateBlockWriter::Write(TokenBlock& block, bool final, BitWriter& out) {
  block.literalCounts[kEndOfBlock] = 1;
  BuildCodes(block);
  uint64_t bits = HeaderBits();
  bits += FillEntries<Entry>(literals_, block.literalCounts, LengthExtraBits, literalEntries_);
  bits += FillEntries<Entry>(distances_, block.distanceCounts, DistanceExtraBits, distanceEntries_);
  if (!block.source.empty() && bits / 8 >= block.source.size() + kStoredOverheadBytes)
    return WriteStored(block.source, final, out);
  WriteHeader(final, out);
  WriteTokens(block, out);
}

void DeflateBlockWriter::BuildCodes(const TokenBlock& block) {
  literals_.Build(std::span(block.literalCounts).first(kLiteralSymbols), kMaxCodeBits);
  distances_.Build(std::span(block.distanceCounts).first(kDistanceSymbols), kMaxCodeBits);
  listedCount_ = 0;
  lengthCounts_.fill(0);
  listedLiterals_ = ListCodeLengths(literals_, kEndOfBlock + 1);
  listedDistances_ = ListCodeLengths(distances_, 1);
  lengths_.Build(lengthCounts_, kMaxLengthCodeBits);
  listedLengths_ = kLengthSymbols;
  while (lengthCounts_[kLengthOrder[listedLengths_ - 1]] == 0) --listedLengths_;
  listedLengths_ = std::max(listedLengths_, kLeastLengthCodes);
}

/// Lists the code's lengths from symbol 0 to the last one used, of `leastSymbols` at least; returns how many.
size_t DeflateBlockWriter::ListCodeLengths(const HuffmanCode& code, size_t leastSymbols) {
  const auto used = code.Used();
  size_t next = 0;
  for (size_t i = 0; i < used.size();) {
    ListZeros(used[i] - next);
    const size_t first = i;
    const size_t codeLength = code.Bits(used[i]);
    for (++i; i < used.size() && used[i] == used[i - 1] + 1 && code.Bits(used[i]) == codeLength;) ++i;
    ListRepeats(codeLength, i - first);
    next = used[i - 1] + size_t{1};
  }
  if (next < leastSymbols) ListZeros(leastSymbols - next);
  return std::max(next, leastSymbols);
}

void DeflateBlockWriter::ListZeros(size_t count) {
  for (; count >= 11; count -= std::min<size_t>(count, 138))
    List(kLongZeroRun, std::min<size_t>(count, 138) - 11);
  if (count >= 3) return List(kShortZeroRun, count - 3);
  for (; count > 0; --count) List(0, 0);
}

void DeflateBlockWriter::ListRepeats(size_t codeLength, size_t count) {
  List(codeLength, 0);
  for (--count; count >= 3; count -= std::min<size_t>(count, 6))
    List(kRepeatPrevious, std::min<size_t>(count, 6) - 3);
  for (; count > 0; --count) List(codeLength, 0);
}

void DeflateBlockWriter::List(size_t symbol, size_t extra) {
  listed_[listedCount_++] = static_cast<uint16_t>(symbol | extra << 8);
  ++lengthCounts_[symbol];
}

uint64_t DeflateBlockWriter::HeaderBits() const {
  uint64_t bits = kBlockHeaderBits + 5 + 5 + 4 + 3 * listedLengths_;
  for (const uint16_t symbol : lengths_.Used())
    bits += uint64_t{lengthCounts_[symbol]} * (lengths_.Bits(symbol) + LengthSymbolExtraBits(symbol));
  return bits;
}

void DeflateBlockWriter::WriteHeader(bool final, BitWriter& out) const {
  out.Put((final ? 1U : 0U) | kDynamicType << 1, kBlockHeaderBits);
  out.Put(listedLiterals_ - (kEndOfBlock + 1), 5);
  out.Put(listedDistances_ - 1, 5);
  out.Put(listedLengths_ - kLeastLengthCodes, 4);
  for (const uint8_t symbol : std::span(kLengthOrder).first(listedLengths_))
    out.Put(lengthCounts_[symbol] == 0 ? 0 : lengths_.Bits(symbol), 3);
  for (const uint16_t item : std::span(listed_).first(listedCount_)) {
    const size_t symbol = item & 0xFF;
    const unsigned codeBits = lengths_.Bits(symbol);
    out.Put(lengths_.Code(symbol) | uint64_t{item} >> 8 << codeBits,
            codeBits + LengthSymbolExtraBits(symbol));
  }
}

void DeflateBlockWriter::WriteTokens(const TokenBlock& block, BitWriter& out) const {
  BitWriter bits = out;  // A local, so that the stores cannot alias its state.
  for (const Token token : std::span(block.tokens).first(block.tokenCount)) {
    const Entry literal = literalEntries_[token & kSymbolMask];
    const Entry distance = distanceEntries_[token >> kDistanceShift & kDistanceMask];
    const uint64_t lengthExtra = token >> kLengthExtraShift & kLengthExtraMask;
    const uint64_t distanceExtra = token >> kDistanceExtraShift;
    const uint64_t first = literal.code | lengthExtra << literal.codeBits;
    const uint64_t second = distance.code | distanceExtra << distance.codeBits;
    bits.Put(first | second << literal.totalBits, unsigned{literal.totalBits} + distance.totalBits);
  }
  const Entry end = literalEntries_[kEndOfBlock];
  bits.Put(end.code, end.codeBits);
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
