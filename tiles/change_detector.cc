#include "tiles/change_detector.h"

#include <algorithm>

#include "tiles/tile_hash.h"

namespace cvn::agent {

ChangeDetector::ChangeDetector(const TileGrid& grid)
    : grid_(grid),
      hashes_(static_cast<size_t>(grid.TileCount())),
      touched_(hashes_.size()),
      runHashes_(static_cast<size_t>(grid.Columns())) {
  differing_.reserve(hashes_.size());
}

std::span<const int> ChangeDetector::Detect(std::span<const uint8_t> frame,
                                            const std::optional<std::span<const PixelRect>>& changed) {
  const bool lookEverywhere = !changed || !haveHashes_;
  std::fill(touched_.begin(), touched_.end(), static_cast<uint8_t>(lookEverywhere));
  if (!lookEverywhere)
    for (const PixelRect& rect : *changed) MarkTouched(rect);
  differing_.clear();
  for (int row = 0; row < grid_.Rows(); ++row) CompareRow(frame, row);
  haveHashes_ = true;
  return differing_;
}

void ChangeDetector::MarkTouched(PixelRect rect) {
  const int left = std::max(rect.left, 0);
  const int top = std::max(rect.top, 0);
  const int right = std::min(rect.right, grid_.Width());
  const int bottom = std::min(rect.bottom, grid_.Height());
  if (left >= right || top >= bottom) return;
  const int firstColumn = left / grid_.TileWidth();
  const int endColumn = (right - 1) / grid_.TileWidth() + 1;
  const int endRow = (bottom - 1) / grid_.TileHeight() + 1;
  for (int row = top / grid_.TileHeight(); row < endRow; ++row) {
    const auto columns = touched_.begin() + row * grid_.Columns();
    std::fill(columns + firstColumn, columns + endColumn, uint8_t{1});
  }
}

void ChangeDetector::CompareRow(std::span<const uint8_t> frame, int row) {
  const auto rowBegin = touched_.begin() + row * grid_.Columns();
  const auto rowEnd = rowBegin + grid_.Columns();
  for (auto runBegin = std::find(rowBegin, rowEnd, 1); runBegin != rowEnd;) {
    const auto runEnd = std::find(runBegin, rowEnd, 0);
    CompareRun(frame, static_cast<int>(runBegin - touched_.begin()), static_cast<int>(runEnd - runBegin));
    runBegin = std::find(runEnd, rowEnd, 1);
  }
}

void ChangeDetector::CompareRun(std::span<const uint8_t> frame, int firstIndex, int count) {
  const std::span<uint64_t> hashes = std::span(runHashes_).first(static_cast<size_t>(count));
  HashTiles(grid_, frame, firstIndex, hashes);
  for (int index = firstIndex; const uint64_t hash : hashes) {
    uint64_t& previous = hashes_[static_cast<size_t>(index)];
    if (!haveHashes_ || hash != previous) differing_.push_back(index);
    previous = hash;
    ++index;
  }
}

}  // namespace cvn::agent
