#include <algorithm>
#include <csignal>
#include <thread>

#include "tests/end_to_end/session_under_test.h"
#include "tests/end_to_end/slow_line.h"

namespace cvn::end_to_end {
namespace {

constexpr int64_t kMiB = 1 << 20;

class SlowViewerTest : public SessionTest {};

TEST_F(SlowViewerTest, GetsARecentPictureAndMakesNothingGrow) {
  constexpr int kSide = 256;
  constexpr int64_t kChangeBytes = int64_t{kSide} * kSide * 3;  // noise does not compress
  constexpr auto kSlowTime = seconds(8);
  constexpr milliseconds kBetweenChanges{40};

  const auto noise = desktop_.OpenNoiseWindow(640, 400, kSide, kSide);
  ServeDesktop();
  SlowLine line(port_);
  ConnectViewer(line.Port());
  ASSERT_TRUE(ViewerShowsTheScreen());

  line.Limit(4000);
  const int64_t carriedBefore = line.CarriedBytes();
  int64_t residentBefore = 0;
  int64_t residentMost = 0;
  int changes = 0;
  const auto begin = std::chrono::steady_clock::now();
  for (auto now = begin; now < begin + kSlowTime; now = std::chrono::steady_clock::now()) {
    desktop_.PaintNoise(noise, static_cast<uint32_t>(1000 + ++changes));
    std::this_thread::sleep_for(kBetweenChanges);
    residentMost = std::max(residentMost, agent_->ResidentBytes());
    if (now < begin + kSlowTime / 4) residentBefore = residentMost;
  }
  EXPECT_LT(line.CarriedBytes() - carriedBefore, 100'000) << "the line was not slow";
  ASSERT_GT(changes, 20);

  // The line is fast again: what still stood in queues arrives, and only then the newest picture.
  const int64_t carriedSlowly = line.CarriedBytes();
  line.Limit(SlowLine::kUnlimited);
  EXPECT_TRUE(ViewerShowsTheScreen());
  EXPECT_LT(line.CarriedBytes() - carriedSlowly, 6 * kChangeBytes) << "old frames were queued";
  EXPECT_GT(changes * kChangeBytes, 15 * kChangeBytes);
  EXPECT_LT(residentMost - residentBefore, 8 * kMiB) << "the agent grew";
  EXPECT_TRUE(viewer_->Running()) << viewer_->Errors();
}

TEST_F(SlowViewerTest, MayDieAmidAFrameTimeAfterTime) {
  desktop_.OpenNoiseWindow(0, 0, 1920, 1080);  // a first frame of megabytes
  for (int round = 0; round < 20; ++round) {
    ServeDesktop();
    if (round % 2 == 0) {
      WireClient client = ConnectClient();  // closes with most of the frame unread
      ASSERT_TRUE(client.Next(kPatience));
    } else {
      ConnectViewer();
      ASSERT_TRUE(AgentLogs("[agent] session from "));
      viewer_->Signal(SIGKILL);
    }
    ASSERT_EQ(agent_->WaitForExit(seconds(BuiltWithSanitizers() ? 20 : 5)), 0) << "round " << round;
    ASSERT_NE(agent_->Output().find("INF [agent] session ended\n"), std::string::npos);
  }
}

}  // namespace
}  // namespace cvn::end_to_end
