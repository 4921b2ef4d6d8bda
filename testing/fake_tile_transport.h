#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "net/tile_transport.h"

namespace cvn::agent {

/// Keeps what is sent and lets the test play the network. Any thread.
///
/// By default the network is instant: a message counts as written at once and the backlog stays as set. With
/// `HoldSends(true)` messages add to the backlog until `Drain` writes them. Like the real one it drops what
/// is sent while closed, and what is empty or over 8 MiB.
class FakeTileTransport final : public TileTransport {
 public:
  explicit FakeTileTransport(std::string protocol = "corvinet.tiles.v3") : protocol_(std::move(protocol)) {}

  bool IsOpen() const override {
    MutexLock lock(mutex_);
    return open_;
  }
  int64_t QueuedBytes() const override {
    MutexLock lock(mutex_);
    return queuedBytes_;
  }
  std::string Protocol() const override { return protocol_; }
  uint64_t SentBytes() const override {
    MutexLock lock(mutex_);
    return static_cast<uint64_t>(sentBytes_);
  }
  void Send(std::vector<uint8_t> message) override {
    MutexLock lock(mutex_);
    if (!open_ || message.empty() || message.size() > kLargestMessageBytes) return;
    (holdSends_ ? queuedBytes_ : sentBytes_) += static_cast<int64_t>(message.size());
    messages_.push_back(std::move(message));
  }

  void SetOpen(bool open) {
    MutexLock lock(mutex_);
    open_ = open;
  }
  void SetQueuedBytes(int64_t bytes) {
    MutexLock lock(mutex_);
    queuedBytes_ = bytes;
  }
  void SetSentBytes(uint64_t bytes) {
    MutexLock lock(mutex_);
    sentBytes_ = static_cast<int64_t>(bytes);
  }
  void HoldSends(bool hold) {
    MutexLock lock(mutex_);
    holdSends_ = hold;
  }
  /// The network takes up to `bytes` of the backlog.
  void Drain(int64_t bytes) {
    MutexLock lock(mutex_);
    const int64_t written = std::min(bytes, queuedBytes_);
    queuedBytes_ -= written;
    sentBytes_ += written;
  }

  size_t MessageCount() const {
    MutexLock lock(mutex_);
    return messages_.size();
  }
  /// Everything sent since the last call, in order.
  std::vector<std::vector<uint8_t>> TakeMessages() {
    MutexLock lock(mutex_);
    return std::exchange(messages_, {});
  }

 private:
  static constexpr size_t kLargestMessageBytes = 8388608;

  const std::string protocol_;
  mutable Mutex mutex_;
  bool open_ GUARDED_BY(mutex_) = true;
  bool holdSends_ GUARDED_BY(mutex_) = false;
  int64_t queuedBytes_ GUARDED_BY(mutex_) = 0;
  int64_t sentBytes_ GUARDED_BY(mutex_) = 0;
  std::vector<std::vector<uint8_t>> messages_ GUARDED_BY(mutex_);
};

}  // namespace cvn::agent
