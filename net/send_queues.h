#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "base/mutex.h"
#include "net/channel.h"

namespace cvn::agent {

/// What a connection still has to write: a first-in first-out queue for each channel, with the byte counts
/// that senders throttle on. Any thread, except that one thread alone takes messages.
///
/// Open until `Shut`; `Stop` shuts too and ends every wait for good.
class SendQueues {
 public:
  struct Message {
    Channel channel;
    std::vector<uint8_t> bytes;
  };

  /// Dropped without a word when shut, or when it does not fit a frame.
  void Push(Channel channel, std::vector<uint8_t> bytes) EXCLUDES(mutex_);
  /// The oldest message of the lowest channel that has one; waits for it. Nothing once stopped.
  std::optional<Message> TakeNext() EXCLUDES(mutex_);
  /// What was taken is no longer waiting, whether or not it was written.
  void Finish(const Message& message, bool written) EXCLUDES(mutex_);
  /// Waits while more control messages are to be written than a peer should make us hold: whoever answers
  /// that peer stops listening to it until it reads. Does not wait when shut.
  void WaitForControlRoom() EXCLUDES(mutex_);

  void Shut() EXCLUDES(mutex_);
  /// True for the first caller.
  bool Stop() EXCLUDES(mutex_);

  bool IsOpen() const { return open_; }
  bool IsStopped() const { return stopped_; }
  int64_t QueuedBytes(Channel channel) const EXCLUDES(mutex_);
  uint64_t SentBytes(Channel channel) const { return sentBytes_[Index(channel)]; }

 private:
  struct Queue {
    std::deque<std::vector<uint8_t>> messages;
    int64_t queuedBytes = 0;  // includes the message that is being written
  };

  static size_t Index(Channel channel) { return static_cast<size_t>(channel); }
  bool ControlIsFull() const REQUIRES(mutex_);

  mutable Mutex mutex_;
  ConditionVariable work_;  // the writer waits here
  ConditionVariable room_;  // the reader waits here
  std::array<Queue, kChannelCount> queues_ GUARDED_BY(mutex_);
  // Changed under the mutex so that no waiter misses it, read without.
  std::atomic<bool> open_ = true;
  std::atomic<bool> stopped_ = false;
  std::array<std::atomic<uint64_t>, kChannelCount> sentBytes_ = {};
};

}  // namespace cvn::agent
