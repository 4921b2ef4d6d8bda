#include "tests/end_to_end/slow_line.h"

#include <algorithm>
#include <array>
#include <utility>

namespace cvn::end_to_end {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kLook{2};
constexpr double kLargestShareSeconds = 0.02;
constexpr int kReceiveBufferBytes = 4096;
constexpr size_t kMostBytes = 65536;
constexpr size_t kMostPortions = 256;

/// Empty when the other side has closed.
std::vector<uint8_t> Receive(const LocalSocket& socket, size_t mostBytes) {
  std::array<uint8_t, kMostBytes> chunk;
  const size_t count = socket.Receive(std::span(chunk).first(mostBytes));
  return {chunk.begin(), chunk.begin() + static_cast<ptrdiff_t>(count)};
}

}  // namespace

SlowLine::SlowLine(uint16_t agentPort) : agentPort_(agentPort), thread_([this] { Carry(); }) {}

SlowLine::~SlowLine() {
  stop_ = true;
  thread_.join();
}

void SlowLine::Carry() {
  while (!viewer_.Accept(10 * kLook)) {
    if (stop_) return;
  }
  const auto agent = LocalSocket::Connected(agentPort_, kReceiveBufferBytes);
  if (!agent) return;
  while (!stop_) {
    if (!Depart(*agent) || !Arrive() || !Answer(*agent)) return;
    if (bytesPerSecond_ != kUnlimited) std::this_thread::sleep_for(kLook);
  }
}

size_t SlowLine::Share() {
  const auto now = Clock::now();
  const auto passed = std::chrono::duration<double>(now - std::exchange(shareAt_, now)).count();
  const auto limit = static_cast<double>(bytesPerSecond_);
  share_ = bytesPerSecond_ == kUnlimited ? double{kMostBytes}
                                         : std::min(share_ + limit * passed, limit * kLargestShareSeconds);
  return static_cast<size_t>(share_);
}

bool SlowLine::Depart(const LocalSocket& agent) {
  const size_t share = Share();
  if (share == 0 || underWay_.size() == kMostPortions || !agent.Readable(kLook)) return true;
  underWay_.push_back({Clock::now() + delay_.load(), Receive(agent, share)});
  const size_t taken = underWay_.back().bytes.size();
  share_ -= static_cast<double>(taken);
  return taken > 0;
}

bool SlowLine::Arrive() {
  while (!underWay_.empty() && underWay_.front().arrival <= Clock::now()) {
    const std::vector<uint8_t> bytes = std::move(underWay_.front().bytes);
    underWay_.pop_front();
    if (!viewer_.SendAll(bytes)) return false;
    carriedBytes_ += static_cast<int64_t>(bytes.size());
  }
  return true;
}

bool SlowLine::Answer(const LocalSocket& agent) {
  if (!viewer_.Readable(milliseconds(0))) return true;
  const std::vector<uint8_t> bytes = Receive(viewer_, kMostBytes);
  return !bytes.empty() && agent.SendAll(bytes);
}

}  // namespace cvn::end_to_end
