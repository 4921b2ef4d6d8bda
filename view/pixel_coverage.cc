#include "view/pixel_coverage.h"

#include <algorithm>
#include <bit>

namespace cvn::view {
namespace {

constexpr size_t kWordBits = 64;

/// Bits `begin` to `end`, exclusive; there is at least one.
uint64_t Mask(size_t begin, size_t end) {
  return (~uint64_t{0} >> (kWordBits - (end - begin))) << begin;
}

}  // namespace

void PixelCoverage::Restart(PictureSize size) {
  wordsPerRow_ = (static_cast<size_t>(size.width) + kWordBits - 1) / kWordBits;
  words_.assign(wordsPerRow_ * static_cast<size_t>(size.height), 0);
  missing_ = size.Pixels();
}

void PixelCoverage::Add(int x, int y, int width, int height) {
  if (missing_ == 0) return;
  ForEachWord(x, y, width, height, [this](uint64_t& word, uint64_t mask) {
    missing_ -= std::popcount(mask & ~word);
    word |= mask;
  });
}

void PixelCoverage::Remove(int x, int y, int width, int height) {
  ForEachWord(x, y, width, height, [this](uint64_t& word, uint64_t mask) {
    missing_ += std::popcount(mask & word);
    word &= ~mask;
  });
}

template <typename OnWord>
void PixelCoverage::ForEachWord(int x, int y, int width, int height, OnWord onWord) {
  const auto left = static_cast<size_t>(x);
  const size_t right = left + static_cast<size_t>(width);
  for (auto row = static_cast<size_t>(y); row < static_cast<size_t>(y) + static_cast<size_t>(height); ++row) {
    uint64_t* words = words_.data() + row * wordsPerRow_;
    for (size_t at = left; at < right;) {
      const size_t wordStart = at / kWordBits * kWordBits;
      const size_t end = std::min(right, wordStart + kWordBits);
      onWord(words[at / kWordBits], Mask(at - wordStart, end - wordStart));
      at = end;
    }
  }
}

}  // namespace cvn::view
