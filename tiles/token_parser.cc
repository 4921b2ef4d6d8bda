#include "tiles/token_parser.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "tiles/vector_bytes.h"

namespace cvn::agent {
namespace {

constexpr int kMostCandidates = 16;
constexpr size_t kMostInputBytes = (size_t{1} << 30) - 1;
/// Positions stay below this, so that signed differences tell the order of any two.
constexpr uint32_t kLastOrigin = 1U << 30;

constexpr std::array<Token, kMaxMatchBytes + 1> MakeLengthTokens() {
  std::array<Token, kMaxMatchBytes + 1> tokens{};
  for (uint32_t length = kMinMatchBytes; length <= kMaxMatchBytes; ++length)
    tokens[length] = LengthToken(length);
  return tokens;
}
constexpr std::array<Token, kMaxMatchBytes + 1> kLengthTokens = MakeLengthTokens();

uint32_t HashOfThree(const uint8_t* bytes) {
  const uint32_t three =
      static_cast<uint32_t>(bytes[0]) << 16 | static_cast<uint32_t>(bytes[1]) << 8 | bytes[2];
  return three * 0x9E3779B1U >> 17;
}

/// How many bytes agree behind the first 16, which do; may run past `limit`, by less than 16.
uint32_t ExtendMatch(const uint8_t* a, const uint8_t* b, uint32_t limit) {
  uint32_t length = 16;
  while (length < limit) {
    const unsigned more = NativeLanes::CommonPrefix16(a + length, b + length);
    length += more;
    if (more < 16) break;
  }
  return length;
}

}  // namespace

TokenParser::TokenParser() : tables_(std::make_unique<Tables>()) {}

void TokenParser::Start(const uint8_t* bytes, size_t count) {
  assert(count <= kMostInputBytes);
  origin_ += byteCount_;
  if (origin_ > kLastOrigin) {
    tables_->head.fill(0);
    origin_ = 1;
  }
  bytes_ = bytes;
  byteCount_ = static_cast<uint32_t>(count);
  position_ = 0;
}

void TokenParser::NextBlock(TokenBlock& block) {
  block.literalCounts.fill(0);
  block.distanceCounts.fill(0);
  const uint32_t begin = position_;
  const uint32_t end = byteCount_;
  uint32_t position = begin;
  size_t count = 0;
  while (count < kBlockTokens && position < end) {
    const Match match = end - position >= kMinMatchBytes ? EnterAndSearch(position) : Match{0, 0};
    if (match.lengthBytes < kMinMatchBytes) {
      const uint8_t literal = bytes_[position++];
      block.tokens[count++] = literal | kNoDistance << kDistanceShift;
      ++block.literalCounts[literal];
      continue;
    }
    const Token token = kLengthTokens[match.lengthBytes] | DistanceToken(match.distanceBytes);
    block.tokens[count++] = token;
    ++block.literalCounts[token & kSymbolMask];
    ++block.distanceCounts[token >> kDistanceShift & kDistanceMask];
    position += match.lengthBytes;
  }
  position_ = position;
  block.tokenCount = count;
  block.source = {bytes_ + begin, position - begin};
}

inline TokenParser::Match TokenParser::EnterAndSearch(uint32_t position) {
  uint32_t& head = tables_->head[HashOfThree(bytes_ + position)];
  const auto candidate = static_cast<int32_t>(head - origin_);
  head = origin_ + position;
  const uint32_t distance = position - static_cast<uint32_t>(candidate);
  const bool reachable = candidate >= 0 && distance <= kWindowBytes;
  tables_->gap[position % kWindowBytes] = reachable ? static_cast<uint16_t>(distance) : uint16_t{0};
  return reachable ? Search(position, static_cast<uint32_t>(candidate)) : Match{0, 0};
}

inline TokenParser::Match TokenParser::Search(uint32_t position, uint32_t candidate) const {
  const uint8_t* const wanted = bytes_ + position;
  const uint32_t limit = std::min(byteCount_ - position, kMaxMatchBytes);
  Match best{kMinMatchBytes - 1, 0};
  for (int left = kMostCandidates; left > 0; --left) {
    uint32_t length = NativeLanes::CommonPrefix16(bytes_ + candidate, wanted);
    if (length == 16 && bytes_[candidate + best.lengthBytes] == wanted[best.lengthBytes])
      length = ExtendMatch(bytes_ + candidate, wanted, limit);
    if (length > best.lengthBytes) {
      if (length >= limit) return {limit, position - candidate};
      best = {length, position - candidate};
    }
    const uint32_t gap = tables_->gap[candidate % kWindowBytes];
    candidate -= gap;
    if (gap == 0 || position - candidate > kWindowBytes) break;
  }
  return best;
}

}  // namespace cvn::agent
