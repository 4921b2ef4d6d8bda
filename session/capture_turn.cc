#include "session/capture_turn.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "base/log.h"

namespace cvn::agent {
namespace {

constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kLeastWaitNs = 1 * kNsPerMs;
constexpr int64_t kMostPumpWaitNs = 10 * kNsPerMs;
constexpr int64_t kRestMs = 1'000;
constexpr int64_t kLivenessMs = 1'000;
constexpr int64_t kMostHeartbeatsMs = 10'000;
constexpr int64_t kFirstReattachMs = 100;
constexpr int64_t kNextReattachMs = 500;
constexpr int kFramesPerLook = 120;

}  // namespace

CaptureTurn::CaptureTurn(CaptureTurnParts parts)
    : clock_(parts.clock),
      displays_(parts.displays),
      sender_(parts.sender),
      requests_(parts.requests),
      quality_(parts.quality),
      source_(std::move(parts.backends)),
      pacer_(quality_.Target().framesPerSecond),
      statistics_(clock_.NowMs()),
      pumpWaitNs_(kLeastWaitNs) {}

bool CaptureTurn::Begin() {
  if (!displays_.AttachToInputDesktop())
    Log().Warn("[session] could not attach the capture thread to the input desktop; retrying during capture");
  monitor_ = requests_.monitor;
  if (!source_.Open(monitor_, clock_.NowMs())) {
    Log().Warn("[session] no screen capturer could be created; the session has no video");
    return false;
  }
  UseAndLogNewArea();
  statistics_ = CaptureStatistics(clock_.NowMs());
  return true;
}

std::chrono::nanoseconds CaptureTurn::Run() {
  const int64_t pumpedBytes = sender_.PumpPending();
  const int64_t nowNs = clock_.NowNs();
  if (nowNs >= pacer_.DueNs(PendingReasons())) TakeTurn(nowNs);
  return TimeToWait(pumpedBytes, ImprovePicture());
}

void CaptureTurn::End() {
  Log().Info("[session] capture loop ended");
  still_.reset();
  displays_.DetachFromInputDesktop();
  source_.Close();
}

/// While the transport takes what it is given, the next bite comes soon, and at once where it makes the
/// picture exact; a stalled one is left alone for longer.
std::chrono::nanoseconds CaptureTurn::TimeToWait(int64_t pumpedBytes, int64_t improvedBytes) {
  int64_t waitNs = pacer_.DueNs(PendingReasons()) - clock_.NowNs();
  if (waitNs <= 0) return std::chrono::nanoseconds::zero();
  pumpWaitNs_ = pumpedBytes + improvedBytes > 0 ? kLeastWaitNs : std::min(pumpWaitNs_ * 2, kMostPumpWaitNs);
  if (improvedBytes > 0 && !sender_.HasPending()) return std::chrono::nanoseconds::zero();
  if (sender_.HasPending() || sender_.ImprovementDue()) waitNs = std::min(waitNs, pumpWaitNs_);
  return std::chrono::nanoseconds(std::max(waitNs, kLeastWaitNs));
}

void CaptureTurn::TakeTurn(int64_t nowNs) {
  pacer_.BeginTurn(nowNs, TakeReasons());
  still_.reset();
  try {
    FollowReports();
    FollowMonitorRequest();
    RetryDuplication();
    CaptureFrame();
  } catch (const std::exception& error) {
    LogSkippedFrame(error.what());
  }
  statistics_.LogWhenDue(clock_.NowMs());
  FinishTurn();
}

void CaptureTurn::FinishTurn() {
  const bool resting = RestedFor(kRestMs) && !sender_.WantsFrame() && !sender_.HasRoughParts();
  const FramePacer::Pace pace = pacer_.FinishTurn(clock_.NowNs(), resting);
  load_.NoteTurn(clock_.NowMs(), pace.late);
  if (pace.late) statistics_.CountLate();
  if (pace.idle) statistics_.CountIdlePaced();
}

TurnReasons CaptureTurn::PendingReasons() const {
  return {.supporterActed = requests_.supporterActed, .screenTouched = requests_.screenTouched};
}

TurnReasons CaptureTurn::TakeReasons() {
  return {.supporterActed = requests_.supporterActed.exchange(false),
          .screenTouched = requests_.screenTouched.exchange(false)};
}

void CaptureTurn::FollowReports() {
  quality_.SetFullFrameCapture(source_.ReadsFullFrames());
  for (const QualityReport& report : requests_.qualityReports.TakeAll())
    quality_.Apply(report, load_.Overloaded());
  pacer_.SetFrameRate(quality_.Target().framesPerSecond);
}

void CaptureTurn::FollowMonitorRequest() {
  int32_t wanted = requests_.monitor;
  if (wanted == monitor_) return;
  if (!source_.Open(wanted, clock_.NowMs())) {
    requests_.monitor.compare_exchange_strong(wanted, monitor_);
    return;
  }
  monitor_ = wanted;
  UseNewArea();
  Log().Info("[session] switched capture to monitor %d bounds=(%d,%d) %dx%d", monitor_, area_.left, area_.top,
             area_.Width(), area_.Height());
}

void CaptureTurn::RetryDuplication() {
  const int64_t nowMs = clock_.NowMs();
  if (!RestedFor(kRestMs) || !source_.DuplicationRetryDue(nowMs)) return;
  if (source_.RetryDuplication(monitor_, nowMs)) UseAndLogNewArea();
}

void CaptureTurn::CaptureFrame() {
  ScreenCapturer& capturer = source_.Capturer();
  capturer.SetShowCursor(requests_.showCursor);
  CapturedFrame frame;
  const int64_t startNs = clock_.NowNs();
  const bool captured = capturer.Capture(frame);
  statistics_.AddCapture(clock_.NowNs() - startNs);
  if (captured)
    HandleFrame(frame);
  else
    HandleFailedCapture();
}

void CaptureTurn::HandleFrame(const CapturedFrame& frame) {
  const int64_t nowMs = clock_.NowMs();
  failing_ = {};
  if (++capturedFrames_ % kFramesPerLook == 0) sender_.LookForRoughParts();
  if (!frame.unchanged)
    restingSinceMs_ = -1;
  else if (restingSinceMs_ < 0)
    restingSinceMs_ = nowMs;
  if (CapturedArea() != area_) UseAndLogNewArea();
  if (requests_.repaint.exchange(false)) sender_.RequestRepaint();
  LogGeometry(frame);
  if (frame.unchanged && nowMs - lastSentMs_ >= kLivenessMs && !sender_.WantsFrame()) {
    statistics_.CountUnchanged();
    AnnounceLiveness();
    still_ = frame;
    return;
  }
  SendFrame(frame);
  still_ = frame;
}

void CaptureTurn::SendFrame(const CapturedFrame& frame) {
  const int64_t startNs = clock_.NowNs();
  const int64_t bytes = sender_.SendFrame(frame);
  statistics_.AddAdmission(clock_.NowNs() - startNs);
  if (bytes <= 0) return;
  statistics_.CountEncoded();
  pumpWaitNs_ = kLeastWaitNs;
  pacer_.NoteSent();
  lastSentMs_ = clock_.NowMs();
  if (std::exchange(hasSent_, true)) return;
  Log().Info("[session] first tile frame %d bytes after %d captured frames", static_cast<int>(bytes),
             capturedFrames_);
}

int64_t CaptureTurn::ImprovePicture() {
  if (!still_) return 0;
  int64_t bytes = 0;
  try {
    bytes = sender_.ImprovePicture(*still_);
  } catch (const std::exception& error) {
    LogSkippedFrame(error.what());
  }
  if (bytes > 0) lastSentMs_ = clock_.NowMs();
  return bytes;
}

/// A resting screen sends nothing, so the viewer is told once that this is what silence means.
void CaptureTurn::AnnounceLiveness() {
  if (!std::exchange(heartbeatArmed_, false)) return;
  sender_.SendHeartbeat();
  Log().Info("[tiles] liveness heartbeat announced");
}

void CaptureTurn::HandleFailedCapture() {
  const int64_t nowMs = clock_.NowMs();
  restingSinceMs_ = -1;
  if (failing_.frames++ == 0) failing_.startMs = nowMs;
  KeepViewerWaiting(nowMs);
  if (ReattachDue(nowMs)) Reattach(nowMs);
}

/// So that a viewer does not take a locked or switching desktop for a dead link.
void CaptureTurn::KeepViewerWaiting(int64_t nowMs) {
  if (!hasSent_ || nowMs - failing_.startMs >= kMostHeartbeatsMs) return;
  if (nowMs - std::max(lastSentMs_, lastHeartbeatMs_) < kLivenessMs) return;
  lastHeartbeatMs_ = nowMs;
  sender_.SendHeartbeat();
}

bool CaptureTurn::ReattachDue(int64_t nowMs) const {
  if (failing_.attempts == 0) return nowMs - failing_.startMs >= kFirstReattachMs;
  return nowMs - failing_.lastAttemptMs >= kNextReattachMs;
}

void CaptureTurn::Reattach(int64_t nowMs) {
  failing_.lastAttemptMs = nowMs;
  ++failing_.attempts;
  Log().Warn(
      "[session] capture failing for %lld ms (%d frames, attempt %d); reattaching to the active input "
      "desktop",
      static_cast<long long>(nowMs - failing_.startMs), failing_.frames, failing_.attempts);
  if (!displays_.AttachToInputDesktop())
    Log().Warn("[session] input desktop reattach failed; capture will retry");
  if (source_.Rebuild(monitor_)) UseAndLogNewArea();
}

void CaptureTurn::UseNewArea() {
  area_ = CapturedArea();
  sender_.ForgetChangeHints();
}

void CaptureTurn::UseAndLogNewArea() {
  const PixelRect before = area_;
  UseNewArea();
  if (area_ != before) LogArea();
}

PixelRect CaptureTurn::CapturedArea() const {
  const ScreenCapturer& capturer = source_.Capturer();
  return {capturer.OriginX(), capturer.OriginY(), capturer.OriginX() + capturer.Width(),
          capturer.OriginY() + capturer.Height()};
}

void CaptureTurn::LogArea() const {
  const PixelRect desktop = displays_.VirtualDesktop();
  Log().Info("[session] capture monitor=%d bounds=(%d,%d) %dx%d virtual=(%d,%d) %dx%d",
             source_.Capturer().MonitorIndex(), area_.left, area_.top, area_.Width(), area_.Height(),
             desktop.left, desktop.top, desktop.Width(), desktop.Height());
}

void CaptureTurn::LogGeometry(const CapturedFrame& frame) {
  const Geometry geometry = {.streamedWidth = static_cast<int32_t>(frame.width),
                             .streamedHeight = static_cast<int32_t>(frame.height),
                             .capturedWidth = area_.Width(),
                             .capturedHeight = area_.Height(),
                             .chosen = quality_.Chosen()};
  if (geometry == loggedGeometry_) return;
  loggedGeometry_ = geometry;
  Log().Info("[session] streaming %dx%d from %dx%d (preset=%s%s, viewport=%dx%d)", geometry.streamedWidth,
             geometry.streamedHeight, geometry.capturedWidth, geometry.capturedHeight,
             PresetName(geometry.chosen.preset), geometry.chosen.grayscale ? ", grayscale" : "",
             geometry.chosen.viewportWidth, geometry.chosen.viewportHeight);
}

void CaptureTurn::LogSkippedFrame(const char* reason) {
  if (loggedSkipReason_ == reason) return;
  loggedSkipReason_ = reason;
  Log().Warn("[session] a frame could not be sent: %s", reason);
}

bool CaptureTurn::RestedFor(int64_t ms) const {
  return restingSinceMs_ >= 0 && clock_.NowMs() - restingSinceMs_ >= ms;
}

}  // namespace cvn::agent
