#pragma once

#include <xcb/damage.h>

#include <cstdint>
#include <vector>

#include "base/geometry.h"
#include "capture/linux/xcb_connection.h"

namespace cvn::agent {

/// What was drawn on the screen since it was last asked. A server that cannot tell is taken to draw all over
/// the screen all the time. One thread at a time.
class X11Damage {
 public:
  explicit X11Damage(XcbConnection& connection);

  /// Looks whether `event` tells of damage; true when it does. The server says so once until `Take`.
  bool Notice(const xcb_generic_event_t& event);
  /// Whether there is anything to take; costs nothing.
  bool Any() const { return any_ || damage_ == 0; }

  /// Appends the damaged rectangles of the root window to `rects` and starts collecting anew: what is drawn
  /// from now on is for the next time, so pixels read after this call miss nothing. False when the server did
  /// not answer; then the whole screen is to be read.
  bool Take(std::vector<PixelRect>& rects);

 private:
  void Create();

  XcbConnection& connection_;
  xcb_damage_damage_t damage_ = 0;
  xcb_xfixes_region_t taken_ = 0;
  uint8_t firstEvent_ = 0;
  bool any_ = true;
};

}  // namespace cvn::agent
