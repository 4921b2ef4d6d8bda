#include "session/agent_session.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "testing/captured_log.h"
#include "testing/eventually.h"
#include "testing/fake_image_codec.h"
#include "testing/fake_tile_transport.h"
#include "testing/scripted_capturer.h"
#include "testing/tile_stream_text.h"

namespace cvn::agent {
namespace {

class AgentSessionTest : public testing::Test {
 protected:
  SessionParts Parts() {
    return {.clock = clock_,
            .displays = screen_,
            .captureBackends =
                [this](std::function<void()> touched) { return screen_.Backends(std::move(touched)); },
            .createCodec = [this] { return MakeCodec(); },
            .tiles = tiles_,
            .control = control_};
  }
  std::unique_ptr<TileImageCodec> MakeCodec() {
    codecThreads_.insert(std::this_thread::get_id());
    auto codec = std::make_unique<FakeImageCodec>();
    std::shared_ptr<void> end(nullptr, [this](void*) { codecThreads_.insert(std::this_thread::get_id()); });
    codec->onEncode = [this, end] { codecThreads_.insert(std::this_thread::get_id()); };
    return codec;
  }
  static void Handle(AgentSession& session, const std::string& json) {
    session.HandleControlMessage({reinterpret_cast<const uint8_t*>(json.data()), json.size()});
  }
  bool Receives(const std::string& part) {
    return Eventually([&] {
      for (const auto& text : TileMessageTexts(tiles_->TakeMessages()))
        if (text.find(part) != std::string::npos) return true;
      return false;
    });
  }

  /// Where the codec was made, used and destroyed.
  std::set<std::thread::id> codecThreads_;
  SystemClock clock_;
  ScriptedScreen screen_{{{0, 0, 128, 64}, {128, 0, 192, 64}}};
  std::shared_ptr<FakeTileTransport> tiles_ = std::make_shared<FakeTileTransport>("corvinet.tiles.v2");
  std::shared_ptr<FakeTileTransport> control_ = std::make_shared<FakeTileTransport>();
  CapturedLog log_;
};

TEST_F(AgentSessionTest, AnswersEverybodyFromItsOwnThread) {
  AgentSession session({.viewOnly = false, .monitor = 0}, Parts());
  Handle(session, "{\"t\":10,\"show\":true}");
  session.Start();
  ASSERT_TRUE(Receives("keyframe 0: 2 tiles"));
  EXPECT_TRUE(screen_.CursorShown()) << "asked for before the start";
  std::thread person([&] {
    for (uint32_t colour = 1; colour <= 200; ++colour) screen_.Fill({0, 0, 64, 64}, colour);
  });
  std::thread viewer([&] {
    for (int i = 0; i < 200; ++i) Handle(session, "{\"t\":2,\"x\":1}");
    Handle(session, "{\"t\":5,\"index\":1}");
  });
  EXPECT_TRUE(Receives("64x64] keyframe"));
  person.join();
  viewer.join();
  Handle(session, "{\"t\":16}");
  EXPECT_TRUE(Receives("64x64] keyframe"));
  session.SendMonitorList();
  EXPECT_EQ(control_->MessageCount(), 2u);
  session.Stop();
  session.Stop();
  EXPECT_EQ(log_.Lines().back(), "INF [session] capture loop ended");
  screen_.Fill({128, 0, 192, 64}, 9);  // A watcher may be late.
}

TEST_F(AgentSessionTest, KeepsTheCodecOnItsThreadAndMakesThePictureExact) {
  screen_.PaintEach({0, 0, 128, 64}, [state = 1u](int32_t, int32_t) mutable {
    return (state = state * 1664525 + 1013904223) >> 8;
  });
  AgentSession session({.viewOnly = false, .monitor = 0}, Parts());
  session.Start();
  EXPECT_TRUE(Eventually([&] { return log_.Mentions(" lossless-refine"); })) << "though it is noise";
  EXPECT_TRUE(log_.Mentions("tiles=2/2 lossless=0 bytes=200 "));
  EXPECT_TRUE(log_.Mentions("tiles=2/2 lossless=2 "));
  session.Stop();
  EXPECT_EQ(codecThreads_.size(), 1u);
  EXPECT_FALSE(codecThreads_.contains(std::this_thread::get_id()));
}

TEST_F(AgentSessionTest, EndsItsLoopWithTheConnectionAndStopsPromptly) {
  AgentSession session({}, Parts());
  session.Start();
  ASSERT_TRUE(Receives("keyframe 0"));
  tiles_->SetOpen(false);
  EXPECT_TRUE(Eventually([&] { return log_.Count("INF [session] capture loop ended") == 1; }));

  AgentSession neverStarted({}, Parts());
  neverStarted.Stop();
}

TEST_F(AgentSessionTest, StreamsStripsAndSparesARelay) {
  tiles_->SetQueuedBytes(16'385);
  AgentSession session({.viewOnly = true, .monitor = -1, .relayed = true, .strips = 2}, Parts());
  session.Start();
  EXPECT_TRUE(Eventually([&] { return screen_.Captures() > 1; }));
  EXPECT_EQ(tiles_->MessageCount(), 0u);
  tiles_->SetQueuedBytes(0);
  EXPECT_TRUE(Receives("keyframe 0: 2 tiles of 32 in 192x64"));
  Handle(session, "{\"t\":2}");
  EXPECT_EQ(log_.Count("WRN [session] viewer command rejected: 2"), 1u);
}

}  // namespace
}  // namespace cvn::agent
