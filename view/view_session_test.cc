#include "view/view_session.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

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

  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  void Begin(const ViewWishes& wishes, const ViewLimits& limits = {.durationNs = {}, .untilIdle = true}) {
    session_ = std::make_unique<ViewSession>(receiver_, clock_, wishes);
    thread_ = std::thread([this, limits] { outcome_ = session_->Run(*viewer_, limits, stop_); });
  }
  ViewOutcome End() {
    thread_.join();
    return outcome_;
  }

  void Send(Channel channel, Bytes message) { agent_->Enqueue(channel, std::move(message)); }
  void SendFrame(std::span<const agent::EncodedTile> tiles, bool keyframe) {
    for (Bytes& message : writer_.Frame(tiles, keyframe)) Send(Channel::Tiles, std::move(message));
  }
  void SendKeyframe() { SendFrame(std::vector{FlatTile(0, 0, kSize, 0xff102030)}, true); }
  void SendMonitorList(int32_t index, int32_t count) {
    ControlMessage message;
    message.type = agent::kMonitorList;
    message.index = index;
    message.count = count;
    SendControl(agent::EncodeControlMessage(message));
  }
  void SendControl(const std::string& text) { Send(Channel::Control, {text.begin(), text.end()}); }
  /// The agent leaves when all that it sent is on its way.
  void Leave() {
    EXPECT_TRUE(agent::Eventually([this] {
      return agent_->QueuedBytes(Channel::Tiles) == 0 && agent_->QueuedBytes(Channel::Control) == 0;
    }));
    agent_->Close();
  }
  void Interrupt() { stop_.Set(); }

  /// The nth thing that the viewer asked for.
  ControlMessage Asked(size_t nth) {
    if (!agent::Eventually([&] { return asked_.Count() > nth; })) return {};
    const auto frame = asked_.All()[nth];
    EXPECT_EQ(frame.channel, Channel::Control);
    return agent::DecodeControlMessage(frame.bytes).value_or(ControlMessage{});
  }

  size_t AskedCount() const { return asked_.Count(); }
  bool ViewerIsOpen() const { return viewer_->IsOpen(); }
  /// To be looked at when the session has ended.
  const TileReceiver& Receiver() const { return receiver_; }
  const StreamWriter& Writer() const { return writer_; }

 private:
  agent::SystemClock clock_;
  PrivateCanvasMemory memory_;
  TileReceiver receiver_{memory_, clock_, 0};
  StreamWriter writer_{kSize};
  agent::StopSignal stop_;
  agent::ReceivedFrames asked_;
  std::unique_ptr<agent::TransportConnection> agent_;
  std::unique_ptr<agent::TransportConnection> viewer_;
  std::unique_ptr<ViewSession> session_;
  std::thread thread_;
  ViewOutcome outcome_;
};

TEST(ViewSession, EndsWhenAFullPictureHasRestedAndAsksForNothingUnasked) {
  Rig rig;
  ViewOutcome outcome;
  rig.Begin({});
  const double seconds = agent::SecondsFor([&] {
    rig.SendMonitorList(-1, 1);
    rig.SendKeyframe();
    outcome = rig.End();
  });
  EXPECT_EQ(outcome.end, ViewEnd::kIdle);
  EXPECT_TRUE(outcome.pictureReady);
  EXPECT_EQ(outcome.error, "");
  EXPECT_GE(seconds, 0.5);
  EXPECT_FALSE(rig.ViewerIsOpen());
  EXPECT_EQ(rig.AskedCount(), 0u);
}

TEST(ViewSession, DrawsAllThatWasSentAndIgnoresWhatItNeedNotKnow) {
  Rig rig;
  rig.Begin({}, {.durationNs = {}, .untilIdle = false});
  rig.Send(static_cast<Channel>(2), {1, 2, 3});
  rig.SendControl(R"({"t":3,"data":"clipboard","news":[1]})");
  rig.Send(Channel::Tiles, agent::BuildHeartbeat(0));
  rig.SendKeyframe();
  rig.Send(Channel::Tiles, rig.Writer().Heartbeat());
  rig.Leave();
  const ViewOutcome outcome = rig.End();
  EXPECT_EQ(outcome.end, ViewEnd::kDisconnected);
  EXPECT_TRUE(outcome.pictureReady);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(rig.Receiver().Statistics().heartbeats, 2);
}

