#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "session/quality_preset.h"

namespace cvn::agent {

/// What the viewer measures and what its supporter prefers. Numbers are as the peer sent them.
struct QualityReport {
  int32_t receiveKbps = 0;
  int32_t lossPermille = 0;
  int32_t rttMs = 0;
  QualityPreset preset = QualityPreset::kHigh;
  bool grayscale = false;
  /// The size in which the supporter sees the picture, for the log.
  int32_t viewportWidth = 0;
  int32_t viewportHeight = 0;
};

/// Reports on their way to the capture thread, in order. When more than 16 wait, the oldest is forgotten: the
/// newest says most. Any thread.
class QualityReports {
 public:
  void Add(const QualityReport& report) EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    if (waiting_.size() == kMostWaiting) waiting_.erase(waiting_.begin());
    waiting_.push_back(report);
  }
  std::vector<QualityReport> TakeAll() EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    return std::exchange(waiting_, {});
  }

 private:
  static constexpr size_t kMostWaiting = 16;

  Mutex mutex_;
  std::vector<QualityReport> waiting_ GUARDED_BY(mutex_);
};

}  // namespace cvn::agent
