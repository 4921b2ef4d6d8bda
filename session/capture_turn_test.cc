#include "session/capture_turn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "testing/captured_log.h"
#include "testing/fake_clock.h"
#include "testing/fake_tile_transport.h"
#include "testing/scripted_capturer.h"
#include "testing/tile_stream_text.h"

namespace cvn::agent {
namespace {

using Texts = std::vector<std::string>;

constexpr PixelRect kCell = {0, 0, 64, 64};

/// A loop at 30 frames a second, a turn every 34 ms on a clock of whole ones, on two monitors, 128x64 and
/// 64x64, without a thread: `Play` lets time pass.
class CaptureTurnTest : public testing::Test {
 protected:
  CaptureTurn& Turn() {
    if (!turn_)
      turn_.emplace(CaptureTurnParts{.clock = clock_,
                                     .displays = screen_,
                                     .backends = std::move(backends_),
                                     .sender = sender_,
                                     .requests = requests_,
                                     .quality = quality_});
    return *turn_;
  }

  /// Runs turns as the capture thread would, for `ms`. Returns the longest wait that was asked for.
  int64_t Play(int64_t ms) {
    int64_t longestNs = 0;
    for (const int64_t endMs = clock_.NowMs() + ms; clock_.NowMs() < endMs;) {
      const int64_t waitNs = Turn().Run().count();
      longestNs = std::max(longestNs, waitNs);
      const int64_t leftMs = std::max<int64_t>(endMs - clock_.NowMs(), 0);
      clock_.AdvanceMs(std::min((waitNs + 999'999) / 1'000'000, leftMs));
    }
    return longestNs / 1'000'000;
  }
  void PlayFromStart(int64_t ms) {
    ASSERT_TRUE(Turn().Begin());
    Play(ms);
  }
  /// Of a screen that is looked at at the full rate.
  int CapturesOfASecond() {
    requests_.NoteSupporterActed();
    screen_.Fill(kCell, ++colour_);
    Play(100);
    const int before = screen_.Captures();
    requests_.NoteSupporterActed();
    Play(1'000);
    return screen_.Captures() - before;
  }
  /// One call as after a wake.
  void RunOnce() { Turn().Run(); }

  Texts Sent() { return TileMessageTexts(transport_.TakeMessages()); }
  void ForgetStart() { transport_.TakeMessages(); }

  FakeClock clock_;
  ScriptedScreen screen_{{{0, 0, 128, 64}, {128, 0, 192, 64}}};
  CaptureBackends backends_ = screen_.Backends();
  FakeTileTransport transport_{"corvinet.tiles.v2"};
  TileStreamSender sender_{clock_, transport_, nullptr, {}};
  QualityControl quality_{clock_, transport_, sender_, false};
  SessionRequests requests_{0};
  CapturedLog log_;
  uint32_t colour_ = 0;
  std::optional<CaptureTurn> turn_;
};

TEST_F(CaptureTurnTest, SaysWhatItCapturesAndStreams) {
  PlayFromStart(1);
  Turn().End();
  Texts lines = log_.Lines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0], "INF [session] capture monitor=0 bounds=(0,0) 128x64 virtual=(0,0) 192x64");
  EXPECT_EQ(lines[1], "INF [session] streaming 128x64 from 128x64 (preset=High, viewport=0x0)");
  EXPECT_EQ(lines[2].substr(0, 43), "INF [tiles] frame seq=0 tiles=2/2 lossless=");
  EXPECT_EQ(lines[3].substr(0, 31), "INF [session] first tile frame ");
  EXPECT_EQ(lines[3].substr(lines[3].find(" bytes")), " bytes after 1 captured frames");
  EXPECT_EQ(lines[4], "INF [session] capture loop ended");
}

TEST_F(CaptureTurnTest, GivesUpOnVideoWithoutAnyCapturer) {
  screen_.SetAttachable(false);
  screen_.SetCreatable(false);
  EXPECT_FALSE(Turn().Begin());
  Turn().End();
  EXPECT_EQ(log_.Lines(),
            (Texts{"WRN [session] could not attach the capture thread to the input desktop; retrying during "
                   "capture",
                   "WRN [session] no capturer for monitor 0: scripted failure",
                   "WRN [session] no screen capturer could be created; the session has no video",
                   "INF [session] capture loop ended"}));
}

TEST_F(CaptureTurnTest, SendsNothingOfAStaticScreenButOneHeartbeat) {
  PlayFromStart(1);
  ForgetStart();
  Play(999);
  EXPECT_EQ(Sent(), Texts{});
  Play(2'000);
  EXPECT_EQ(Sent(), Texts{"[1 128x64] heartbeat 1"});
  const int before = screen_.Captures();
  EXPECT_EQ(Play(10'000), 125);
  EXPECT_NEAR(screen_.Captures() - before, 80, 1);
  screen_.Fill(kCell, 0xffffff);
  Play(5'000);
  EXPECT_EQ(Sent(), (Texts{"[1 128x64] frame 1: 1 tiles of 64 in 128x64", "[1 128x64] batch 1: 0"}))
      << "no second announcement";
  EXPECT_EQ(log_.Count("INF [tiles] liveness heartbeat announced"), 1u);
  Play(15'000);
  EXPECT_TRUE(log_.Mentions(" 0 late in the last 30 s; ") && log_.Mentions("; idle-paced"));
}

TEST_F(CaptureTurnTest, SendsTheFirstChangeAfterARestAtOnce) {
  PlayFromStart(3'010);
  ForgetStart();
  for (uint32_t colour = 1; colour <= 3; ++colour) {
    screen_.Fill(kCell, colour);
    requests_.NoteScreenTouched();
    RunOnce();
    EXPECT_EQ(Sent().size(), 2u) << "typing: " << colour;
    Play(100);
  }
  screen_.Fill(kCell, 11);
  Play(34);
  EXPECT_EQ(Sent().size(), 2u) << "untouched: by a regular turn";
  screen_.Fill(kCell, 12);
  requests_.NoteScreenTouched();
  RunOnce();
  EXPECT_EQ(Sent(), Texts{}) << "never faster than the frame rate";
  Play(40);
  EXPECT_EQ(Sent().size(), 2u);
}

TEST_F(CaptureTurnTest, LooksForTheAnswerToWhatTheSupporterDoes) {
  PlayFromStart(3'000);
  requests_.NoteSupporterActed();
  EXPECT_LE(Play(990), 40);
  EXPECT_EQ(Play(500), 125) << "and rests again";
}

TEST_F(CaptureTurnTest, RepaintsAStaticScreenWithinAFrame) {
  PlayFromStart(5'000);
  ForgetStart();
  requests_.repaint = true;
  requests_.NoteSupporterActed();
  Play(41);
  EXPECT_EQ(Sent(), (Texts{"[2 128x64] keyframe 1: 2 tiles of 64 in 128x64", "[2 128x64] batch 1: 0 1"}));
  EXPECT_FALSE(requests_.repaint);
}

TEST_F(CaptureTurnTest, SendsADroppedChangeOnceTheLineIsFree) {
  PlayFromStart(5'000);
  ForgetStart();
  transport_.SetQueuedBytes(1'000'000);
  screen_.Fill(kCell, 0xffffff);
  Play(20'000);
  EXPECT_EQ(Sent(), Texts{});
  EXPECT_TRUE(log_.Mentions("[tiles] backpressure: 10 frames dropped"));
  transport_.SetQueuedBytes(0);
  Play(41);
  EXPECT_EQ(Sent(), (Texts{"[1 128x64] frame 1: 1 tiles of 64 in 128x64", "[1 128x64] batch 1: 0"}));
}

TEST_F(CaptureTurnTest, FeedsTheLineBetweenTurns) {
  screen_.PaintEach({0, 0, 128, 64}, [state = 1u](int32_t, int32_t) mutable {
    return (state = state * 1664525 + 1013904223) >> 8;
  });
  transport_.HoldSends(true);
  transport_.SetQueuedBytes(60'000);
  PlayFromStart(1);
  EXPECT_EQ(transport_.MessageCount(), 1u) << "the batch finds no room beside the backlog";
  EXPECT_LE(Play(33), 10);
  EXPECT_EQ(screen_.Captures(), 1);
  ForgetStart();
  transport_.Drain(60'000);
  Play(1);
  EXPECT_EQ(Sent(), Texts{"[1 128x64] batch 0: 0 1"});
  EXPECT_EQ(screen_.Captures(), 2);
}

TEST_F(CaptureTurnTest, SwitchesMonitorsOnRequest) {
  PlayFromStart(100);
  ForgetStart();
  requests_.monitor = 1;
  requests_.showCursor = true;
  Play(100);
  EXPECT_EQ(Sent(), (Texts{"[2 64x64] keyframe 1: 1 tiles of 64 in 64x64", "[2 64x64] batch 1: 0"}));
  EXPECT_EQ(log_.Count("INF [session] switched capture to monitor 1 bounds=(128,0) 64x64"), 1u);
  EXPECT_EQ(log_.Count("INF [session] streaming 64x64 from 64x64 (preset=High, viewport=0x0)"), 1u);
  EXPECT_TRUE(screen_.CursorShown());
  EXPECT_EQ(screen_.CapturersMade(), 2) << "once, not in every turn";

  screen_.SetCreatable(false);
  requests_.monitor = -1;
  Play(200);
  EXPECT_EQ(requests_.monitor, 1) << "what is still shown can be asked about, and the other tried again";
  EXPECT_EQ(log_.Count("WRN [session] no capturer for monitor -1: scripted failure"), 1u);
}

TEST_F(CaptureTurnTest, FollowsTheViewersReports) {
  PlayFromStart(2'000);
  ForgetStart();
  QualityReport report = {.receiveKbps = 9'000, .lossPermille = 0, .rttMs = 20};
  for (int i = 0; i < 6; ++i) requests_.qualityReports.Add(report);
  Play(130);
  EXPECT_TRUE(log_.Mentions("target=32000 kbps/60 fps"));
  EXPECT_NEAR(CapturesOfASecond(), 59, 1) << "17 ms on this clock";
  EXPECT_EQ(Sent().size(), 2u) << "nothing but the change";

  report.lossPermille = 999;
  for (int i = 0; i < 11; ++i) requests_.qualityReports.Add(report);
  Play(130);
  EXPECT_EQ(CapturesOfASecond(), 8);
  ForgetStart();

  report.preset = QualityPreset::kDataSaver;
  report.grayscale = true;
  report.viewportWidth = 800;
  report.viewportHeight = 600;
  requests_.qualityReports.Add(report);
  Play(130);
  EXPECT_EQ(Sent()[0], "[2 128x64] keyframe 3: 2 tiles of 64 in 128x64");
  report.viewportHeight = 601;
  requests_.qualityReports.Add(report);
  Play(3'000);
  EXPECT_EQ(log_.Count(
                "INF [session] streaming 128x64 from 128x64 (preset=DataSaver, grayscale, viewport=800x600)"),
            1u);
  EXPECT_EQ(log_.Count(
                "INF [session] streaming 128x64 from 128x64 (preset=DataSaver, grayscale, viewport=800x601)"),
            1u);
  EXPECT_EQ(Sent(), Texts{}) << "a viewport changes no picture";
}

TEST_F(CaptureTurnTest, AsksLessOfAFullFrameFallback) {
  backends_.duplication = [](int32_t, std::string& error) {
    error = "scripted failure";
    return nullptr;
  };
  PlayFromStart(100);
  for (int i = 0; i < 6; ++i)
    requests_.qualityReports.Add({.receiveKbps = 9'000, .lossPermille = 0, .rttMs = 20});
  Play(130);
  EXPECT_TRUE(log_.Mentions("target=12000 kbps/30 fps"));
  EXPECT_FALSE(log_.Mentions("/60 fps"));
}

TEST_F(CaptureTurnTest, AnUnknownMonitorMeansAllDisplaysOnce) {
  requests_.monitor = 7;
  PlayFromStart(500);
  EXPECT_EQ(screen_.CapturersMade(), 1);
  EXPECT_EQ(log_.Count("INF [session] capture monitor=-1 bounds=(0,0) 192x64 virtual=(0,0) 192x64"), 1u);
}

TEST_F(CaptureTurnTest, KeepsTheViewerWaitingWhileCaptureFails) {
  PlayFromStart(5'000);
  ForgetStart();
  screen_.SetCapturable(false);
  Play(125);
  EXPECT_LE(Play(9'865), 40) << "no time to rest";
  EXPECT_EQ(Sent(), Texts(10, "[1 128x64] heartbeat 1"));
  Play(10'000);
  EXPECT_EQ(Sent(), Texts{}) << "ten seconds of patience";
  screen_.SetCapturable(true);
  screen_.Fill(kCell, 0xffffff);
  Play(2'000);
  EXPECT_EQ(Sent(), (Texts{"[1 128x64] frame 1: 1 tiles of 64 in 128x64", "[1 128x64] batch 1: 0"}));
}

TEST_F(CaptureTurnTest, SendsNoHeartbeatBeforeTheFirstPicture) {
  screen_.SetCapturable(false);
  PlayFromStart(9'000);
  EXPECT_EQ(Sent(), Texts{});
}

TEST_F(CaptureTurnTest, ReattachesWhileCaptureFails) {
  screen_.SetCapturable(false);
  PlayFromStart(100);
  EXPECT_EQ(screen_.CapturersMade(), 1);
  screen_.SetAttachable(false);
  Play(40);
  EXPECT_EQ(screen_.CapturersMade(), 2);
  Play(900);
  EXPECT_EQ(screen_.CapturersMade(), 3) << "every 500 ms, at the pace of the turns";
  EXPECT_EQ(log_.Count("WRN [session] capture failing for 102 ms (4 frames, attempt 1); reattaching to the "
                       "active input desktop"),
            1u);
  EXPECT_EQ(log_.Count("WRN [session] capture failing for 612 ms (19 frames, attempt 2); reattaching to the "
                       "active input desktop"),
            1u);
  EXPECT_EQ(log_.Count("WRN [session] input desktop reattach failed; capture will retry"), 2u);
  screen_.SetCapturable(true);
  Play(100);
  screen_.SetCapturable(false);
  Play(200);
  EXPECT_EQ(log_.Count("WRN [session] capture failing for 102 ms (4 frames, attempt 1); reattaching to the "
                       "active input desktop"),
            2u)
      << "a new run counts from one";
}

/// Frames of one colour and any size, taking their time and claiming that nothing changed.
struct OddScreen {
  uint8_t gray = 0;
  int32_t width = 64;
  int32_t height = 64;
  int64_t captureMs = 0;
};

class OddCapturer final : public ScreenCapturer {
 public:
  OddCapturer(FakeClock& clock, const OddScreen& screen) : clock_(clock), screen_(screen) {}
  int32_t OriginX() const override { return 0; }
  int32_t OriginY() const override { return 0; }
  int32_t Width() const override { return screen_.width; }
  int32_t Height() const override { return screen_.height; }
  int32_t MonitorIndex() const override { return -1; }
  bool UsesDesktopDuplication() const override { return false; }
  void SetShowCursor(bool) override {}
  bool Capture(CapturedFrame& frame) override {
    clock_.AdvanceMs(screen_.captureMs);
    pixels_.assign(static_cast<size_t>(screen_.width) * static_cast<size_t>(screen_.height) * 4,
                   screen_.gray);
    frame = {.width = static_cast<uint32_t>(screen_.width),
             .height = static_cast<uint32_t>(screen_.height),
             .pixels = pixels_.data(),
             .byteSize = pixels_.size(),
             .unchanged = false,
             .changed = std::span<const PixelRect>()};
    return true;
  }

 private:
  FakeClock& clock_;
  const OddScreen& screen_;
  std::vector<uint8_t> pixels_;
};

class OddCaptureTurnTest : public CaptureTurnTest {
 protected:
  OddCaptureTurnTest() {
    backends_.fallback = [this](int32_t, std::string&) {
      return std::make_unique<OddCapturer>(clock_, odd_);
    };
  }

  OddScreen odd_;
};

TEST_F(OddCaptureTurnTest, SurvivesAChangeOfTheScreensSize) {
  PlayFromStart(100);
  ForgetStart();
  odd_.width = 128;
  Play(50);
  EXPECT_EQ(Sent(), (Texts{"[2 128x64] keyframe 1: 2 tiles of 64 in 128x64", "[2 128x64] batch 1: 0 1"}));
  EXPECT_EQ(log_.Count("INF [session] streaming 128x64 from 128x64 (preset=High, viewport=0x0)"), 1u);
  EXPECT_EQ(log_.Count("INF [session] capture monitor=-1 bounds=(0,0) 128x64 virtual=(0,0) 192x64"), 1u);
}

TEST_F(OddCaptureTurnTest, LooksAtEverythingThatAnotherCapturerShows) {
  PlayFromStart(100);
  ForgetStart();
  odd_.gray = 9;
  requests_.monitor = 1;
  Play(50);
  EXPECT_EQ(Sent(), (Texts{"[1 64x64] frame 1: 1 tiles of 64 in 64x64", "[1 64x64] batch 1: 0"}));
}

TEST_F(OddCaptureTurnTest, SkipsFramesThatCannotBeSent) {
  PlayFromStart(100);
  ForgetStart();
  odd_.width = 0;
  Play(500);
  EXPECT_EQ(Sent(), Texts{});
  EXPECT_EQ(log_.Count("WRN [session] a frame could not be sent: frame size"), 1u);
  odd_.width = 64;
  Play(50);
  EXPECT_EQ(Sent(), (Texts{"[2 64x64] keyframe 1: 1 tiles of 64 in 64x64", "[2 64x64] batch 1: 0"}));
}

TEST_F(OddCaptureTurnTest, TellsTheLadderThatTheMachineIsOverloaded) {
  odd_.captureMs = 40;
  PlayFromStart(2'100);
  requests_.qualityReports.Add({});
  Play(100);
  EXPECT_TRUE(log_.Mentions("target=8000 kbps/30 fps (producer overloaded)"));
}

TEST_F(OddCaptureTurnTest, NeverWaitsAfterALateTurnAndSaysSo) {
  odd_.captureMs = 40;
  ASSERT_TRUE(Turn().Begin());
  EXPECT_EQ(Play(29'990), 0);
  odd_.captureMs = 33;
  EXPECT_EQ(Play(100), 1);
  EXPECT_TRUE(
      log_.Mentions("INF [session] capture loop overloaded: 1 encoded, 0 unchanged-skipped, 749 late "
                    "in the last 30 s; capture avg/max=40.00/40.00 ms (750 samples), encode+admit "
                    "avg/max=0.00/0.00 ms (750 samples)"));
}

}  // namespace
}  // namespace cvn::agent
