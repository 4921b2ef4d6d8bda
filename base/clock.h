#pragma once

#include <chrono>
#include <cstdint>

namespace cvn::agent {

/// Monotonic time since an arbitrary start. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual int64_t NowNs() const = 0;

  int64_t NowMs() const { return NowNs() / 1'000'000; }
};

/// The machine's steady clock.
class SystemClock final : public Clock {
 public:
  int64_t NowNs() const override {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
  }
};

}  // namespace cvn::agent
