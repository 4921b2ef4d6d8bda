#include "session/capture_statistics.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/captured_log.h"

namespace cvn::agent {
namespace {

TEST(CaptureStatistics, LogsAPeriodAndStartsOver) {
  CapturedLog log;
  CaptureStatistics statistics(1000);
  for (const int64_t ns : {1'000'000, 2'000'000, 4'500'000}) statistics.AddCapture(ns);
  for (const int64_t ns : {10'000'000, 20'000'000}) statistics.AddAdmission(ns);
  for (int frame = 0; frame < 3; ++frame) statistics.CountEncoded();
  statistics.CountUnchanged();
  statistics.CountLate();
  statistics.CountIdlePaced();
  statistics.LogWhenDue(30'999);
  EXPECT_TRUE(log.Lines().empty());
  statistics.LogWhenDue(32'500);
  statistics.LogWhenDue(62'499);
  statistics.LogWhenDue(62'500);
  EXPECT_EQ(
      log.Lines(),
      (std::vector<std::string>{
          "INF [session] capture loop overloaded: 3 encoded, 1 unchanged-skipped, 1 late in the last 32 s; "
          "capture avg/max=2.50/4.50 ms (3 samples), encode+admit avg/max=15.00/20.00 ms (2 samples); "
          "idle-paced",
          "INF [session] capture stats: 0 encoded, 0 unchanged-skipped, 0 late in the last 30 s; capture "
          "avg/max=0.00/0.00 ms (0 samples), encode+admit avg/max=0.00/0.00 ms (0 samples)"}));
}

}  // namespace
}  // namespace cvn::agent
