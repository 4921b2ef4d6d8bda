#include "view/view_session.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <tuple>

#include "testing/eventually.h"
#include "testing/memory_channel.h"
#include "testing/received_frames.h"
#include "view/stream_for_test.h"

namespace cvn::view {
namespace {

using agent::Channel;
using agent::ControlMessage;

constexpr PictureSize kSize{100, 70};

/// A viewer's session whose agent is the test, over an in-memory connection.
class Rig {
 public:
  Rig() {
    agent::MemoryChannelPair pair = agent::CreateMemoryChannelPair();
    agent_ = std::make_unique<agent::TransportConnection>(nullptr, std::move(pair.agent), "viewer:1");
    viewer_ = std::make_unique<agent::TransportConnection>(nullptr, std::move(pair.viewer), "agent:1");
    agent_->Start(asked_.Handler());
  }
  ~Rig() {
    stop_.Set();
    if (thread_.joinable()) thread_.join();
    agent_->Close();
  }

  void Begin(const ViewWishes& wishes) {
    session_ = std::make_unique<ViewSession>(receiver_, clock_, wishes);
    thread_ = std::thread(
        [this] { outcome_ = session_->Run(*viewer_, {.durationNs = {}, .untilIdle = true}, stop_); });
  }
  ViewOutcome End() {
    thread_.join();
    return outcome_;
  }

  void Send(Channel channel, Bytes message) { agent_->Enqueue(channel, std::move(message)); }
  void SendFrame(const agent::EncodedTile& tile, bool keyframe) {
    for (Bytes& message : writer_.Frame({&tile, 1}, keyframe)) Send(Channel::Tiles, std::move(message));
  }
  void SendKeyframe() { SendFrame(FlatTile(0, 0, kSize, 0xff102030), true); }
  void SendMonitorList(int index, int count) {
    SendControl(R"({"t":9,"index":)" + std::to_string(index) + R"(,"count":)" + std::to_string(count) + "}");
  }
  void SendControl(const std::string& text) { Send(Channel::Control, {text.begin(), text.end()}); }
  /// The agent leaves when all that it sent is on its way.
  void Leave() {
    EXPECT_TRUE(agent::Eventually([this] {
      return agent_->QueuedBytes(Channel::Tiles) == 0 && agent_->QueuedBytes(Channel::Control) == 0;
    }));
    agent_->Close();
  }

  /// The nth thing that the viewer asked for.
  ControlMessage Asked(size_t nth) {
    if (!agent::Eventually([&] { return asked_.Count() > nth; })) return {};
    const auto frame = asked_.All()[nth];
    return agent::DecodeControlMessage(frame.bytes).value_or(ControlMessage{});
  }

  bool ViewerIsOpen() const { return viewer_->IsOpen(); }

 private:
  agent::SystemClock clock_;
  PrivateCanvasMemory memory_;
  TileReceiver receiver_{memory_, TestCodec(), clock_, 0};
  StreamWriter writer_{kSize};
  agent::StopSignal stop_;
  agent::ReceivedFrames asked_;
  std::unique_ptr<agent::TransportConnection> agent_;
  std::unique_ptr<agent::TransportConnection> viewer_;
  std::unique_ptr<ViewSession> session_;
  std::thread thread_;
  ViewOutcome outcome_;
};

TEST(ViewSession, AsksForWhatIsWishedForAndWaitsForIt) {
  Rig rig;
  rig.Begin(
      {.monitor = 1, .showCursor = true, .repaint = true, .quality = {.preset = "High"}, .exact = true});
  EXPECT_EQ(rig.Asked(0).type, agent::kQuality);
  EXPECT_EQ(rig.Asked(0).preset, "High");
  EXPECT_EQ(rig.Asked(1).type, agent::kCursorVisibility);
  EXPECT_TRUE(rig.Asked(1).show);
  rig.SendMonitorList(-1, 2);
  EXPECT_EQ(rig.Asked(2).type, agent::kSelectMonitor);
  EXPECT_EQ(rig.Asked(2).index, 1);
  rig.SendMonitorList(1, 2);
  EXPECT_EQ(rig.Asked(3).type, agent::kSelectMonitor) << "the probe, with what is shown already";
  EXPECT_EQ(rig.Asked(3).index, 1);
  rig.Send(static_cast<Channel>(2), {1, 2, 3});
  rig.SendControl(R"({"t":3,"data":"clipboard","news":[1]})");
  rig.SendKeyframe();
  EXPECT_EQ(rig.Asked(4).type, agent::kRepaint);
  rig.SendFrame(JpegTile(0, 0, kSize), true);
  EXPECT_EQ(rig.Asked(5).type, agent::kQuality) << "not at rest: the picture is not exact";
  EXPECT_GE(rig.Asked(5).kbps, 1);
  rig.SendFrame(FlatTile(0, 0, kSize, 1), false);
  ViewOutcome outcome;
  EXPECT_GE(agent::SecondsFor([&] { outcome = rig.End(); }), 0.5);
  EXPECT_EQ(outcome.end, ViewEnd::kIdle);
  EXPECT_TRUE(outcome.pictureReady) << outcome.error;
  EXPECT_FALSE(rig.ViewerIsOpen());
}

TEST(ViewSession, SaysWhatIsMissingWhenItEndsWithoutIt) {
  const std::string left = "the agent closed the connection: ";
  using Do = std::function<void(Rig&)>;
  const std::tuple<ViewWishes, Do, std::string> rows[] = {
      {{},
       [](Rig& rig) {
         rig.SendFrame(FlatTile(0, 0, {100, 69}, 1), true);
       },
       left + "100 of the picture's 7000 pixels had not arrived"},
      {{.monitor = 1},
       [](Rig& rig) { rig.SendMonitorList(0, 2), rig.SendKeyframe(); },
       left + "the agent had not switched to monitor 1"},
      {{.monitor = {}, .exact = true},
       [](Rig& rig) {
         rig.SendKeyframe(), rig.SendFrame(JpegTile(0, 0, {9, 9}), false);
       },
       left + "81 of the picture's 7000 pixels had not become exact"},
      {{.monitor = 2},
       [](Rig& rig) { rig.SendMonitorList(0, 2); },
       "there is no monitor 2: the agent's are numbered from 0 to 1"},
      {{}, [](Rig& rig) { rig.SendControl("[]"); }, "a control message that is no JSON object"},
  };
  for (const auto& [wishes, agentDoes, missing] : rows) {
    SCOPED_TRACE(missing);
    Rig rig;
    rig.Begin(wishes);
    agentDoes(rig);
    rig.Leave();
    const ViewOutcome outcome = rig.End();
    EXPECT_EQ(outcome.error, missing);
    EXPECT_FALSE(outcome.pictureReady);
  }
}

}  // namespace
}  // namespace cvn::view
