#include "capture/rect_plan.h"

#include <algorithm>
#include <limits>

namespace cvn::agent {
namespace {

int64_t Pixels(const PixelRect& rect) {
  return int64_t{rect.Width()} * rect.Height();
}

PixelRect BoundingBox(const PixelRect& a, const PixelRect& b) {
  return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right),
          std::max(a.bottom, b.bottom)};
}

/// The pixels that one read of both costs more than two reads.
int64_t Waste(const PixelRect& a, const PixelRect& b) {
  return Pixels(BoundingBox(a, b)) - Pixels(a) - Pixels(b);
}

/// Merges `rect` into the one of the first `count` where it wastes least, or makes it number `count`.
size_t Add(std::vector<PixelRect>& rects, size_t count, const PixelRect& rect) {
  size_t best = 0;
  int64_t leastWaste = std::numeric_limits<int64_t>::max();
  for (size_t i = 0; i < count; ++i) {
    const int64_t waste = Waste(rects[i], rect);
    if (waste >= leastWaste) continue;
    leastWaste = waste;
    best = i;
  }
  if (leastWaste <= kRectCostPixels || count == kMaxReadRects) {
    rects[best] = BoundingBox(rects[best], rect);
    return count;
  }
  rects[count] = rect;
  return count + 1;
}

}  // namespace

PixelRect Intersection(const PixelRect& a, const PixelRect& b) {
  const PixelRect common = {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                            std::min(a.bottom, b.bottom)};
  return common.Empty() ? PixelRect{} : common;
}

void PlanReads(std::vector<PixelRect>& rects, const PixelRect& area) {
  size_t count = 0;
  for (size_t i = 0; i < rects.size(); ++i) {
    const PixelRect inside = Intersection(rects[i], area);
    if (!inside.Empty()) count = Add(rects, count, inside);
  }
  rects.resize(count);
  if (count < 2) return;

  int64_t pixels = 0;
  PixelRect box = rects.front();
  for (const PixelRect& rect : rects) {
    pixels += Pixels(rect);
    box = BoundingBox(box, rect);
  }
  if (pixels >= Pixels(box)) rects.assign(1, box);
}

}  // namespace cvn::agent
