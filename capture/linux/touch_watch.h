#pragma once

#include <cstdint>
#include <functional>
#include <thread>

#include "base/mutex.h"

namespace cvn::agent {

/// Waits beside a connection's only reader and says when the server sends something while nobody reads.
///
/// The reader brackets its work with `Pause` and `Resume`; after a `Resume` the callback is called at most
/// once, from the watch's own thread, and never after the watch's end. Reads nothing, and uses no time while
/// nothing arrives.
class TouchWatch {
 public:
  /// Paused at first. `descriptor` is borrowed; an empty `touched` makes the watch do nothing.
  TouchWatch(int descriptor, std::function<void()> touched);
  /// Waits for a callback that is under way.
  ~TouchWatch();
  TouchWatch(const TouchWatch&) = delete;
  TouchWatch& operator=(const TouchWatch&) = delete;

  void Pause() EXCLUDES(mutex_);
  /// `alreadyTouched`: something has arrived that the reader has read but not yet answered.
  void Resume(bool alreadyTouched) EXCLUDES(mutex_);

 private:
  /// What the thread is to wait for.
  struct Order {
    bool stop = false;
    bool armed = false;
    bool fire = false;
    uint64_t turn = 0;
  };

  void Run() EXCLUDES(mutex_);
  Order NextOrder() EXCLUDES(mutex_);
  bool Disarm(uint64_t turn) EXCLUDES(mutex_);
  void Nudge() const;

  const int descriptor_;
  const std::function<void()> touched_;
  /// Ends the thread's wait when its order has changed.
  int nudge_ = -1;

  Mutex mutex_;
  bool stop_ GUARDED_BY(mutex_) = false;
  bool armed_ GUARDED_BY(mutex_) = false;
  bool alreadyTouched_ GUARDED_BY(mutex_) = false;
  /// The thread waits without the descriptor and has to be told of a change.
  bool parked_ GUARDED_BY(mutex_) = true;
  /// Counts pauses: what arrived before the latest one was the reader's own.
  uint64_t turn_ GUARDED_BY(mutex_) = 0;

  std::thread thread_;
};

}  // namespace cvn::agent
