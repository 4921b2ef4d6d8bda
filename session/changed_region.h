#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "base/geometry.h"
#include "capture/screen_capturer.h"

namespace cvn::agent {

/// Where the newest captured frame may differ from the one that the encoder saw last: what the capturer's
/// hints say about every frame in between, so that nothing of a frame that was never encoded is lost.
///
/// Starts unknown: an encoder that has seen nothing has nothing to differ from. One thread at a time.
class ChangedRegion {
 public:
  /// Takes in the frame that was captured after those already taken in.
  void Add(const CapturedFrame& frame);
  /// Nothing is known any more, until `Clear`.
  void Forget();
  /// The encoder has seen the newest frame.
  void Clear();

  /// True when the newest frame surely equals the one that the encoder saw last.
  bool Empty() const { return known_ && rects_.empty(); }
  /// Absent when unknown. Borrowed until the next change.
  std::optional<std::span<const PixelRect>> Rects() const;

 private:
  bool known_ = false;
  std::vector<PixelRect> rects_;
};

}  // namespace cvn::agent
