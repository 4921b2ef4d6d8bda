#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "capture/screen_capturer.h"

namespace cvn::agent {

/// The session's capturer, and the choice between the host's ways of making one. Says in the log when it has
/// to do without Desktop Duplication on a host that has it. Capture thread only.
///
/// Whatever fails to be replaced stays in use.
class CaptureSource {
 public:
  explicit CaptureSource(CaptureBackends backends) : backends_(std::move(backends)) {}

  /// A capturer for `monitor`, Desktop Duplication first. False, with the reason logged, when none could be
  /// made.
  bool Open(int32_t monitor, int64_t nowMs);
  /// A new capturer for a monitor on which capture keeps failing: Desktop Duplication where that has worked
  /// before, else the fallback.
  bool Rebuild(int32_t monitor);
  /// Whether the fallback has been in use for so long that Desktop Duplication is worth another try.
  bool DuplicationRetryDue(int64_t nowMs) const;
  /// That try; true when it is now in use.
  bool RetryDuplication(int32_t monitor, int64_t nowMs);
  void Close() { capturer_.reset(); }

  /// The rest only between a successful `Open` and `Close`.

  /// Whether a fallback stands in for Desktop Duplication and so has to read and compare whole frames. Never
  /// on a host without Desktop Duplication: what it has instead knows what changed.
  bool ReadsFullFrames() const { return backends_.duplication && !capturer_->UsesDesktopDuplication(); }
  ScreenCapturer& Capturer() const { return *capturer_; }

 private:
  bool UseDuplication(int32_t monitor, std::string& error);
  bool UseFallback(int32_t monitor, std::string& error);
  void ReportUnavailable(const std::string& error);

  CaptureBackends backends_;
  std::unique_ptr<ScreenCapturer> capturer_;
  /// Monitors on which Desktop Duplication has worked in this session.
  std::set<int32_t> duplicatedMonitors_;
  int64_t lastDuplicationTryMs_ = 0;
  std::string lastDuplicationError_;
};

}  // namespace cvn::agent
