#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "base/geometry.h"
#include "tiles/tile_grid.h"

namespace cvn::agent {

/// Finds the tiles whose content differs from the frame before, by one hash each. One thread at a time;
/// allocates only at construction.
class ChangeDetector {
 public:
  /// `grid` is borrowed.
  explicit ChangeDetector(const TileGrid& grid);

  /// The tiles of `frame` that differ from the frame last given to this detector, ascending; every tile, the
  /// first time. `changed` are rectangles outside which no pixel differs from that frame (they may reach over
  /// the edge): only tiles they touch are looked at. Absent means unknown. The result is valid until the next
  /// call.
  std::span<const int> Detect(std::span<const uint8_t> frame,
                              const std::optional<std::span<const PixelRect>>& changed);

 private:
  void MarkTouched(PixelRect rect);
  void CompareRow(std::span<const uint8_t> frame, int row);
  void CompareRun(std::span<const uint8_t> frame, int firstIndex, int count);

  const TileGrid& grid_;
  std::vector<uint64_t> hashes_;
  bool haveHashes_ = false;
  std::vector<uint8_t> touched_;
  std::vector<uint64_t> runHashes_;
  std::vector<int> differing_;
};

}  // namespace cvn::agent
