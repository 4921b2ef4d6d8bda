#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "view/picture_size.h"

namespace cvn::view {

/// Knows which pixels of a picture have arrived at least once, and when that is all of them. One bit a pixel;
/// rectangles may overlap and come in any order. One thread at a time.
class PixelCoverage {
 public:
  /// Forgets everything: a picture of `size` of which nothing has arrived.
  void Restart(PictureSize size);

  /// The rectangle lies inside the picture. Costs nothing once everything has arrived.
  void Add(int x, int y, int width, int height);

  int64_t MissingPixels() const { return missing_; }

 private:
  std::vector<uint64_t> words_;
  size_t wordsPerRow_ = 0;
  int64_t missing_ = 0;
};

}  // namespace cvn::view
