#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "view/picture_size.h"

namespace cvn::view {

/// Knows which pixels of a picture are as they should be (have arrived, are exact), and when that is all of
/// them. One bit a pixel; rectangles may overlap and come in any order. One thread at a time.
class PixelCoverage {
 public:
  /// Forgets everything: a picture of `size` of which all is missing.
  void Restart(PictureSize size);

  /// The rectangle lies inside the picture. Costs nothing while nothing is missing.
  void Add(int x, int y, int width, int height);
  /// The rectangle lies inside the picture; all of it is missing again.
  void Remove(int x, int y, int width, int height);

  int64_t MissingPixels() const { return missing_; }

 private:
  /// Calls `onWord(word, mask)` for every word that holds bits of the rectangle.
  template <typename OnWord>
  void ForEachWord(int x, int y, int width, int height, OnWord onWord);

  std::vector<uint64_t> words_;
  size_t wordsPerRow_ = 0;
  int64_t missing_ = 0;
};

}  // namespace cvn::view
