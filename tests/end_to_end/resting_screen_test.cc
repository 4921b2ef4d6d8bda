#include "tests/end_to_end/session_under_test.h"

namespace cvn::end_to_end {
namespace {

constexpr int kTilesChannel = 1;
constexpr int kHeartbeat = 4;

class RestingScreenTest : public SessionTest {
 protected:
  void SetUp() override {
    desktop_.OpenTextWindow(101, 57, 40);
    ServeDesktop();
  }

  /// Takes the first picture in, and the heartbeat that ends it.
  static bool ReachRest(WireClient& client) {
    while (const auto frame = client.Next(kPatience)) {
      if (frame->channel == kTilesChannel && frame->TileType() == kHeartbeat) return true;
    }
    return false;
  }
};

TEST_F(RestingScreenTest, SendsNothingAfterItsOneHeartbeatAndCostsNextToNothing) {
  WireClient client = ConnectClient();
  ASSERT_TRUE(ReachRest(client));

  const auto watched = AgentRunsUnderWine() ? seconds(5) : seconds(20);
  const milliseconds cpuBefore = agent_->CpuTime();
  const auto frame = client.Next(watched);
  const milliseconds cpu = agent_->CpuTime() - cpuBefore;

  EXPECT_FALSE(frame) << "a frame on channel " << frame->channel << " of type " << frame->TileType();
  EXPECT_FALSE(client.AgentClosed());
  RecordProperty("cpu_ms", static_cast<int>(cpu.count()));
  std::printf("resting agent: %d ms of CPU in %d s\n", static_cast<int>(cpu.count()),
              static_cast<int>(watched.count()));
  // Wine's screen must be read to be compared; only X11 tells that nothing was touched.
  if (!AgentRunsUnderWine() && !BuiltWithSanitizers()) {
    EXPECT_LT(cpu, milliseconds(watched) / 100);
  }
}

TEST_F(RestingScreenTest, AnswersARepaintWithAKeyframe) {
  WireClient client = ConnectClient();
  ASSERT_TRUE(ReachRest(client));
  client.SendControl(R"({"t":16})");
  const auto frame = client.Next(kPatience);
  ASSERT_TRUE(frame);
  EXPECT_TRUE(frame->BeginsKeyframe());
  EXPECT_TRUE(AgentLogs("INF [tiles] repaint requested by the supporter"));
}

TEST_F(RestingScreenTest, AnswersASelectedMonitorWithTheList) {
  WireClient client = ConnectClient();
  ASSERT_TRUE(ReachRest(client));
  client.SendControl(R"({"t":5,"index":7})");  // there is no such monitor: no answer
  client.SendControl(R"({"t":5,"index":0})");
  std::optional<WireFrame> frame;
  do {
    frame = client.Next(kPatience);
    ASSERT_TRUE(frame);
  } while (frame->channel != 0);
  const std::string json(frame->payload.begin(), frame->payload.end());
  EXPECT_NE(json.find("\"t\":9,"), std::string::npos) << json;
  EXPECT_NE(json.find("\"index\":0,\"count\":1,"), std::string::npos) << json;
}

}  // namespace
}  // namespace cvn::end_to_end
