#pragma once

#include <atomic>

#include "base/clock.h"

namespace cvn::agent {

/// Stands still until it is told to move.
class FakeClock final : public Clock {
 public:
  int64_t NowNs() const override { return nowNs_; }
  void AdvanceMs(int64_t ms) { nowNs_ += ms * 1'000'000; }

 private:
  std::atomic<int64_t> nowNs_{1'000'000'000};
};

}  // namespace cvn::agent
