#pragma once

#include <atomic>
#include <cstdint>

#include "base/stop_signal.h"
#include "session/quality_reports.h"

namespace cvn::agent {

/// What other threads want of the capture thread. Set from anywhere, read by the capture loop on its next
/// turn.
struct SessionRequests {
  explicit SessionRequests(int32_t monitorIndex) : monitor(monitorIndex) {}

  /// The monitor that the supporter wants to see, -1 for all displays.
  std::atomic<int32_t> monitor;
  std::atomic<bool> showCursor = false;
  std::atomic<bool> repaint = false;
  /// Deliberate: a report does not end a rest, or a viewer that reports every second would never let it
  /// begin.
  QualityReports qualityReports;
  /// Raised by the two calls below, taken by the capture loop.
  std::atomic<bool> supporterActed = false;
  std::atomic<bool> screenTouched = false;
  /// Ends the capture thread and its waits.
  StopSignal signal;

  /// The supporter did something whose answer must not wait for an idle interval.
  void NoteSupporterActed() { Raise(supporterActed); }
  /// The screen has changed.
  void NoteScreenTouched() { Raise(screenTouched); }

 private:
  void Raise(std::atomic<bool>& flag) {
    if (!flag.exchange(true)) signal.Wake();
  }
};

}  // namespace cvn::agent
