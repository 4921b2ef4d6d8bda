#include "net/peer_watch.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

/// The slices of 250 ms, up to 1000, after which the watch gives the peer up; 0 when it never does.
template <typename Signs>
int SlicesUntilLost(Signs signsAtMs) {
  PeerWatch watch;
  for (int slice = 1; slice <= 1000; ++slice)
    if (watch.IsLost(signsAtMs(slice * 250))) return slice;
  return 0;
}

TEST(PeerWatch, GivesUpOnlyAPeerThatOwesAnAnswerForTwentySeconds) {
  struct Row {
    const char* what;
    int slices;
    PeerSigns (*signsAtMs)(int64_t ms);
  };
  const Row rows[] = {
      {"nothing was asked", 0,
       [](int64_t ms) {
         return PeerSigns{false, ms};
       }},
      {"cut while data was on its way", 80,
       [](int64_t ms) {
         return PeerSigns{true, ms};
       }},
      {"cut after a long rest: only the time that it owes counts", 80,
       [](int64_t ms) {
         return PeerSigns{true, 3600000 + ms};
       }},
      {"answers every 19 s", 0,
       [](int64_t ms) {
         return PeerSigns{true, ms % 19000};
       }},
      {"owes now and then while its window is shut", 0,
       [](int64_t ms) {
         return PeerSigns{ms % 10000 == 0, ms};
       }},
      {"cut ten seconds later", 120,
       [](int64_t ms) {
         return PeerSigns{ms > 10000, ms};
       }},
  };
  for (const Row& row : rows) EXPECT_EQ(SlicesUntilLost(row.signsAtMs), row.slices) << row.what;
}

}  // namespace
}  // namespace cvn::agent
