#include "tiles/deflate_header.h"

#include <algorithm>
#include <bit>

#include "tiles/deflate_tokens.h"
#include "tiles/vector_bytes.h"

namespace cvn::agent {
namespace {

constexpr uint64_t kDynamicType = 2;
constexpr unsigned kFixedBits = 3 + 5 + 5 + 4;

constexpr size_t kRepeatPrevious = 16;
constexpr size_t kShortZeroRun = 17;
constexpr size_t kLongZeroRun = 18;
constexpr std::array<uint8_t, 19> kExtraBits = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 3, 7};
constexpr size_t kMaxCodeBitsOfLengths = 7;
/// The order in which the lengths of the code for lengths are listed.
constexpr std::array<uint8_t, 19> kOrder = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
constexpr size_t kLeastCodesListed = 4;
/// Differs from every code length.
constexpr uint8_t kNoLength = 0xFF;

size_t SymbolsListed(const HuffmanCode& code, size_t least) {
  return code.Used().empty() ? least : std::max(least, code.Used().back() + size_t{1});
}

}  // namespace

void DeflateHeader::Build(const HuffmanCode& literals, const HuffmanCode& distances) {
  literals_ = SymbolsListed(literals, kEndOfBlock + 1);
  distances_ = SymbolsListed(distances, 1);
  CollectLengths(literals, distances);
  listedCount_ = 0;
  symbolCounts_.fill(0);
  ListRuns();
  BuildLengthCode();
}

void DeflateHeader::CollectLengths(const HuffmanCode& literals, const HuffmanCode& distances) {
  codeLengths_.fill(0);
  uint8_t* const lengths = codeLengths_.data() + 1;
  lengths[-1] = kNoLength;
  lengths[literals_ + distances_] = kNoLength;
  for (const uint16_t symbol : literals.Used()) lengths[symbol] = static_cast<uint8_t>(literals.Bits(symbol));
  for (const uint16_t symbol : distances.Used())
    lengths[literals_ + symbol] = static_cast<uint8_t>(distances.Bits(symbol));
}

/// Both codes' lengths are one sequence: a run may go on from one into the other.
void DeflateHeader::ListRuns() {
  const uint8_t* const lengths = codeLengths_.data() + 1;
  const size_t count = literals_ + distances_;
  size_t begin = 0;
  for (size_t first = 0; first <= count; first += 64) {
    uint64_t changes = NativeLanes::ByteChangeMask64(lengths + first);
    if (first == 0) changes &= ~uint64_t{1};
    for (; changes != 0; changes &= changes - 1) {
      const size_t end = first + static_cast<size_t>(std::countr_zero(changes));
      if (end > count) return;
      ListRun(lengths[begin], end - begin);
      begin = end;
    }
  }
}

/// Most runs are of one or two; those differ in nothing that a branch would have to foresee.
inline void DeflateHeader::ListRun(size_t codeLength, size_t count) {
  if (count > 2) return ListLongRun(codeLength, count);
  listed_[listedCount_] = listed_[listedCount_ + 1] = static_cast<uint16_t>(codeLength);
  listedCount_ += count;
  symbolCounts_[codeLength] = static_cast<uint16_t>(symbolCounts_[codeLength] + count);
}

void DeflateHeader::ListLongRun(size_t codeLength, size_t count) {
  if (codeLength == 0) {
    for (; count >= 11; count -= std::min<size_t>(count, 138))
      List(kLongZeroRun, std::min<size_t>(count, 138) - 11);
    if (count >= 3) return List(kShortZeroRun, count - 3);
  } else {
    List(codeLength, 0);
    for (--count; count >= 3; count -= std::min<size_t>(count, 6))
      List(kRepeatPrevious, std::min<size_t>(count, 6) - 3);
  }
  for (; count > 0; --count) List(codeLength, 0);
}

void DeflateHeader::List(size_t symbol, size_t extra) {
  listed_[listedCount_++] = static_cast<uint16_t>(symbol | extra << 8);
  ++symbolCounts_[symbol];
}

void DeflateHeader::BuildLengthCode() {
  code_.Build(symbolCounts_, kMaxCodeBitsOfLengths);
  codesListed_ = kLengthSymbols;
  while (symbolCounts_[kOrder[codesListed_ - 1]] == 0) --codesListed_;
  codesListed_ = std::max(codesListed_, kLeastCodesListed);
  bits_ = kFixedBits + 3 * codesListed_;
  for (const uint16_t symbol : code_.Used()) {
    const unsigned codeBits = code_.Bits(symbol);
    const unsigned totalBits = codeBits + kExtraBits[symbol];
    packedCodes_[symbol] = code_.Code(symbol) | codeBits << 16 | totalBits << 24;
    bits_ += uint64_t{symbolCounts_[symbol]} * totalBits;
  }
}

void DeflateHeader::Write(bool final, BitWriter& out) const {
  BitWriter bits = out;  // A local, so that the stores cannot alias its state.
  bits.Put((final ? 1U : 0U) | kDynamicType << 1, 3);
  bits.Put((literals_ - (kEndOfBlock + 1)) | (distances_ - 1) << 5 | (codesListed_ - kLeastCodesListed) << 10,
           14);
  for (size_t i = 0; i < codesListed_; ++i)
    bits.Put(symbolCounts_[kOrder[i]] == 0 ? 0 : code_.Bits(kOrder[i]), 3);
  for (size_t i = 0; i < listedCount_; ++i) {
    const uint32_t code = packedCodes_[listed_[i] & 0xFF];
    const uint64_t extra = listed_[i] >> 8;
    bits.Put((code & 0xFFFF) | extra << (code >> 16 & 0xFF), code >> 24);
  }
  out = bits;
}

}  // namespace cvn::agent
