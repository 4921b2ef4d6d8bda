#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "base/clock.h"
#include "base/geometry.h"
#include "capture/display_system.h"
#include "capture/screen_capturer.h"
#include "session/capture_source.h"
#include "session/capture_statistics.h"
#include "session/frame_pacer.h"
#include "session/producer_load.h"
#include "session/quality_control.h"
#include "session/session_requests.h"
#include "session/tile_stream_sender.h"

namespace cvn::agent {

/// What the capture loop works with; everything borrowed outlives it.
struct CaptureTurnParts {
  const Clock& clock;
  DisplaySystem& displays;
  CaptureBackends backends;
  TileStreamSender& sender;
  SessionRequests& requests;
  QualityControl& quality;
};

/// The capture loop, one turn at a time: captures the screen at the paced rate, hands what changed to the
/// sender, follows the supporter's requests and reports, makes a resting picture exact, keeps a resting link
/// alive and a failing capturer retried.
///
/// Starts no thread and never sleeps: whoever calls `Run` waits as long as it says, or less when
/// `SessionRequests::signal` is raised. All calls from one thread, which capture may attach to another
/// desktop.
class CaptureTurn {
 public:
  explicit CaptureTurn(CaptureTurnParts parts);

  /// Attaches the thread and makes a capturer. False when there is none: no turn may be run.
  bool Begin();
  /// Takes a turn when one is due, and feeds the transport in any case. Returns how long to wait: nothing, or
  /// at least 1 ms. No frame that fails to be captured or encoded ends the loop.
  std::chrono::nanoseconds Run();
  /// Gives everything back. Also after a failed `Begin`.
  void End();

 private:
  struct Geometry {
    int32_t streamedWidth = 0;
    int32_t streamedHeight = 0;
    int32_t capturedWidth = 0;
    int32_t capturedHeight = 0;
    QualityControl::Choice chosen;
    bool operator==(const Geometry&) const = default;
  };

  /// Captures that failed in a row.
  struct FailingRun {
    int frames = 0;
    int attempts = 0;
    int64_t startMs = 0;
    int64_t lastAttemptMs = 0;
  };

  std::chrono::nanoseconds TimeToWait(int64_t pumpedBytes, int64_t improvedBytes);
  void TakeTurn(int64_t nowNs);
  void FinishTurn();
  int64_t ImprovePicture();
  TurnReasons PendingReasons() const;
  TurnReasons TakeReasons();
  void FollowReports();
  void FollowMonitorRequest();
  void RetryDuplication();
  void CaptureFrame();
  void HandleFrame(const CapturedFrame& frame);
  void SendFrame(const CapturedFrame& frame);
  void AnnounceLiveness();
  void HandleFailedCapture();
  void KeepViewerWaiting(int64_t nowMs);
  bool ReattachDue(int64_t nowMs) const;
  void Reattach(int64_t nowMs);
  /// The capturer is another one, or captures another area now.
  void UseNewArea();
  void UseAndLogNewArea();
  PixelRect CapturedArea() const;
  void LogArea() const;
  void LogGeometry(const CapturedFrame& frame);
  void LogSkippedFrame(const char* reason);
  bool RestedFor(int64_t ms) const;

  const Clock& clock_;
  DisplaySystem& displays_;
  TileStreamSender& sender_;
  SessionRequests& requests_;
  QualityControl& quality_;
  CaptureSource source_;
  FramePacer pacer_;
  ProducerLoad load_;
  CaptureStatistics statistics_;
  int64_t pumpWaitNs_;
  int32_t monitor_ = -1;
  PixelRect area_;
  Geometry loggedGeometry_;
  /// What the sender was given last, while its pixels are still there.
  std::optional<CapturedFrame> still_;
  FailingRun failing_;
  /// Time of the first unchanged frame of the current run of them, negative while there is none.
  int64_t restingSinceMs_ = -1;
  int64_t lastSentMs_ = 0;
  /// Of those that a failing capture has sent.
  int64_t lastHeartbeatMs_ = 0;
  int capturedFrames_ = 0;
  bool hasSent_ = false;
  bool heartbeatArmed_ = true;
  std::string loggedSkipReason_;
};

}  // namespace cvn::agent
