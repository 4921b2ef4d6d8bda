#include "net/send_buffer_plan.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace cvn::agent {
namespace {

struct Line {
  int64_t bytesPerSecond;
  int64_t roundTripMs;
};

/// A sender that always has more, or rests. What leaves stays in the buffer for a round trip.
class BusyLine {
 public:
  /// Returns the largest buffer meanwhile.
  int Carry(const Line& line, int64_t ms) {
    int largest = 0;
    for (const int64_t end = nowMs_ + ms; nowMs_ < end; ++nowMs_) {
      held_ -= std::min({held_, line.bytesPerSecond / 1000, plan_.Bytes() / line.roundTripMs});
      Fill();
      largest = std::max(largest, plan_.Bytes());
    }
    return largest;
  }
  void Rest(int64_t ms) {
    plan_.Took(1024, nowMs_);  // the last bytes, once there is room
    nowMs_ += ms;
    held_ = 0;
    full_ = false;
  }
  int Bytes() const { return plan_.Bytes(); }

 private:
  /// Room is given only when a third of the buffer is free, as systems do.
  void Fill() {
    if (full_ && held_ > plan_.Bytes() * 2 / 3) return;
    for (; held_ < plan_.Bytes(); held_ += 1024) plan_.Took(1024, nowMs_);
    full_ = true;
    plan_.Refused();
  }

  SendBufferPlan plan_;
  int64_t nowMs_ = 1000;
  int64_t held_ = 0;
  bool full_ = false;
};

constexpr int64_t k300Kbit = 37'500;
constexpr int64_t k2Mbit = 250'000;
constexpr int64_t k8Mbit = 1'000'000;
constexpr int64_t kGigabit = 125'000'000;

TEST(SendBufferPlan, HoldsLittleOnASlowLineAndNeverStranglesALongOne) {
  const struct {
    const char* what;
    Line before, line;
    int64_t settlesMs;
    int atLeast, atMost;
  } rows[] = {
      {"fast", {kGigabit, 1}, {kGigabit, 1}, 0, 65536, 65536},
      {"slow to fast and very far", {k300Kbit, 1}, {kGigabit, 400}, 18000, 65536, 65536},
      {"slow", {k300Kbit, 1}, {k300Kbit, 1}, 0, 8192, 16384},
      {"slowed down", {kGigabit, 1}, {k300Kbit, 1}, 8000, 8192, 16384},
      {"slow to medium", {k300Kbit, 1}, {k2Mbit, 1}, 1500, 32768, 65536},
      {"slow to fast", {k300Kbit, 1}, {kGigabit, 1}, 1500, 65536, 65536},
      {"slow to fast and far", {k300Kbit, 1}, {kGigabit, 120}, 15000, 65536, 65536},
      {"slow and far", {kGigabit, 1}, {k300Kbit, 400}, 8000, 8192, 32768},
  };
  for (const auto& row : rows) {
    BusyLine busy;
    busy.Carry(row.before, 20000);
    busy.Carry(row.line, row.settlesMs);
    int smaller = 0;  // only where a smaller one is tried now and then
    for (int second = 0; second < 60; ++second) {
      EXPECT_LE(busy.Carry(row.line, 1000), row.atMost) << row.what << ", second " << second;
      if (busy.Bytes() < row.atLeast) ++smaller;
    }
    EXPECT_LE(smaller, 12) << row.what;
  }
}

TEST(SendBufferPlan, TakesARestForNoSlowness) {
  BusyLine busy;
  busy.Carry({kGigabit, 1}, 2000);
  for (int i = 0; i < 20; ++i) {
    busy.Carry({k8Mbit, 1}, 90);
    busy.Rest(2000);
    EXPECT_EQ(busy.Bytes(), 65536) << i;
  }
}

}  // namespace
}  // namespace cvn::agent
