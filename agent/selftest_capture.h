#pragma once

#include <memory>
#include <optional>

#include "agent/selftest_parts.h"
#include "agent/selftest_report.h"

namespace cvn::agent {

/// The self-test's first half: which displays there are and how they are captured.

/// Opens the screen as a session does, Desktop Duplication first where there is any, and reports backend,
/// monitors and geometry. Null when capture cannot start, which is reported too.
std::unique_ptr<ScreenCapturer> OpenScreen(const SelftestParts& parts, SelftestReport& report);

/// The next frame, reported under `label`. A capturer may need a few attempts for its first one; no value,
/// and that reported, when there is none after two seconds.
std::optional<CapturedFrame> CaptureFrame(const SelftestParts& parts, ScreenCapturer& capturer,
                                          const char* label, SelftestReport& report);

}  // namespace cvn::agent
