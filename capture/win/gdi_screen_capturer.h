#pragma once

#include <functional>

#include "capture/display_system.h"
#include "capture/screen_capturer.h"

namespace cvn::agent {

/// The ways of capturing a Windows desktop: `fallback` copies the screen through GDI. Nothing tells of a
/// touched screen here, so `screenTouched` is never called. `displays` is borrowed and outlives the
/// capturers.
CaptureBackends CreateWinCaptureBackends(DisplaySystem& displays, std::function<void()> screenTouched);

}  // namespace cvn::agent
