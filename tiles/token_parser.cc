#include "tiles/token_parser.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "tiles/match_length.h"

namespace cvn::agent {
namespace {

[[maybe_unused]] constexpr size_t kMostInputBytes = (size_t{1} << 30) - 1;
/// In a near input's head, the number of candidates stands above the position.
constexpr uint32_t kOneCandidate = 1U << 16;
static_assert(kWindowBytes < kOneCandidate);

/// The literal/length symbol of a match of so many bytes.
constexpr std::array<uint16_t, kMaxMatchBytes + 1> MakeLengthSymbols() {
  std::array<uint16_t, kMaxMatchBytes + 1> symbols{};
  for (size_t i = 0; i < kLengthRanges.size(); ++i)
    for (size_t more = 0; more < size_t{1} << kLengthRanges[i].extraBits; ++more)
      symbols[kLengthRanges[i].shortestBytes + more] = static_cast<uint16_t>(kEndOfBlock + 1 + i);
  return symbols;
}
constexpr auto kLengthSymbols = MakeLengthSymbols();

/// The distance symbol that covers a distance, and the least distance, less one, that it covers.
struct DistanceClass {
  uint16_t symbol;
  uint16_t first;
};

/// By distance less one below 256, and by a 128th of it above, where no class is finer.
constexpr size_t DistanceIndex(uint32_t distanceLessOne) {
  const size_t coarse = 256 + (distanceLessOne >> 7);
  return distanceLessOne < 256 ? distanceLessOne : coarse;
}

constexpr std::array<DistanceClass, 512> MakeDistanceClasses() {
  std::array<DistanceClass, 512> classes{};
  uint32_t first = 0;
  for (uint16_t symbol = 0; symbol < kDistanceSymbols; ++symbol) {
    const uint32_t end = first + (1U << DistanceExtraBits(symbol));
    for (uint32_t distance = first; distance < end; ++distance)
      classes[DistanceIndex(distance)] = {symbol, static_cast<uint16_t>(first)};
    first = end;
  }
  return classes;
}
constexpr auto kDistanceClasses = MakeDistanceClasses();

uint32_t HashOfThree(const uint8_t* bytes) {
  const uint32_t three =
      static_cast<uint32_t>(bytes[0]) << 16 | static_cast<uint32_t>(bytes[1]) << 8 | bytes[2];
  return three * 0x9E3779B1U >> 17;
}

void AddLiteral(TokenBlock& block, uint8_t literal) {
  block.tokens[block.tokenCount++] = literal | kNoDistance << kDistanceShift;
  ++block.literalCounts[literal];
}

void AddMatch(TokenBlock& block, uint32_t lengthBytes, uint32_t distanceBytes) {
  const DistanceClass distance = kDistanceClasses[DistanceIndex(distanceBytes - 1)];
  const uint32_t extra = distanceBytes - 1 - distance.first;
  block.tokens[block.tokenCount++] = (kFirstLengthToken + lengthBytes) |
                                     static_cast<uint32_t>(distance.symbol) << kDistanceShift |
                                     extra << kDistanceExtraShift;
  ++block.literalCounts[kLengthSymbols[lengthBytes]];
  ++block.distanceCounts[distance.symbol];
}

}  // namespace

TokenParser::TokenParser() : tables_(std::make_unique<Tables>()) {}

void TokenParser::Start(const uint8_t* bytes, size_t count) {
  assert(count <= kMostInputBytes);
  tables_->seen.fill(0);
  bytes_ = bytes;
  byteCount_ = static_cast<uint32_t>(count);
  position_ = 0;
}

void TokenParser::NextBlock(TokenBlock& block) {
  block.Clear();
  const uint32_t begin = position_;
  if (byteCount_ <= kWindowBytes)
    Collect<true>(block);
  else
    Collect<false>(block);
  block.source = {bytes_ + begin, position_ - begin};
}

template <bool kNear>
void TokenParser::Collect(TokenBlock& block) {
  uint32_t position = position_;
  const uint32_t lastHashed = std::max(byteCount_, kMinMatchBytes - 1) - (kMinMatchBytes - 1);
  while (block.tokenCount < kBlockTokens && position < lastHashed) {
    const Match match = EnterAndSearch<kNear>(position);
    if (match.lengthBytes < kMinMatchBytes) {
      AddLiteral(block, bytes_[position++]);
    } else {
      AddMatch(block, match.lengthBytes, match.distanceBytes);
      position += match.lengthBytes;
    }
  }
  while (block.tokenCount < kBlockTokens && position < byteCount_) AddLiteral(block, bytes_[position++]);
  position_ = position;
}

/// Near means that the whole input lies within one window: then a head also holds the length of its chain, so
/// that the processor soon knows how far to go, and no candidate need be asked for its distance.
template <bool kNear>
inline TokenParser::Match TokenParser::EnterAndSearch(uint32_t position) {
  const uint32_t hash = HashOfThree(bytes_ + position);
  uint64_t& seen = tables_->seen[hash / 64];
  const uint64_t mine = uint64_t{1} << hash % 64;
  uint32_t& head = tables_->head[hash];
  uint16_t& gap = tables_->gap[position % kWindowBytes];
  if ((seen & mine) == 0) {
    seen |= mine;
    head = kNear ? position | kOneCandidate : position;
    if (!kNear) gap = 0;
    return {0, 0};
  }
  const uint32_t before = head;
  const uint32_t candidate = kNear ? before % kOneCandidate : before;
  const uint32_t distance = position - candidate;
  if constexpr (kNear) {
    const uint32_t candidates = before / kOneCandidate;
    head = position | std::min(candidates + 1, kMostCandidates) * kOneCandidate;
    gap = static_cast<uint16_t>(distance);
    return Search<kNear>(position, candidate, candidates);
  } else {
    head = position;
    gap = distance <= kWindowBytes ? static_cast<uint16_t>(distance) : uint16_t{0};
    return gap == 0 ? Match{0, 0} : Search<kNear>(position, candidate, kMostCandidates);
  }
}

template <bool kNear>
inline TokenParser::Match TokenParser::Search(uint32_t position, uint32_t candidate,
                                              uint32_t candidates) const {
  const uint8_t* const wanted = bytes_ + position;
  const uint32_t limit = std::min(byteCount_ - position, kMaxMatchBytes);
  Match best{MatchLength(bytes_ + candidate, wanted, limit), position - candidate};
  if (best.lengthBytes >= limit) return {limit, best.distanceBytes};
  best.lengthBytes = std::max(best.lengthBytes, kMinMatchBytes - 1);
  LongerMatchFilter filter(wanted, best.lengthBytes);
  while (--candidates > 0) {
    const uint32_t gap = tables_->gap[candidate % kWindowBytes];
    candidate -= gap;
    if (!kNear && (gap == 0 || position - candidate > kWindowBytes)) break;
    if (!filter.Passes(bytes_ + candidate)) continue;
    const uint32_t length = MatchLength(bytes_ + candidate, wanted, limit);
    if (length <= best.lengthBytes) continue;
    best = {std::min(length, limit), position - candidate};
    if (length >= limit) break;
    filter = LongerMatchFilter(wanted, length);
  }
  return best;
}

}  // namespace cvn::agent
