#include "view/line_reporter.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace cvn::view {
namespace {

constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kLookNs = 1000 * kNsPerMs;
/// A report takes some 450 bytes and a probe as many both ways: at every look they would be most of what a
/// resting screen costs.
constexpr int64_t kRestReportNs = 10'000 * kNsPerMs;
/// A probe that has been under way for longer says nothing about the line any more: the agent has no answer.
constexpr int64_t kPatienceNs = 10'000 * kNsPerMs;

int32_t Saturated(int64_t number) {
  return static_cast<int32_t>(std::min<int64_t>(number, std::numeric_limits<int32_t>::max()));
}

/// 1 kbit/s is 1 bit a millisecond.
int64_t Kbps(int64_t bytes, int64_t elapsedNs) {
  return bytes * 8 * kNsPerMs / elapsedNs;
}

}  // namespace

LineReporter::LineReporter(const agent::Clock& clock, QualityWishes wishes, SendControl send)
    : clock_(clock), wishes_(std::move(wishes)), send_(std::move(send)) {}

void LineReporter::Begin() {
  agent::ControlMessage report;
  {
    agent::MutexLock lock(mutex_);
    measuredFromNs_ = lastReportNs_ = clock_.NowNs();
    report = Report(0, lastReportNs_);
  }
  send_(report);
}

void LineReporter::NoteTiles(size_t byteCount, PictureSize size) {
  agent::MutexLock lock(mutex_);
  bytes_ += static_cast<int64_t>(byteCount);
  size_ = size;
}

void LineReporter::NoteMonitor(int32_t monitor) {
  agent::MutexLock lock(mutex_);
  if (probeSentNs_) roundTripNs_ = std::max<int64_t>(clock_.NowNs() - *probeSentNs_, 1);
  if (!monitor_) probeDue_ = true;
  probeSentNs_.reset();
  monitor_ = monitor;
}

void LineReporter::Tick() {
  std::optional<agent::ControlMessage> report;
  std::optional<agent::ControlMessage> probe;
  {
    agent::MutexLock lock(mutex_);
    const int64_t nowNs = clock_.NowNs();
    report = DueReport(nowNs);
    probe = DueProbe(nowNs);
  }
  if (report) send_(*report);
  if (probe) send_(*probe);
}

std::optional<agent::ControlMessage> LineReporter::DueReport(int64_t nowNs) {
  const int64_t elapsedNs = nowNs - measuredFromNs_;
  if (elapsedNs < kLookNs) return std::nullopt;
  const int64_t bytes = std::exchange(bytes_, 0);
  measuredFromNs_ = nowNs;
  if (bytes > 0) probeDue_ = true;
  // A line on which an answer is overdue is not at rest but stuck.
  const bool atRest = bytes == 0 && (!probeSentNs_ || nowNs - *probeSentNs_ >= kPatienceNs);
  if (atRest && nowNs - lastReportNs_ < kRestReportNs) return std::nullopt;
  lastReportNs_ = nowNs;
  return Report(Kbps(bytes, elapsedNs), nowNs);
}

std::optional<agent::ControlMessage> LineReporter::DueProbe(int64_t nowNs) {
  if (!probeDue_ || probeSentNs_ || !monitor_) return std::nullopt;
  probeDue_ = false;
  probeSentNs_ = nowNs;
  agent::ControlMessage probe;
  probe.type = agent::kSelectMonitor;
  probe.index = *monitor_;
  return probe;
}

agent::ControlMessage LineReporter::Report(int64_t kbps, int64_t nowNs) const {
  const int64_t roundTripNs = RoundTripNs(nowNs);
  agent::ControlMessage report;
  report.type = agent::kQuality;
  report.kbps = Saturated(kbps);
  // Less than a millisecond is a measurement all the same, which 0 is not.
  report.rttMs = roundTripNs == 0 ? 0 : Saturated(std::max<int64_t>(roundTripNs / kNsPerMs, 1));
  report.preset = wishes_.preset;
  report.gray = wishes_.gray;
  report.viewportWidth = size_.width;
  report.viewportHeight = size_.height;
  return report;
}

/// 0 when nothing is known. An answer that is overdue tells as much as one that has come.
int64_t LineReporter::RoundTripNs(int64_t nowNs) const {
  if (!probeSentNs_) return roundTripNs_;
  const int64_t waitedNs = nowNs - *probeSentNs_;
  return waitedNs >= kPatienceNs ? 0 : std::max(waitedNs, roundTripNs_);
}

}  // namespace cvn::view
