#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>

#include "capture/cursor_overlay.h"
#include "capture/linux/xcb_connection.h"

namespace cvn::agent {

/// The mouse cursor of the X server: where it points and what it looks like. A server that cannot tell shows
/// none. One thread at a time.
class X11Cursor {
 public:
  explicit X11Cursor(XcbConnection& connection);

  /// Whether to follow the cursor: only then does the server send events when it moves or changes.
  void Follow(bool follow);
  /// Looks whether `event` tells of a new picture.
  void Notice(const xcb_generic_event_t& event);

  struct Position {
    int32_t x = 0;
    int32_t y = 0;
    bool operator==(const Position&) const = default;
  };
  /// Where the cursor points on the root window; none when it is not followed or on another screen.
  std::optional<Position> Where() const;
  /// The cursor's picture if it is another one than the last time.
  std::optional<CursorImage> NewImage();

 private:
  void SelectEvents(bool select);

  XcbConnection& connection_;
  bool available_ = false;
  bool sendsMotion_ = false;
  uint8_t firstEvent_ = 0;
  bool followed_ = false;
  bool imageStale_ = false;
};

}  // namespace cvn::agent
