#pragma once

#include <cstdint>
#include <vector>

#include "base/geometry.h"
#include "capture/kept_frame.h"

namespace cvn::agent {

/// A mouse cursor's picture: B, G, R, A pixels whose colours are already multiplied by their alpha.
struct CursorImage {
  int32_t width = 0;
  int32_t height = 0;
  /// The pixel of the picture that points.
  int32_t hotX = 0;
  int32_t hotY = 0;
  std::vector<uint32_t> pixels;
};

/// Draws the cursor into a kept picture and takes it off again, so that the picture beneath stays clean. One
/// thread at a time.
class CursorOverlay {
 public:
  /// For the next `Draw`; `pixels` holds width * height pixels.
  void SetImage(CursorImage image) { image_ = std::move(image); }

  /// The part of the picture that the drawn cursor covers; empty when none is drawn.
  const PixelRect& Covered() const { return covered_; }

  /// Puts back the pixels that the cursor covers.
  void Lift(KeptFrame& frame);

  /// Draws the cursor, which is not drawn now, so that it points at (`x`, `y`) of the picture; what lies
  /// outside is cut off.
  void Draw(KeptFrame& frame, int32_t x, int32_t y);

  /// The picture was replaced: there is nothing to put back.
  void Forget() { covered_ = {}; }

 private:
  CursorImage image_;
  PixelRect covered_;
  std::vector<uint32_t> beneath_;
};

}  // namespace cvn::agent
