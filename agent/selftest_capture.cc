#include "agent/selftest_capture.h"

#include <cstring>
#include <string>
#include <vector>

#include "capture/capture_area.h"

namespace cvn::agent {
namespace {

constexpr int kCaptureAttempts = 40;
constexpr std::chrono::milliseconds kAttemptInterval{50};

std::unique_ptr<ScreenCapturer> OpenFallback(const SelftestParts& parts,
                                             const std::string& duplicationFailure, SelftestReport& report) {
  std::string error;
  auto capturer = parts.backends.fallback(parts.monitor, error);
  if (capturer == nullptr) {
    report.Wrong("capture", "cannot start: %s", error.c_str());
  } else if (duplicationFailure.empty()) {
    report.Line("capture", "%s", parts.fallbackName);
  } else {
    report.Line("capture", "%s (no Desktop Duplication: %s)", parts.fallbackName, duplicationFailure.c_str());
  }
  return capturer;
}

std::unique_ptr<ScreenCapturer> OpenBackend(const SelftestParts& parts, SelftestReport& report) {
  std::string error;
  if (!parts.backends.duplication) return OpenFallback(parts, error, report);
  auto capturer = parts.backends.duplication(parts.monitor, error);
  if (capturer == nullptr) return OpenFallback(parts, error, report);
  report.Line("capture", "DXGI Desktop Duplication");
  return capturer;
}

void ReportMonitors(const std::vector<PixelRect>& monitors, SelftestReport& report) {
  report.Line("monitors", "%zu", monitors.size());
  for (size_t i = 0; i < monitors.size(); ++i) {
    const PixelRect& monitor = monitors[i];
    report.Line("", "%zu is %dx%d at %d,%d", i, monitor.Width(), monitor.Height(), monitor.left, monitor.top);
  }
}

std::string NameOfArea(int32_t requested, int32_t captured) {
  if (captured != kAllDisplays) return "monitor " + std::to_string(captured);
  if (requested < 0) return "all displays";
  return "all displays, since there is no monitor " + std::to_string(requested);
}

/// What a capturer delivers that cannot read the screen, and what an empty screen looks like.
bool HasOneColour(const CapturedFrame& frame) {
  return frame.byteSize > 4 && std::memcmp(frame.pixels, frame.pixels + 4, frame.byteSize - 4) == 0;
}

const char* Remark(const CapturedFrame& frame) {
  if (HasOneColour(frame)) return ", all of one colour: an empty screen, or one that cannot be read";
  return frame.unchanged ? ", unchanged" : "";
}

}  // namespace

std::unique_ptr<ScreenCapturer> OpenScreen(const SelftestParts& parts, SelftestReport& report) {
  if (!parts.displays.AttachToInputDesktop())
    report.Line("desktop", "the one that receives input cannot be reached; capturing this program's own");
  auto capturer = OpenBackend(parts, report);
  if (capturer == nullptr) return nullptr;
  ReportMonitors(OrderedMonitors(parts.displays), report);
  report.Line("area", "%dx%d at %d,%d (%s)", capturer->Width(), capturer->Height(), capturer->OriginX(),
              capturer->OriginY(), NameOfArea(parts.monitor, capturer->MonitorIndex()).c_str());
  return capturer;
}

std::optional<CapturedFrame> CaptureFrame(const SelftestParts& parts, ScreenCapturer& capturer,
                                          const char* label, SelftestReport& report) {
  CapturedFrame frame;
  for (int attempt = 0; attempt < kCaptureAttempts; ++attempt) {
    if (attempt > 0) parts.wait(kAttemptInterval);
    const int64_t startNs = parts.clock.NowNs();
    if (!capturer.Capture(frame)) continue;
    const double ms = MillisecondsSince(parts.clock, startNs);
    report.Line(label, "%ux%u in %.1f ms%s", frame.width, frame.height, ms, Remark(frame));
    return frame;
  }
  report.Wrong(label, "none in %d attempts", kCaptureAttempts);
  return std::nullopt;
}

}  // namespace cvn::agent
