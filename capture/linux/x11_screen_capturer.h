#pragma once

#include <functional>
#include <string>

#include "capture/display_system.h"
#include "capture/screen_capturer.h"

namespace cvn::agent {

/// The way of capturing an X server: `fallback` reads the root window, `duplication` stays empty.
///
/// Every capturer holds its own connection and a thread that calls `screenTouched` when something to capture
/// happened while nobody captured; at most once between two captures, and never after the capturer's end. The
/// callback must not wait for whoever destroys the capturer; it may be empty. When the server goes away,
/// `Capture` returns false from then on.
///
/// `displays` is borrowed and outlives the capturers. `displayName` empty means $DISPLAY.
CaptureBackends CreateX11CaptureBackends(DisplaySystem& displays, std::function<void()> screenTouched,
                                         const std::string& displayName = {});

}  // namespace cvn::agent
