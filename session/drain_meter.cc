#include "session/drain_meter.h"

#include <algorithm>

namespace cvn::agent {
namespace {

constexpr int64_t kLeastIntervalMs = 250;
constexpr double kLeastBytesPerSecond = 16'384;
constexpr double kMostBytesPerSecond = 125'000'000;
/// A backlog that vanished hides how much faster the link could have been.
constexpr double kSpareSpeedFactor = 1.25;
constexpr double kBacklogMs = 150;
constexpr double kLeastAllowedBytes = 8'192;
constexpr double kMostAllowedBytes = 65'536;

}  // namespace

uint64_t DrainMeter::AllowedBacklog(const DrainSample& sample) {
  if (!ContinuesInterval(sample)) {
    FinishInterval(sample);
    startMs_ = sample.nowMs;
    startDrainedBytes_ = sample.drainedBytes;
    startHadBacklog_ = sample.backlogBytes != 0;
  }
  return static_cast<uint64_t>(
      std::clamp(bytesPerSecond_ * kBacklogMs / 1000, kLeastAllowedBytes, kMostAllowedBytes));
}

bool DrainMeter::ContinuesInterval(const DrainSample& sample) const {
  return startMs_ >= 0 && sample.nowMs - startMs_ < kLeastIntervalMs &&
         sample.drainedBytes >= startDrainedBytes_;
}

void DrainMeter::FinishInterval(const DrainSample& sample) {
  if (startMs_ < 0 || sample.nowMs <= startMs_ || sample.drainedBytes < startDrainedBytes_) return;
  if (!startHadBacklog_) return;
  const uint64_t drainedBytes = sample.drainedBytes - startDrainedBytes_;
  const bool drainedAll = sample.backlogBytes == 0;
  if (drainedAll && drainedBytes == 0) return;
  const double measured =
      static_cast<double>(drainedBytes) * 1000.0 / static_cast<double>(sample.nowMs - startMs_);
  const double next = drainedAll ? std::max(measured, bytesPerSecond_ * kSpareSpeedFactor)
                                 : bytesPerSecond_ * 0.5 + measured * 0.5;
  bytesPerSecond_ = std::clamp(next, kLeastBytesPerSecond, kMostBytesPerSecond);
}

}  // namespace cvn::agent
