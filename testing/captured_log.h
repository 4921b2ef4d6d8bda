#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "base/log.h"
#include "base/mutex.h"

namespace cvn::agent {

/// Collects what is logged while it lives, each line as "INF text" or "WRN text", without time stamps. One at
/// a time; any thread may log or look.
class CapturedLog {
 public:
  CapturedLog() {
    Log().Observe([this](std::string_view level, std::string_view message) {
      MutexLock lock(mutex_);
      lines_.push_back(std::string(level) + " " + std::string(message));
    });
  }
  ~CapturedLog() { Log().Observe({}); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  std::vector<std::string> Lines() const {
    MutexLock lock(mutex_);
    return lines_;
  }

  /// How many lines equal `line` exactly.
  size_t Count(std::string_view line) const {
    MutexLock lock(mutex_);
    return static_cast<size_t>(std::count(lines_.begin(), lines_.end(), line));
  }

  /// Whether any line contains `part`.
  bool Mentions(std::string_view part) const {
    MutexLock lock(mutex_);
    return std::any_of(lines_.begin(), lines_.end(),
                       [part](const std::string& line) { return line.find(part) != std::string::npos; });
  }

 private:
  mutable Mutex mutex_;
  std::vector<std::string> lines_ GUARDED_BY(mutex_);
};

}  // namespace cvn::agent
