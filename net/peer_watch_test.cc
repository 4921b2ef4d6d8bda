#include "net/peer_watch.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

constexpr int64_t kHourMs = 3600000;

TEST(PeerWatch, GivesUpOnlyAPeerThatOwesAnAnswerForTwentySeconds) {
  const struct {
    const char* what;
    int64_t owesAfterMs, owesEveryMs, silentBeforeMs, answersEveryMs;
    int slicesUntilLost;  // of 250 ms; 0 when it is never given up
  } rows[] = {
      {"nothing was asked", kHourMs, 1, 0, kHourMs, 0},
      {"cut while data was on its way", 0, 1, 0, kHourMs, 80},
      {"cut after a long rest: only the time that it owes counts", 0, 1, kHourMs, kHourMs, 80},
      {"answers every 19 s", 0, 1, 0, 19000, 0},
      {"owes now and then while its window is shut", 0, 10000, 0, kHourMs, 0},
      {"cut ten seconds later", 10000, 1, 0, kHourMs, 120},
  };
  for (const auto& row : rows) {
    PeerWatch watch;
    int lostAt = 0;
    for (int slice = 1; slice <= 1000 && lostAt == 0; ++slice) {
      const int64_t ms = slice * 250;
      const bool owes = ms > row.owesAfterMs && ms % row.owesEveryMs == 0;
      if (watch.IsLost({owes, row.silentBeforeMs + ms % row.answersEveryMs})) lostAt = slice;
    }
    EXPECT_EQ(lostAt, row.slicesUntilLost) << row.what;
  }
}

}  // namespace
}  // namespace cvn::agent
