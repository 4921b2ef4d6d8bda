#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "base/compiler.h"

// Checked by clang's thread-safety analysis; nothing to other compilers.
#define GUARDED_BY(mutex) CVN_THREAD_ATTRIBUTE(guarded_by(mutex))
#define REQUIRES(...) CVN_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) CVN_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

namespace cvn::agent {

/// A mutex whose guarded fields are named with GUARDED_BY and checked at compile time.
class CVN_THREAD_ATTRIBUTE(capability("mutex")) Mutex {
 public:
  void Lock() CVN_THREAD_ATTRIBUTE(acquire_capability()) { mutex_.lock(); }
  void Unlock() CVN_THREAD_ATTRIBUTE(release_capability()) { mutex_.unlock(); }

 private:
  friend class ConditionVariable;
  std::mutex mutex_;
};

/// Holds a `Mutex` for the length of a scope.
class CVN_THREAD_ATTRIBUTE(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) CVN_THREAD_ATTRIBUTE(acquire_capability(mutex)) : mutex_(mutex) {
    mutex_.Lock();
  }
  ~MutexLock() CVN_THREAD_ATTRIBUTE(release_capability()) { mutex_.Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

/// Waits on a held `Mutex`. Wake-ups may be spurious: wait in a loop that tests the condition.
class ConditionVariable {
 public:
  void Wait(Mutex& mutex) REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
    condition_.wait(held);
    held.release();
  }

  /// Returns false when `timeout` has passed without a wake-up.
  bool WaitFor(Mutex& mutex, std::chrono::nanoseconds timeout) REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
    const auto status = condition_.wait_for(held, timeout);
    held.release();
    return status == std::cv_status::no_timeout;
  }

  void NotifyOne() { condition_.notify_one(); }
  void NotifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace cvn::agent
