#include "view/pixel_coverage.h"

#include <algorithm>
#include <bit>

namespace cvn::view {
namespace {

constexpr size_t kWordBits = 64;

/// Sets bits `begin` to `end` (exclusive, less than or equal to 64 apart in one word); returns how many were
/// new.
int SetBits(uint64_t& word, size_t begin, size_t end) {
  const size_t count = end - begin;
  const uint64_t mask = (count == kWordBits ? ~uint64_t{0} : (uint64_t{1} << count) - 1) << begin;
  const int fresh = std::popcount(mask & ~word);
  word |= mask;
  return fresh;
}

}  // namespace

void PixelCoverage::Restart(PictureSize size) {
  wordsPerRow_ = (static_cast<size_t>(size.width) + kWordBits - 1) / kWordBits;
  words_.assign(wordsPerRow_ * static_cast<size_t>(size.height), 0);
  missing_ = size.Pixels();
}

void PixelCoverage::Add(int x, int y, int width, int height) {
  if (missing_ == 0) return;
  const auto left = static_cast<size_t>(x);
  const size_t right = left + static_cast<size_t>(width);
  for (auto row = static_cast<size_t>(y); row < static_cast<size_t>(y) + static_cast<size_t>(height); ++row) {
    uint64_t* words = words_.data() + row * wordsPerRow_;
    for (size_t at = left; at < right;) {
      const size_t wordStart = at / kWordBits * kWordBits;
      const size_t end = std::min(right, wordStart + kWordBits);
      missing_ -= SetBits(words[at / kWordBits], at - wordStart, end - wordStart);
      at = end;
    }
  }
}

}  // namespace cvn::view
