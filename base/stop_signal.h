#pragma once

#include <chrono>

#include "base/mutex.h"

namespace cvn::agent {

/// Ends a thread's work from outside: the thread waits on it between turns, everybody else may set or wake
/// it.
///
/// `Wake` ends one wait early without stopping: it says that something worth a turn has happened (an input
/// message, a damaged screen). A wake that finds nobody waiting ends the next wait.
class StopSignal {
 public:
  void Set() EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    set_ = true;
    changed_.NotifyAll();
  }
  void Wake() EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    woken_ = true;
    changed_.NotifyAll();
  }

  bool IsSet() const EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    return set_;
  }

  /// Waits for at most `timeout`, less when set or woken. Returns true when a `Wake` ended it.
  bool WaitFor(std::chrono::nanoseconds timeout) EXCLUDES(mutex_) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    MutexLock lock(mutex_);
    while (!set_ && !woken_) {
      const auto left = deadline - std::chrono::steady_clock::now();
      if (left <= std::chrono::nanoseconds::zero()) break;
      changed_.WaitFor(mutex_, left);
    }
    const bool woken = woken_;
    woken_ = false;
    return woken;
  }

 private:
  mutable Mutex mutex_;
  ConditionVariable changed_;
  bool set_ GUARDED_BY(mutex_) = false;
  bool woken_ GUARDED_BY(mutex_) = false;
};

}  // namespace cvn::agent
