#pragma once

#include <vector>

#include "base/geometry.h"

namespace cvn::agent {

/// What the host knows of its displays and of the desktop that receives input. Raw facts only: order,
/// numbering and the choice of an area are `capture_area.h`'s.
class DisplaySystem {
 public:
  virtual ~DisplaySystem() = default;
  /// The monitors' rectangles in any order; those that cannot be read are left out. Any thread.
  virtual std::vector<PixelRect> Monitors() = 0;
  /// The rectangle around all monitors. Any thread.
  virtual PixelRect VirtualDesktop() = 0;
  /// Attaches the calling thread to the desktop that receives input, so that capture follows the person onto
  /// the secure desktop; false leaves the thread where it was.
  virtual bool AttachToInputDesktop() = 0;
  /// Returns the calling thread to the desktop it had before its first attach.
  virtual void DetachFromInputDesktop() = 0;
};

}  // namespace cvn::agent
