#include "view/line_reporter.h"

#include <gtest/gtest.h>

#include <vector>

#include "testing/fake_clock.h"

namespace cvn::view {
namespace {

using agent::ControlMessage;

class LineReporterTest : public testing::Test {
 protected:
  LineReporterTest() { reporter_.Begin(); }

  /// What is sent when `ms` have passed and nothing else happens: "report kbps/rtt" and "probe monitor".
  std::string SentAfter(int64_t ms) {
    clock_.AdvanceMs(ms);
    sent_.clear();
    reporter_.Tick();
    std::string text;
    for (const ControlMessage& message : sent_)
      text += message.type == agent::kQuality
                  ? "report " + std::to_string(message.kbps) + "/" + std::to_string(message.rttMs)
                  : " probe " + std::to_string(message.index);
    return text;
  }

  agent::FakeClock clock_;
  std::vector<ControlMessage> sent_;
  LineReporter reporter_{clock_, {.preset = "Balanced", .gray = true}, [this](const ControlMessage& message) {
                           sent_.push_back(message);
                         }};
};

TEST_F(LineReporterTest, SaysAtOnceWhatIsWishedForAndLaterOfWhatSizeThePictureIs) {
  ControlMessage expected;
  expected.type = agent::kQuality;
  expected.preset = "Balanced";
  expected.gray = true;
  EXPECT_EQ(sent_, std::vector{expected});
  reporter_.NoteTiles(125, {640, 480});
  SentAfter(1000);
  expected.kbps = 1;
  expected.viewportWidth = 640;
  expected.viewportHeight = 480;
  EXPECT_EQ(sent_, std::vector{expected});
}

TEST_F(LineReporterTest, ReportsTheRateOfTheLastSecondAndLeavesARestingLineInPeace) {
  reporter_.NoteTiles(200'000, {1, 1});
  reporter_.NoteTiles(50'000, {1, 1});
  EXPECT_EQ(SentAfter(999), "");
  EXPECT_EQ(SentAfter(1), "report 2000/0");
  for (int second = 1; second < 10; ++second) EXPECT_EQ(SentAfter(1000), "") << second;
  EXPECT_EQ(SentAfter(1000), "report 0/0");
  reporter_.NoteTiles(250'000, {1, 1});
  EXPECT_EQ(SentAfter(1250), "report 1600/0") << "the rate is over the time that really passed";
}

TEST_F(LineReporterTest, ProbesOnceAtATimeWithTheMonitorThatIsShownAndOnlyWhenTilesCome) {
  reporter_.NoteMonitor(-1);
  EXPECT_EQ(SentAfter(20), " probe -1");
  clock_.AdvanceMs(35);
  reporter_.NoteMonitor(-1);
  EXPECT_EQ(SentAfter(2000), "") << "no tiles";
  reporter_.NoteTiles(1000, {1, 1});
  EXPECT_EQ(SentAfter(1000), "report 8/35 probe -1");
  reporter_.NoteTiles(1000, {1, 1});
  EXPECT_EQ(SentAfter(1000), "report 8/1000") << "the probe is under way, and for so long";
  reporter_.NoteMonitor(-1);
  EXPECT_EQ(SentAfter(0), " probe -1") << "one was due";
  reporter_.NoteMonitor(-1);
  reporter_.NoteTiles(1000, {1, 1});
  EXPECT_EQ(SentAfter(1000), "report 8/1 probe -1") << "under a millisecond is not nothing";
}

TEST_F(LineReporterTest, AnOverdueAnswerIsReportedUntilItIsClearThatNoneWillCome) {
  reporter_.NoteMonitor(2);
  EXPECT_EQ(SentAfter(0), " probe 2");
  for (int second = 1; second < 10; ++second)
    EXPECT_EQ(SentAfter(1000), "report 0/" + std::to_string(second) + "000");
  EXPECT_EQ(SentAfter(1000), "");
}

}  // namespace
}  // namespace cvn::view
