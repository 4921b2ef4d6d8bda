#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <thread>
#include <vector>

#include "tests/end_to_end/local_socket.h"

namespace cvn::end_to_end {

/// A line between a viewer and an agent that carries so many bytes a second towards the viewer, in
/// portions of at most 20 ms, and holds nothing itself but what is under way for `Delay`. Serves one
/// connection.
class SlowLine {
 public:
  static constexpr int64_t kUnlimited = 0;

  explicit SlowLine(uint16_t agentPort);
  ~SlowLine();
  SlowLine(const SlowLine&) = delete;
  SlowLine& operator=(const SlowLine&) = delete;

  /// Where the viewer connects.
  uint16_t Port() const { return port_; }
  void Limit(int64_t bytesPerSecond) { bytesPerSecond_ = bytesPerSecond; }
  /// How long a byte is under way to the viewer.
  void Delay(std::chrono::milliseconds delay) { delay_ = delay; }
  /// Towards the viewer so far.
  int64_t CarriedBytes() const { return carriedBytes_; }

 private:
  struct Portion {
    std::chrono::steady_clock::time_point arrival;
    std::vector<uint8_t> bytes;
  };

  void Carry();
  /// What may be taken from the agent now.
  size_t Share();
  bool Depart(const LocalSocket& agent);
  bool Arrive();
  bool Answer(const LocalSocket& agent);

  uint16_t agentPort_;
  uint16_t port_ = FreePort();
  LocalSocket viewer_ = LocalSocket::Listening(port_);
  std::atomic<int64_t> bytesPerSecond_ = kUnlimited;
  std::atomic<std::chrono::milliseconds> delay_ = std::chrono::milliseconds(0);
  std::atomic<int64_t> carriedBytes_ = 0;
  std::deque<Portion> underWay_;
  /// Bytes that the line could have carried until `shareAt_` and has not.
  double share_ = 0;
  std::chrono::steady_clock::time_point shareAt_;
  std::atomic<bool> stop_ = false;
  std::thread thread_;
};

}  // namespace cvn::end_to_end
