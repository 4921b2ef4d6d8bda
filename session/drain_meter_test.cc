#include "session/drain_meter.h"

#include <gtest/gtest.h>

#include <vector>

namespace cvn::agent {
namespace {

TEST(DrainMeter, MovesItsEstimateOnlyOnWhatALoadedLinkShows) {
  const struct {
    const char* what;
    std::vector<DrainSample> samples;
    double bytesPerSecond;
  } rows[] = {
      {"the first sample only opens the interval", {{5000, 1, 700'000}}, 1'000'000},
      {"loaded throughout: half old, half measured", {{0, 9, 0}, {1000, 9, 500'000}}, 750'000},
      {"one millisecond short of an interval", {{0, 9, 0}, {249, 9, 900'000}}, 1'000'000},
      {"just an interval", {{0, 9, 0}, {250, 9, 500'000}}, 1'500'000},
      {"an early sample does not restart the interval",
       {{0, 9, 0}, {249, 9, 1}, {250, 9, 500'000}},
       1'500'000},
      {"the interval starts anew once it is over", {{0, 9, 0}, {500, 9, 500'000}, {600, 0, 0x7fffffff}}, 1e6},
      {"emptied faster than a quarter above the estimate", {{0, 9, 0}, {250, 0, 500'000}}, 2'000'000},
      {"emptied slowly: at least a quarter more was possible", {{0, 9, 0}, {1000, 0, 9}}, 1'250'000},
      {"emptied without draining: the connection was reset", {{0, 9, 5}, {1000, 0, 5}}, 1'000'000},
      {"idle at the start of the interval", {{0, 0, 0}, {1000, 9, 5}}, 1'000'000},
      {"the counter went backwards, so a new interval starts there",
       {{0, 9, 500}, {100, 9, 400}, {1100, 9, 400}},
       500'000},
      {"the clock went backwards: the interval goes on", {{500, 9, 0}, {400, 9, 0}, {1500, 9, 0}}, 500'000},
      {"never below the least",
       {{0, 9, 0}, {1000, 9, 0}, {2000, 9, 0}, {3000, 9, 0}, {4000, 9, 0}, {5000, 9, 0}, {6000, 9, 0}},
       16'384},
      {"never above the most", {{0, 9, 0}, {1000, 9, 1'000'000'000'000}}, 125'000'000},
  };
  for (const auto& row : rows) {
    DrainMeter meter;
    for (const DrainSample& sample : row.samples) meter.AllowedBacklog(sample);
    EXPECT_DOUBLE_EQ(meter.BytesPerSecond(), row.bytesPerSecond) << row.what;
  }
}

TEST(DrainMeter, AllowsAHundredAndFiftyMillisecondsWorthWithinBounds) {
  DrainMeter meter;
  EXPECT_EQ(meter.AllowedBacklog({0, 9, 0}), 65'536u);
  EXPECT_EQ(meter.AllowedBacklog({1000, 9, 0}), 65'536u) << "75,000 at 500,000 B/s";
  EXPECT_EQ(meter.AllowedBacklog({2000, 9, 0}), 37'500u);
  EXPECT_EQ(meter.AllowedBacklog({3000, 9, 0}), 18'750u);
  EXPECT_EQ(meter.AllowedBacklog({4000, 9, 0}), 9'375u);
  EXPECT_EQ(meter.AllowedBacklog({5000, 9, 0}), 8'192u) << "4,687 raised to the floor";
}

}  // namespace
}  // namespace cvn::agent
