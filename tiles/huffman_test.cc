#include "tiles/huffman.h"

#include <gtest/gtest.h>

#include <functional>
#include <queue>
#include <random>
#include <vector>

namespace cvn::agent {
namespace {

using Counts = std::vector<uint16_t>;

size_t UsedIn(const Counts& counts) {
  return static_cast<size_t>(
      std::count_if(counts.begin(), counts.end(), [](uint16_t count) { return count > 0; }));
}

/// Bits of the best code without a limit of lengths: every merge adds its weight.
uint64_t BestCost(const Counts& counts) {
  std::priority_queue<uint64_t, std::vector<uint64_t>, std::greater<>> weights;
  for (const uint16_t count : counts)
    if (count > 0) weights.push(count);
  uint64_t cost = weights.size() == 1 ? weights.top() : 0;
  while (weights.size() > 1) {
    uint64_t merged = weights.top();
    weights.pop();
    merged += weights.top();
    weights.pop();
    weights.push(merged);
    cost += merged;
  }
  return cost;
}

uint64_t Cost(const HuffmanCode& code, const Counts& counts) {
  uint64_t cost = 0;
  for (const uint16_t symbol : code.Used()) cost += uint64_t{code.Bits(symbol)} * counts[symbol];
  return cost;
}

/// Lengths within the limit, complete, and codes counting up by length and symbol, first bit lowest.
void ExpectCanonicalCode(const HuffmanCode& code, const Counts& counts, unsigned maxBits) {
  ASSERT_EQ(code.Used().size(), UsedIn(counts));
  uint32_t next = 0;  // In units of the longest code.
  for (unsigned bits = 1; bits <= maxBits; ++bits) {
    for (const uint16_t symbol : code.Used()) {
      ASSERT_GT(counts[symbol], 0);
      ASSERT_TRUE(code.Bits(symbol) >= 1 && code.Bits(symbol) <= maxBits) << code.Bits(symbol);
      if (code.Bits(symbol) != bits) continue;
      uint32_t reversed = 0;
      for (unsigned bit = 0; bit < bits; ++bit) reversed = reversed << 1 | (code.Code(symbol) >> bit & 1);
      ASSERT_EQ(reversed, next >> (maxBits - bits)) << "symbol " << symbol;
      next += 1U << (maxBits - bits);
    }
  }
  const uint32_t whole = 1U << maxBits;
  ASSERT_EQ(next, code.Used().empty() ? 0 : code.Used().size() == 1 ? whole / 2 : whole) << "Kraft sum";
}

void Check(Counts counts, unsigned maxBits) {
  counts.resize((counts.size() + 31) / 32 * 32);
  static HuffmanCode code;  // One for all histograms: what an earlier one left behind must not matter.
  code.Build(counts, maxBits);
  ExpectCanonicalCode(code, counts, maxBits);
  unsigned longest = 0;
  for (const uint16_t symbol : code.Used()) longest = std::max(longest, code.Bits(symbol));
  if (longest < maxBits) {
    ASSERT_EQ(Cost(code, counts), BestCost(counts));
  } else {
    ASSERT_GE(Cost(code, counts), BestCost(counts));
  }
}

Counts Fibonacci(size_t symbols) {
  Counts counts(symbols, 1);
  for (size_t i = 2; i < symbols; ++i) counts[i] = static_cast<uint16_t>(counts[i - 1] + counts[i - 2]);
  return counts;
}

Counts RandomCounts(std::mt19937& random, size_t symbols) {
  Counts counts(symbols);
  const uint32_t sparse = 1 + random() % 4;
  for (uint16_t& count : counts) {
    if (random() % sparse == 0) count = static_cast<uint16_t>(1U << random() % 16 | random() % 3);
  }
  return counts;
}

TEST(Huffman, StaysWithinItsLimitsAndComplete) {
  Counts lonely(286);
  lonely[256] = 1;
  Counts oneEach(286, 1);
  Counts descending = Fibonacci(23);
  std::reverse(descending.begin(), descending.end());
  Counts skewed(286, 1);
  skewed[65] = 16000;
  const struct {
    const char* what;
    Counts counts;
    unsigned maxBits;
  } rows[] = {
      {"none", Counts(30), 15},
      {"a single symbol", lonely, 15},
      {"one distance", {0, 0, 0, 7}, 15},
      {"two symbols", {3, 0, 9000}, 15},
      {"286 that occur once", oneEach, 15},
      {"286 alike", Counts(286, 57), 15},
      {"286 alike, little room", Counts(286, 57), 9},
      {"one frequent of 286", skewed, 15},
      {"as many as there are codes", Counts(256, 5), 8},
      {"Fibonacci, depth 15", Fibonacci(16), 15},
      {"Fibonacci, depth 16", Fibonacci(17), 15},
      {"Fibonacci, depth 22", Fibonacci(23), 15},
      {"Fibonacci falling", descending, 15},
      {"Fibonacci of code lengths", Fibonacci(19), 7},
      {"Fibonacci cut hard", Fibonacci(16), 4},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Check(row.counts, row.maxBits);
  }
}

TEST(Huffman, HoldsForEverySmallHistogram) {
  constexpr uint16_t kCounts[] = {0, 1, 2, 3, 5, 8, 20};
  constexpr size_t kSymbols = 6;
  for (size_t number = 0; number < 117649; ++number) {  // 7^6
    Counts counts(kSymbols);
    for (size_t i = 0, rest = number; i < kSymbols; ++i, rest /= 7) counts[i] = kCounts[rest % 7];
    for (const unsigned maxBits : {3U, 4U, 15U}) {
      Check(counts, maxBits);
      if (HasFatalFailure()) FAIL() << "histogram " << number << ", limit " << maxBits;
    }
  }
}

TEST(Huffman, HoldsForRandomHistograms) {
  std::mt19937 random(5);
  for (int round = 0; round < 4000; ++round) {
    Check(RandomCounts(random, 1 + random() % 286), 15);
    Check(RandomCounts(random, 19), 7);
    if (HasFatalFailure()) FAIL() << "round " << round;
  }
}

}  // namespace
}  // namespace cvn::agent
