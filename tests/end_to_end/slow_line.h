#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "tests/end_to_end/local_socket.h"

namespace cvn::end_to_end {

/// A line between a viewer and an agent that carries at most so many bytes a second towards the viewer and
/// holds next to nothing itself. Serves one connection.
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
  /// Towards the viewer so far.
  int64_t CarriedBytes() const { return carriedBytes_; }

 private:
  void Carry();
  bool CarrySome(const LocalSocket& from, const LocalSocket& to, size_t mostBytes, int64_t& count);

  uint16_t agentPort_;
  uint16_t port_ = FreePort();
  LocalSocket viewer_ = LocalSocket::Listening(port_);
  std::atomic<int64_t> bytesPerSecond_ = kUnlimited;
  std::atomic<int64_t> carriedBytes_ = 0;
  std::atomic<bool> stop_ = false;
  std::thread thread_;
};

}  // namespace cvn::end_to_end
