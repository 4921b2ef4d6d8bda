#include "view/view_session.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "testing/eventually.h"
#include "testing/memory_channel.h"
#include "testing/received_frames.h"
#include "view/stream_for_test.h"
#include "view/view_platform.h"

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

  void Begin(const ViewWishes& wishes, bool untilIdle) {
    session_ = std::make_unique<ViewSession>(receiver_, clock_, wishes);
    thread_ = std::thread([this, untilIdle] {
      outcome_ = session_->Run(*viewer_, {.durationNs = {}, .untilIdle = untilIdle}, stop_);
    });
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

  bool ViewerIsOpen() const { return viewer_->IsOpen(); }
  /// To be looked at when the session has ended.
  const TileReceiver& Receiver() const { return receiver_; }
  TileImageCodec& Codec() { return *codec_; }

 private:
  agent::SystemClock clock_;
  PrivateCanvasMemory memory_;
  const std::unique_ptr<TileImageCodec> codec_ = CreateHostImageCodec();
  TileReceiver receiver_{memory_, *codec_, clock_, 0};
  StreamWriter writer_{kSize};
  agent::StopSignal stop_;
  agent::ReceivedFrames asked_;
  std::unique_ptr<agent::TransportConnection> agent_;
  std::unique_ptr<agent::TransportConnection> viewer_;
  std::unique_ptr<ViewSession> session_;
  std::thread thread_;
  ViewOutcome outcome_;
};

TEST(ViewSession, EndsWhenAFullPictureHasRestedAndIgnoresWhatItNeedNotKnow) {
  Rig rig;
  ViewOutcome outcome;
  rig.Begin({}, true);
  const double seconds = agent::SecondsFor([&] {
    rig.Send(static_cast<Channel>(2), {1, 2, 3});
    rig.SendControl(R"({"t":3,"data":"clipboard","news":[1]})");
    rig.SendKeyframe();
    outcome = rig.End();
  });
  EXPECT_EQ(outcome.end, ViewEnd::kIdle);
  EXPECT_TRUE(outcome.pictureReady);
  EXPECT_EQ(outcome.error, "");
  EXPECT_GE(seconds, 0.5);
  EXPECT_FALSE(rig.ViewerIsOpen());
}

TEST(ViewSession, AsksForWhatIsWishedForAndWaitsForIt) {
  Rig rig;
  rig.Begin({.monitor = 1, .showCursor = true, .repaint = true, .quality = {.preset = "High"}, .exact = true},
            true);
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
  rig.SendKeyframe();
  EXPECT_EQ(rig.Asked(4).type, agent::kRepaint);
  rig.SendFrame(JpegTile(rig.Codec(), 0, 0, kSize), true);
  EXPECT_EQ(rig.Asked(5).type, agent::kQuality) << "not at rest: the picture is not exact";
  EXPECT_GE(rig.Asked(5).kbps, 1);
  rig.SendFrame(FlatTile(0, 0, kSize, 1), false);
  const ViewOutcome outcome = rig.End();
  EXPECT_EQ(outcome.end, ViewEnd::kIdle);
  EXPECT_TRUE(outcome.pictureReady) << outcome.error;
}

TEST(ViewSession, SaysWhatIsMissingWhenItEndsWithoutIt) {
  const std::string left = "the agent closed the connection: ";
  const struct {
    ViewWishes wishes;
    std::function<void(Rig&)> agentDoes;
    std::string error;
  } rows[] = {
      {{}, [](Rig&) {}, left + "no picture had arrived"},
      {{},
       [](Rig& rig) {
         rig.SendFrame(FlatTile(0, 0, {100, 69}, 1), true);
       },
       left + "100 of the picture's 7000 pixels had not arrived"},
      {{.monitor = 1},
       [](Rig& rig) {
         rig.SendMonitorList(0, 2);
         rig.SendKeyframe();
       },
       left + "the agent had not switched to monitor 1"},
      {{.monitor = {}, .repaint = true},
       [](Rig& rig) { rig.SendKeyframe(); },
       left + "the agent had not painted the picture again"},
      {{.monitor = {}, .exact = true},
       [](Rig& rig) {
         rig.SendKeyframe();
         rig.SendFrame(JpegTile(rig.Codec(), 0, 0, {9, 9}), false);
       },
       left + "81 of the picture's 7000 pixels had not become exact"},
      {{.monitor = 2},
       [](Rig& rig) { rig.SendMonitorList(0, 2); },
       "there is no monitor 2: the agent's are numbered from 0 to 1"},
      {{}, [](Rig& rig) { rig.SendControl("[]"); }, "a control message that is no JSON object"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.error);
    Rig rig;
    rig.Begin(row.wishes, true);
    row.agentDoes(rig);
    rig.Leave();
    const ViewOutcome outcome = rig.End();
    EXPECT_EQ(outcome.error, row.error);
    EXPECT_FALSE(outcome.pictureReady);
  }
}

TEST(ViewSession, ALieEndsItAtOnceAndNothingAfterItIsDrawn) {
  Rig rig;
  rig.Begin({}, false);
  rig.SendKeyframe();
  rig.Send(Channel::Tiles, {9, 9, 9});
  rig.SendFrame(FlatTile(0, 0, kSize, 0xff000000), false);
  const ViewOutcome outcome = rig.End();
  EXPECT_EQ(outcome.end, ViewEnd::kFailed);
  EXPECT_EQ(outcome.error, "a tile message of unknown type 9");
  EXPECT_EQ(rig.Receiver().Canvas().Pixels()[0], 0x30);
}

TEST(ViewSession, AnInterruptionEndsItAtOnceWithThePictureKept) {
  Rig rig;
  rig.Begin({.monitor = {}, .repaint = true}, false);
  rig.SendKeyframe();
  ASSERT_EQ(rig.Asked(1).type, agent::kRepaint) << "the picture is drawn by then";
  rig.Interrupt();
  EXPECT_LT(agent::SecondsFor([&] { EXPECT_EQ(rig.End().end, ViewEnd::kInterrupted); }), 2);
  EXPECT_TRUE(rig.Receiver().HasFullPicture());
}

}  // namespace
}  // namespace cvn::view
