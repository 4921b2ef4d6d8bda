#pragma once

#include <cstdint>

#include "tests/end_to_end/picture.h"

namespace cvn::end_to_end {

/// A part of something like a photograph: soft light and shadow in many sizes, and the grain of a camera.
/// Parts with the same `seed` belong to one scene, of which this one begins `left` pixels from its edge.
Picture Photograph(int width, int height, uint32_t seed, int left = 0);

struct Area {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

/// How alike the same part of two screens is, in decibels; infinite when it is equal.
double PeakSignalToNoise(const Picture& one, const Picture& other, const Area& area);

}  // namespace cvn::end_to_end
