#include "net/send_queues.h"

#include <algorithm>
#include <utility>

#include "net/frame_format.h"

namespace cvn::agent {
namespace {

constexpr int64_t kMaxWaitingControlBytes = 4 * 1024 * 1024;

}  // namespace

void SendQueues::Push(Channel channel, std::vector<uint8_t> bytes) {
  if (!FitsFrame(bytes.size())) return;
  const auto size = static_cast<int64_t>(bytes.size());
  {
    MutexLock lock(mutex_);
    if (!open_) return;
    Queue& queue = queues_[Index(channel)];
    queue.messages.push_back(std::move(bytes));
    queue.queuedBytes += size;
  }
  work_.NotifyOne();
}

std::optional<SendQueues::Message> SendQueues::TakeNext() {
  MutexLock lock(mutex_);
  while (!stopped_) {
    for (uint8_t number = 0; number < kChannelCount; ++number) {
      auto& messages = queues_[number].messages;
      if (messages.empty()) continue;
      Message next{static_cast<Channel>(number), std::move(messages.front())};
      messages.pop_front();
      return next;
    }
    work_.Wait(mutex_);
  }
  return std::nullopt;
}

void SendQueues::Finish(const Message& message, bool written) {
  MutexLock lock(mutex_);
  const size_t index = Index(message.channel);
  queues_[index].queuedBytes -= static_cast<int64_t>(message.bytes.size());
  if (written) sentBytes_[index] += message.bytes.size();
  if (message.channel == Channel::Control && !ControlIsFull()) room_.NotifyAll();
}

void SendQueues::WaitForControlRoom() {
  MutexLock lock(mutex_);
  while (open_ && ControlIsFull()) room_.Wait(mutex_);
}

void SendQueues::Shut() {
  MutexLock lock(mutex_);
  open_ = false;
  work_.NotifyAll();
  room_.NotifyAll();
}

bool SendQueues::Stop() {
  const bool first = !stopped_.exchange(true);
  Shut();
  return first;
}

int64_t SendQueues::QueuedBytes(Channel channel) const {
  MutexLock lock(mutex_);
  return queues_[Index(channel)].queuedBytes;
}

bool SendQueues::ControlIsFull() const {
  return queues_[Index(Channel::Control)].queuedBytes > kMaxWaitingControlBytes;
}

}  // namespace cvn::agent
