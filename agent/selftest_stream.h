#pragma once

#include "agent/selftest_parts.h"
#include "agent/selftest_report.h"
#include "capture/screen_capturer.h"

namespace cvn::agent {

/// The self-test's second half: what the captured screen costs as a tile stream.

/// Reports grid, keyframe and static frame, and decodes what the agent can decode of the keyframe. The static
/// frame is the same captured frame once more, so that a screen on which something moves is none the worse.
/// Throws what the tile encoder throws.
void ReportTiles(const SelftestParts& parts, const CapturedFrame& frame, SelftestReport& report);

/// Reports what each preset makes of `frame`, the capturer's latest, and of the screen a moment later. All of
/// them see the same two frames. Throws what the tile encoder throws.
void ReportPresets(const SelftestParts& parts, ScreenCapturer& capturer, const CapturedFrame& frame,
                   SelftestReport& report);

}  // namespace cvn::agent
