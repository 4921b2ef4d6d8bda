#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/geometry.h"

namespace cvn::agent {

/// The common part of two rectangles; empty when there is none.
PixelRect Intersection(const PixelRect& a, const PixelRect& b);

/// Reading a rectangle of the screen costs about as much as reading this many pixels more of another one.
inline constexpr int64_t kRectCostPixels = 4096;
inline constexpr size_t kMaxReadRects = 32;

/// Turns damaged rectangles into the ones worth reading, in place: cut to `area`, merged where one larger
/// rectangle is cheaper than two, never more than `kMaxReadRects`, and together never more pixels than their
/// bounding box. What was covered stays covered.
void PlanReads(std::vector<PixelRect>& rects, const PixelRect& area);

}  // namespace cvn::agent
