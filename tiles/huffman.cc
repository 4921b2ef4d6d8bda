#include "tiles/huffman.h"

#include <algorithm>
#include <cassert>

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

uint32_t ReversedBits(uint32_t code, int bits) {
  const uint32_t reversed =
      static_cast<uint32_t>(kReversedBytes[code & 0xFF]) << 8 | kReversedBytes[code >> 8];
  return reversed >> (16 - bits);
}

/// Up to here sorting in place beats counting.
constexpr size_t kFewLeaves = 32;

void SortInPlace(std::span<uint32_t> leaves) {
  for (size_t i = 1; i < leaves.size(); ++i) {
    const uint32_t leaf = leaves[i];
    size_t hole = i;
    for (; hole > 0 && leaves[hole - 1] > leaf; --hole) leaves[hole] = leaves[hole - 1];
    leaves[hole] = leaf;
  }
}

/// One stable counting pass by the byte of the leaves that starts at bit `shift`.
void SortByByte(std::span<const uint32_t> leaves, std::span<uint32_t> sorted, int shift) {
  std::array<uint16_t, 257> begin{};
  for (const uint32_t leaf : leaves) ++begin[(leaf >> shift & 0xFF) + 1];
  for (size_t byte = 1; byte < 256; ++byte)
    begin[byte] = static_cast<uint16_t>(begin[byte] + begin[byte - 1]);
  for (const uint32_t leaf : leaves) sorted[begin[leaf >> shift & 0xFF]++] = leaf;
}

}  // namespace

void HuffmanCode::Build(std::span<const uint16_t> counts, size_t maxBits) {
  assert(counts.size() <= kMaxHuffmanSymbols && maxBits <= kMaxCodeBits);
  CollectUsed(counts);
  if (usedCount_ == 0) return;
  SortLeaves();
  CountDepths();
  LimitDepths(maxBits);
  AssignBits();
  AssignCodes();
}

void HuffmanCode::CollectUsed(std::span<const uint16_t> counts) {
  size_t used = 0;
  for (size_t symbol = 0; symbol < counts.size(); ++symbol) {
    leaves_[used] = static_cast<Leaf>(counts[symbol]) << 16 | static_cast<Leaf>(symbol);
    used += counts[symbol] != 0 ? 1 : 0;
  }
  usedCount_ = used;
  for (size_t i = 0; i < used; ++i) used_[i] = static_cast<uint16_t>(leaves_[i]);
}

void HuffmanCode::SortLeaves() {
  const auto leaves = std::span(leaves_).first(usedCount_);
  if (leaves.size() <= kFewLeaves) return SortInPlace(leaves);
  std::array<Leaf, kMaxHuffmanSymbols> byLowByte;
  SortByByte(leaves, byLowByte, 16);
  SortByByte(std::span(byLowByte).first(usedCount_), leaves, 24);
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
/// are leaves.
void HuffmanCode::CountDepths() {
  std::array<uint16_t, kMaxHuffmanSymbols> depth;  // Of inner nodes; of their parents first.
  const size_t innerNodes = MergeLeaves(depth);
  if (innerNodes == 0) {
    deepest_ = 1;
    leavesAtDepth_[1] = 1;
    return;
  }
  depth[innerNodes - 1] = 0;
  for (size_t node = innerNodes - 1; node-- > 0;) depth[node] = static_cast<uint16_t>(depth[depth[node]] + 1);
  deepest_ = depth[0] + size_t{1};  // A node is never deeper than one made before it.
  std::fill_n(leavesAtDepth_.begin(), deepest_ + 1, uint16_t{0});
  for (size_t node = 0; node < innerNodes; ++node) leavesAtDepth_[depth[node] + size_t{1}] += 2;
  for (size_t node = 0; node + 1 < innerNodes; ++node) --leavesAtDepth_[depth[node]];
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

/// The rarest symbols get the longest codes.
void HuffmanCode::AssignBits() {
  size_t leaf = 0;
  for (size_t depth = deepest_; depth > 0; --depth)
    for (size_t left = leavesAtDepth_[depth]; left > 0; --left)
      bits_[leaves_[leaf++] & 0xFFFF] = static_cast<uint8_t>(depth);
}

void HuffmanCode::AssignCodes() {
  std::array<uint32_t, kMaxCodeBits + 1> nextCode{};
  for (size_t depth = 1; depth <= deepest_; ++depth)
    nextCode[depth] = (nextCode[depth - 1] + (depth > 1 ? leavesAtDepth_[depth - 1] : 0U)) << 1;
  for (const uint16_t symbol : Used())
    codes_[symbol] = static_cast<uint16_t>(ReversedBits(nextCode[bits_[symbol]]++, bits_[symbol]));
}

}  // namespace cvn::agent
