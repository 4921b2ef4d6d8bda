#include "tiles/huffman.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>

#include "tiles/vector_bytes.h"

namespace cvn::agent {
namespace {

constexpr std::array<uint8_t, 256> MakeReversedBytes() {
  std::array<uint8_t, 256> reversed{};
  for (size_t byte = 0; byte < reversed.size(); ++byte)
    for (size_t bit = 0; bit < 8; ++bit)
      if ((byte >> bit & 1) != 0) reversed[byte] = static_cast<uint8_t>(reversed[byte] | 0x80 >> bit);
  return reversed;
}
constexpr std::array<uint8_t, 256> kReversedBytes = MakeReversedBytes();

uint32_t ReversedBits(uint32_t code, uint32_t bits) {
  const uint32_t reversed =
      static_cast<uint32_t>(kReversedBytes[code & 0xFF]) << 8 | kReversedBytes[code >> 8];
  return reversed >> (16 - bits);
}

/// Up to here sorting in place beats counting.
constexpr size_t kFewLeaves = 16;
/// Leaves that occur less often have a bucket for each count; those that occur as often or more are few.
constexpr uint32_t kCountBuckets = 64;
constexpr size_t kStoreBytes = 64;

void SortInPlace(std::span<uint32_t> leaves) {
  for (size_t i = 1; i < leaves.size(); ++i) {
    const uint32_t leaf = leaves[i];
    size_t hole = i;
    for (; hole > 0 && leaves[hole - 1] > leaf; --hole) leaves[hole] = leaves[hole - 1];
    leaves[hole] = leaf;
  }
}

/// One counting pass by the lesser counts; the last bucket is left as it comes, its start returned.
size_t SortByBucket(std::span<const uint32_t> leaves, std::span<uint32_t> sorted) {
  const auto bucketOf = [](uint32_t leaf) { return std::min(leaf >> 16, kCountBuckets - 1); };
  std::array<uint16_t, kCountBuckets + 1> begin{};
  for (const uint32_t leaf : leaves) ++begin[bucketOf(leaf) + 1];
  for (size_t i = 1; i < kCountBuckets; ++i) begin[i] = static_cast<uint16_t>(begin[i] + begin[i - 1]);
  const size_t lastBucket = begin[kCountBuckets - 1];
  for (const uint32_t leaf : leaves) sorted[begin[bucketOf(leaf)]++] = leaf;
  return lastBucket;
}

}  // namespace

void HuffmanCode::Build(std::span<const uint16_t> counts, size_t maxBits) {
  assert(counts.size() <= kMaxHuffmanSymbols && counts.size() % 32 == 0 && maxBits <= kMaxCodeBits);
  CollectUsed(counts);
  if (usedCount_ == 0) return;
  SortLeaves();
  CountDepths();
  LimitDepths(maxBits);
  AssignCodes();
}

void HuffmanCode::CollectUsed(std::span<const uint16_t> counts) {
  size_t used = 0;
  for (size_t first = 0; first < counts.size(); first += 32) {
    for (uint32_t mask = NativeLanes::NonZeroMask32(&counts[first]); mask != 0; mask &= mask - 1) {
      const size_t symbol = first + static_cast<size_t>(std::countr_zero(mask));
      leaves_[used] = static_cast<Leaf>(counts[symbol]) << 16 | static_cast<Leaf>(symbol);
      used_[used++] = static_cast<uint16_t>(symbol);
    }
  }
  usedCount_ = used;
}

void HuffmanCode::SortLeaves() {
  const auto leaves = std::span(leaves_).first(usedCount_);
  if (leaves.size() <= kFewLeaves) return SortInPlace(leaves);
  std::array<Leaf, kMaxHuffmanSymbols> unsorted;
  std::copy(leaves.begin(), leaves.end(), unsorted.begin());
  const auto frequent = leaves.subspan(SortByBucket(std::span(unsorted).first(usedCount_), leaves));
  if (frequent.size() <= kFewLeaves) return SortInPlace(frequent);
  std::sort(frequent.begin(), frequent.end());
}

/// Merges the two rarest nodes until one is left. Leaves come sorted and inner nodes are born sorted, so two
/// queues suffice.
size_t HuffmanCode::MergeLeaves(std::span<uint16_t> parent) const {
  constexpr uint32_t kNever = UINT32_MAX;
  std::array<uint32_t, kMaxHuffmanSymbols> innerWeight;
  size_t leaf = 0;
  size_t inner = 0;
  size_t node = 0;
  // Leaves that occur once are all taken before any inner node.
  for (; leaf + 1 < usedCount_ && leaves_[leaf + 1] >> 16 == 1; leaf += 2) innerWeight[node++] = 2;
  const auto takeLightest = [&] {
    const uint32_t leafWeight = leaf < usedCount_ ? leaves_[leaf] >> 16 : kNever;
    if (leafWeight <= innerWeight[inner]) return ++leaf, leafWeight;
    parent[inner] = static_cast<uint16_t>(node);
    return innerWeight[inner++];
  };
  for (; node + 1 < usedCount_; ++node) {
    innerWeight[node] = kNever;
    const uint32_t lighter = takeLightest();
    innerWeight[node] = lighter + takeLightest();
  }
  return node;
}

/// Where each leaf hangs need not be known: an inner node has two children, and those that are no inner nodes
/// are leaves. Nor need nodes be asked for their depth: those of one depth were made one after the other.
void HuffmanCode::CountDepths() {
  std::array<uint16_t, kMaxHuffmanSymbols> parent;
  size_t begin = MergeLeaves(parent);
  size_t nodes = begin > 0 ? 1 : 0;  // Inner nodes of this depth; they start at `begin`.
  begin -= nodes;
  size_t depth = 0;
  for (leavesAtDepth_[1] = 1; nodes > 0; ++depth) {
    size_t next = begin;
    while (next > 0 && parent[next - 1] >= begin) --next;
    leavesAtDepth_[depth + 1] = static_cast<uint16_t>(2 * nodes - (begin - next));
    nodes = begin - next;
    begin = next;
  }
  deepest_ = std::max<size_t>(depth, 1);
}

/// Cuts the tree at `maxBits`: the leaves below move up to that depth, which makes the code longer than
/// complete; then each step pushes one leaf down and hangs one of the deepest beside it, which takes back
/// exactly one of the codes that are too many.
void HuffmanCode::LimitDepths(size_t maxBits) {
  if (deepest_ <= maxBits) return;
  for (size_t depth = maxBits + 1; depth <= deepest_; ++depth)
    leavesAtDepth_[maxBits] = static_cast<uint16_t>(leavesAtDepth_[maxBits] + leavesAtDepth_[depth]);
  deepest_ = maxBits;
  size_t codes = 0;
  for (size_t depth = 1; depth <= maxBits; ++depth)
    codes += size_t{leavesAtDepth_[depth]} << (maxBits - depth);
  for (; codes > size_t{1} << maxBits; --codes) {
    size_t depth = maxBits - 1;
    while (leavesAtDepth_[depth] == 0) --depth;
    --leavesAtDepth_[depth];
    --leavesAtDepth_[maxBits];
    leavesAtDepth_[depth + 1] = static_cast<uint16_t>(leavesAtDepth_[depth + 1] + 2);
  }
}

/// The rarest symbols get the longest codes; codes of one length count up with the symbols.
void HuffmanCode::AssignCodes() {
  // Each depth is stored over all leaves that are left, to be overwritten from where the next depth begins.
  std::array<uint8_t, kMaxHuffmanSymbols + kStoreBytes> depthOfLeaf;
  size_t leaf = 0;
  for (size_t depth = deepest_; depth > 0; --depth) {
    const size_t leaves = leavesAtDepth_[depth];
    for (size_t i = 0; i < leaves; i += kStoreBytes)
      std::memset(&depthOfLeaf[leaf + i], static_cast<int>(depth), kStoreBytes);
    leaf += leaves;
  }
  for (size_t i = 0; i < usedCount_; ++i) codes_[leaves_[i] & 0xFFFF] = depthOfLeaf[i];
  std::array<uint32_t, kMaxCodeBits + 1> nextCode{};
  for (size_t depth = 1; depth <= deepest_; ++depth)
    nextCode[depth] = (nextCode[depth - 1] + (depth > 1 ? leavesAtDepth_[depth - 1] : 0U)) << 1;
  for (const uint16_t symbol : Used()) {
    const uint32_t bits = codes_[symbol];
    codes_[symbol] = bits << 16 | ReversedBits(nextCode[bits]++, bits);
  }
}

}  // namespace cvn::agent
