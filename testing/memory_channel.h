#pragma once

#include <algorithm>
#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "base/mutex.h"
#include "net/secure_channel.h"

namespace cvn::agent {

/// One direction of a connection: bytes wait in it, up to a capacity, until they are read.
class MemoryPipe {
 public:
  explicit MemoryPipe(size_t capacityBytes) : capacityBytes_(capacityBytes) {}

  /// Waits for room; false once ended.
  bool Write(std::span<const uint8_t> bytes) {
    MutexLock lock(mutex_);
    while (!bytes.empty()) {
      while (!ended_ && bytes_.size() >= capacityBytes_) changed_.Wait(mutex_);
      if (ended_) return false;
      const auto part = bytes.first(std::min(bytes.size(), capacityBytes_ - bytes_.size()));
      bytes_.insert(bytes_.end(), part.begin(), part.end());
      bytes = bytes.subspan(part.size());
      changed_.NotifyAll();
    }
    return true;
  }

  /// Waits for all bytes; false when it ends before.
  bool Read(std::span<uint8_t> buffer) {
    MutexLock lock(mutex_);
    while (!buffer.empty()) {
      while (!ended_ && bytes_.empty()) changed_.Wait(mutex_);
      if (bytes_.empty()) return false;
      const size_t count = std::min(buffer.size(), bytes_.size());
      const auto end = bytes_.begin() + static_cast<std::ptrdiff_t>(count);
      std::copy(bytes_.begin(), end, buffer.begin());
      bytes_.erase(bytes_.begin(), end);
      buffer = buffer.subspan(count);
      changed_.NotifyAll();
    }
    return true;
  }

  /// What has been written can still be read.
  void End() {
    MutexLock lock(mutex_);
    ended_ = true;
    changed_.NotifyAll();
  }

  size_t WaitingBytes() const {
    MutexLock lock(mutex_);
    return bytes_.size();
  }

 private:
  const size_t capacityBytes_;
  mutable Mutex mutex_;
  ConditionVariable changed_;
  std::deque<uint8_t> bytes_ GUARDED_BY(mutex_);
  bool ended_ GUARDED_BY(mutex_) = false;
};

/// One end of an in-memory connection. Aborting or destroying an end is seen by the other as the end of the
/// stream.
class MemoryChannel final : public SecureChannel {
 public:
  MemoryChannel(std::shared_ptr<MemoryPipe> incoming, std::shared_ptr<MemoryPipe> outgoing)
      : incoming_(std::move(incoming)), outgoing_(std::move(outgoing)) {}
  ~MemoryChannel() override { Abort(); }

  bool Send(std::span<const uint8_t> bytes) override { return outgoing_->Write(bytes); }
  bool ReceiveExactly(std::span<uint8_t> buffer) override { return incoming_->Read(buffer); }
  void Close() override {}
  void Abort() override {
    incoming_->End();
    outgoing_->End();
  }
  std::string Describe() const override { return "memory"; }

  /// Ends only this side's sending, as a half-closed socket does.
  void EndSending() { outgoing_->End(); }
  /// Bytes that this end has sent and the other has not read.
  size_t UnreadByPeer() const { return outgoing_->WaitingBytes(); }

 private:
  std::shared_ptr<MemoryPipe> incoming_;
  std::shared_ptr<MemoryPipe> outgoing_;
};

struct MemoryChannelPair {
  std::unique_ptr<MemoryChannel> agent;
  std::unique_ptr<MemoryChannel> viewer;
};

/// Each direction holds up to `capacityBytes`; more blocks the sender until the other side reads.
inline MemoryChannelPair CreateMemoryChannelPair(size_t capacityBytes = 64 * 1024 * 1024) {
  auto toAgent = std::make_shared<MemoryPipe>(capacityBytes);
  auto toViewer = std::make_shared<MemoryPipe>(capacityBytes);
  return {std::make_unique<MemoryChannel>(toAgent, toViewer),
          std::make_unique<MemoryChannel>(toViewer, toAgent)};
}

}  // namespace cvn::agent
