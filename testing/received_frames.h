#pragma once

#include <utility>
#include <vector>

#include "base/mutex.h"
#include "net/transport_connection.h"

namespace cvn::agent {

/// Collects what a connection receives. Outlives the connection.
class ReceivedFrames {
 public:
  struct Frame {
    Channel channel;
    std::vector<uint8_t> bytes;
    bool operator==(const Frame&) const = default;
  };

  ReceiveHandler Handler() {
    return [this](Channel channel, std::vector<uint8_t> bytes) {
      MutexLock lock(mutex_);
      frames_.push_back({channel, std::move(bytes)});
    };
  }
  size_t Count() const {
    MutexLock lock(mutex_);
    return frames_.size();
  }
  std::vector<Frame> All() const {
    MutexLock lock(mutex_);
    return frames_;
  }

 private:
  mutable Mutex mutex_;
  std::vector<Frame> frames_ GUARDED_BY(mutex_);
};

}  // namespace cvn::agent