TEST(ViewSession, AsksForTheMonitorTheCursorAndTheRepaintThatAreWishedFor) {
  Rig rig;
  rig.Begin({.monitor = 1, .showCursor = true, .repaint = true});
  EXPECT_EQ(rig.Asked(0).type, agent::kCursorVisibility);
  EXPECT_TRUE(rig.Asked(0).show);
  rig.SendMonitorList(-1, 2);
  EXPECT_EQ(rig.Asked(1).type, agent::kSelectMonitor);
  EXPECT_EQ(rig.Asked(1).index, 1);
  rig.SendKeyframe();
  rig.SendMonitorList(1, 2);
  rig.SendFrame(std::vector{FlatTile(0, 0, {1, 1}, 5)}, false);
  EXPECT_EQ(rig.Asked(2).type, agent::kRepaint);
  rig.SendKeyframe();
  const ViewOutcome outcome = rig.End();
  EXPECT_EQ(outcome.end, ViewEnd::kIdle);
  EXPECT_TRUE(outcome.pictureReady) << outcome.error;
  EXPECT_EQ(rig.AskedCount(), 3u);
}

TEST(ViewSession, SaysWhatIsMissingWhenItEndsWithoutIt) {
  const struct {
    const char* what;
    ViewWishes wishes;
    std::function<void(Rig&)> agentDoes;
    const char* error;
  } rows[] = {
      {"nothing", {}, [](Rig&) {}, "the agent closed the connection: no picture had arrived"},
      {"part of the picture",
       {},
       [](Rig& rig) {
         rig.SendFrame(std::vector{FlatTile(0, 0, {100, 69}, 1)}, true);
       },
       "the agent closed the connection: 100 of the picture's 7000 pixels had not arrived"},
      {"the wrong monitor",
       {.monitor = 1},
       [](Rig& rig) {
         rig.SendMonitorList(0, 2);
         rig.SendKeyframe();
       },
       "the agent closed the connection: the agent had not switched to monitor 1"},
      {"no repaint",
       {.monitor = {}, .repaint = true},
       [](Rig& rig) { rig.SendKeyframe(); },
       "the agent closed the connection: the agent had not painted the picture again"},
      {"no such monitor",
       {.monitor = 2},
       [](Rig& rig) { rig.SendMonitorList(0, 2); },
       "there is no monitor 2: the agent's are numbered from 0 to 1"},
      {"bad control message",
       {},
       [](Rig& rig) { rig.SendControl("[]"); },
       "a control message that is no JSON object"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Rig rig;
    rig.Begin(row.wishes);
    row.agentDoes(rig);
    rig.Leave();
    const ViewOutcome outcome = rig.End();
    EXPECT_EQ(outcome.error, row.error);
    EXPECT_FALSE(outcome.pictureReady);
  }
}

TEST(ViewSession, ALieEndsItAtOnceAndNothingAfterItIsDrawn) {
  Rig rig;
  rig.Begin({}, {.durationNs = {}, .untilIdle = false});
  rig.SendKeyframe();
  rig.Send(Channel::Tiles, {9, 9, 9});
  rig.SendFrame(std::vector{FlatTile(0, 0, kSize, 0xff000000)}, false);
  const ViewOutcome outcome = rig.End();
  EXPECT_EQ(outcome.end, ViewEnd::kFailed);
  EXPECT_EQ(outcome.error, "a tile message of unknown type 9");
  EXPECT_EQ(rig.Receiver().Canvas().Pixels()[0], 0x30);
}

TEST(ViewSession, AnInterruptionEndsItAtOnceWithThePictureKept) {
  Rig rig;
  rig.Begin({.monitor = {}, .repaint = true}, {.durationNs = {}, .untilIdle = false});
  rig.SendKeyframe();
  ASSERT_EQ(rig.Asked(0).type, agent::kRepaint) << "the picture is drawn by then";
  const double seconds = agent::SecondsFor([&] {
    rig.Interrupt();
    EXPECT_EQ(rig.End().end, ViewEnd::kInterrupted);
  });
  EXPECT_LT(seconds, 2);
  EXPECT_TRUE(rig.Receiver().HasFullPicture());
}

TEST(ViewSession, EndsWhenTheTimeIsUpHoweverMuchStillComes) {
  Rig rig;
  rig.Begin({}, {.durationNs = 50'000'000, .untilIdle = true});
  for (int i = 0; i < 1000; ++i) rig.SendKeyframe();
  const ViewOutcome outcome = rig.End();
  EXPECT_EQ(outcome.end, ViewEnd::kTimeIsUp);
  EXPECT_TRUE(outcome.pictureReady) << outcome.error;
}

}  // namespace
}  // namespace cvn::view
