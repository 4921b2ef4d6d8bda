#include "session/changed_region.h"

namespace cvn::agent {
namespace {

/// Beyond this many rectangles, sorting out the touched tiles is no longer cheap beside hashing all of them.
constexpr size_t kMostRects = 256;

}  // namespace

void ChangedRegion::Add(const CapturedFrame& frame) {
  if (frame.unchanged || !known_) return;
  if (!frame.changed || rects_.size() + frame.changed->size() > kMostRects) return Forget();
  rects_.insert(rects_.end(), frame.changed->begin(), frame.changed->end());
}

void ChangedRegion::Forget() {
  known_ = false;
  rects_.clear();
}

void ChangedRegion::Clear() {
  known_ = true;
  rects_.clear();
}

std::optional<std::span<const PixelRect>> ChangedRegion::Rects() const {
  if (!known_) return std::nullopt;
  return rects_;
}

}  // namespace cvn::agent
