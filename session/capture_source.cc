#include "session/capture_source.h"

#include <exception>
#include <utility>

#include "base/log.h"

namespace cvn::agent {
namespace {

constexpr int64_t kDuplicationRetryMs = 20'000;

/// A capturer that throws while it is made is one that cannot be made.
std::unique_ptr<ScreenCapturer> Make(const CapturerFactory& factory, int32_t monitor,
                                     std::string& error) try {
  return factory(monitor, error);
} catch (const std::exception& exception) {
  error = exception.what();
  return nullptr;
}

}  // namespace

bool CaptureSource::Open(int32_t monitor, int64_t nowMs) {
  std::string error;
  if (backends_.duplication) {
    lastDuplicationTryMs_ = nowMs;
    if (UseDuplication(monitor, error)) return true;
    ReportUnavailable(error);
  }
  if (UseFallback(monitor, error)) return true;
  Log().Warn("[session] no capturer for monitor %d: %s", monitor, error.c_str());
  return false;
}

bool CaptureSource::Rebuild(int32_t monitor) {
  std::string error;
  if (duplicatedMonitors_.contains(monitor) && UseDuplication(monitor, error)) return true;
  return UseFallback(monitor, error);
}

bool CaptureSource::DuplicationRetryDue(int64_t nowMs) const {
  return ReadsFullFrames() && nowMs - lastDuplicationTryMs_ >= kDuplicationRetryMs;
}

bool CaptureSource::RetryDuplication(int32_t monitor, int64_t nowMs) {
  std::string error;
  lastDuplicationTryMs_ = nowMs;
  if (UseDuplication(monitor, error)) {
    Log().Info("[session] Desktop Duplication recovered; back off the GDI full-frame path");
    return true;
  }
  if (error == lastDuplicationError_)
    Log().Warn("[session] Desktop Duplication still unavailable (%s); staying on GDI", error.c_str());
  else
    ReportUnavailable(error);
  return false;
}

bool CaptureSource::UseDuplication(int32_t monitor, std::string& error) {
  auto made = Make(backends_.duplication, monitor, error);
  if (!made) return false;
  capturer_ = std::move(made);
  duplicatedMonitors_.insert(monitor);
  return true;
}

bool CaptureSource::UseFallback(int32_t monitor, std::string& error) {
  auto made = Make(backends_.fallback, monitor, error);
  if (!made) return false;
  capturer_ = std::move(made);
  return true;
}

void CaptureSource::ReportUnavailable(const std::string& error) {
  lastDuplicationError_ = error;
  Log().Warn("[session] DXGI Desktop Duplication unavailable (%s), falling back to GDI BitBlt",
             error.c_str());
}

}  // namespace cvn::agent
