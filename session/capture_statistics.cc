#include "session/capture_statistics.h"

#include "base/log.h"

namespace cvn::agent {
namespace {

constexpr int64_t kPeriodMs = 30'000;
constexpr double kNsPerMs = 1'000'000;

}  // namespace

double CaptureStatistics::Durations::AverageMs() const {
  return count == 0 ? 0 : static_cast<double>(totalNs) / kNsPerMs / static_cast<double>(count);
}

double CaptureStatistics::Durations::LongestMs() const {
  return static_cast<double>(longestNs) / kNsPerMs;
}

void CaptureStatistics::LogWhenDue(int64_t nowMs) {
  if (nowMs - startMs_ < kPeriodMs) return;
  LogLine(nowMs - startMs_);
  *this = CaptureStatistics(nowMs);
}

void CaptureStatistics::LogLine(int64_t elapsedMs) const {
  Log().Info(
      "[session] capture %s: %d encoded, %d unchanged-skipped, %d late in the last %.0f s; capture "
      "avg/max=%.2f/%.2f ms (%lld samples), encode+admit avg/max=%.2f/%.2f ms (%lld samples)%s",
      late_ == 0 ? "stats" : "loop overloaded", encoded_, unchanged_, late_,
      static_cast<double>(elapsedMs) / 1000, capture_.AverageMs(), capture_.LongestMs(),
      static_cast<long long>(capture_.count), admit_.AverageMs(), admit_.LongestMs(),
      static_cast<long long>(admit_.count), idlePaced_ == 0 ? "" : "; idle-paced");
}

}  // namespace cvn::agent
