#include "tests/end_to_end/slow_line.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace cvn::end_to_end {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kTick{10};
constexpr int kReceiveBufferBytes = 4096;
constexpr size_t kMostBytes = 65536;

}  // namespace

SlowLine::SlowLine(uint16_t agentPort) : agentPort_(agentPort), thread_([this] { Carry(); }) {}

SlowLine::~SlowLine() {
  stop_ = true;
  thread_.join();
}

void SlowLine::Carry() {
  while (!viewer_.Accept(kTick)) {
    if (stop_) return;
  }
  const auto agent = LocalSocket::Connected(agentPort_, kReceiveBufferBytes);
  if (!agent) return;
  int64_t ignored = 0;
  int64_t carried = 0;
  while (!stop_) {
    const int64_t limit = bytesPerSecond_;
    const auto share =
        limit == kUnlimited ? kMostBytes : static_cast<size_t>(std::max<int64_t>(1, limit / 100));
    const auto tickEnd = std::chrono::steady_clock::now() + kTick;
    if (agent->Readable(kTick) && !CarrySome(*agent, viewer_, share, carried)) return;
    if (viewer_.Readable(milliseconds(0)) && !CarrySome(viewer_, *agent, kMostBytes, ignored)) return;
    carriedBytes_ = carried;
    if (limit != kUnlimited) std::this_thread::sleep_until(tickEnd);
  }
}

bool SlowLine::CarrySome(const LocalSocket& from, const LocalSocket& to, size_t mostBytes, int64_t& count) {
  std::array<uint8_t, kMostBytes> chunk;
  const size_t received = from.Receive(std::span(chunk).first(mostBytes));
  count += static_cast<int64_t>(received);
  return received > 0 && to.SendAll(std::span(chunk).first(received));
}

}  // namespace cvn::end_to_end
