// How what was sent roughly becomes exact on a resting screen: the capture loop with a line of a given speed.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "session/capture_turn.h"
#include "testing/captured_log.h"
#include "testing/fake_clock.h"
#include "testing/fake_image_codec.h"
#include "testing/fake_tile_transport.h"
#include "testing/scripted_capturer.h"
#include "tiles/tile_message.h"

namespace cvn::agent {
namespace {

constexpr int kColumns = 10;
constexpr int kTiles = 60;
constexpr int kCaretTile = 55;
constexpr int64_t kLanBytesPerMs = 100'000;
constexpr int64_t kSlowBytesPerMs = 37;

/// Sixty tiles of noise, whose exact forms take more than 16 KB each, but for one that is black.
class RestingPictureTest : public testing::Test {
 protected:
  RestingPictureTest() {
    screen_.SetGivesHint(true);
    transport_.HoldSends(true);
    codec_.jpegBytes = 1'500;
    codec_.webpBytes = 1'000;
  }

  static PixelRect RectOf(int tile) {
    const int32_t left = tile % kColumns * 64;
    const int32_t top = tile / kColumns * 64;
    return {left, top, left + 64, top + 64};
  }
  void Photograph(const PixelRect& rect) {
    screen_.PaintEach(rect, [this](int32_t, int32_t) {
      noise_ = noise_ * 6364136223846793005u + 1442695040888963407u;
      return static_cast<uint32_t>(noise_ >> 40);
    });
  }
  void BlinkCaret() { screen_.Fill({640 / 2 + 2, 330, 640 / 2 + 4, 350}, caret_ ^= 0xffffff); }

  void Start(int64_t bytesPerMs) {
    bytesPerMs_ = bytesPerMs;
    Photograph({0, 0, 640, 384});
    screen_.Fill(RectOf(kCaretTile), 0);
    ASSERT_TRUE(turn_.Begin());
  }

  /// Lets time pass as the capture thread and the network would.
  void Play(int64_t ms) {
    for (const int64_t endMs = clock_.NowMs() + ms; clock_.NowMs() < endMs;) {
      const int64_t waitMs = (turn_.Run().count() + 999'999) / 1'000'000;
      longestWaitMs_ = std::max(longestWaitMs_, waitMs);
      Receive();
      const int64_t passes = std::min(waitMs, endMs - clock_.NowMs());
      clock_.AdvanceMs(passes);
      transport_.Drain(passes * bytesPerMs_);
    }
  }
  void PlayUntilExact(int64_t mostMs) {
    for (const int64_t endMs = clock_.NowMs() + mostMs; clock_.NowMs() < endMs && !Exact();) Play(10);
    EXPECT_TRUE(Exact()) << rough_.size() << " rough tiles";
  }
  void PlayUntilCoarse() {
    for (int ms = 0; ms < 10'000 && !log_.Mentions(" coarse"); ++ms) Play(1);
  }
  bool Exact() const { return seen_.size() == kTiles && rough_.empty(); }

  void Receive() {
    for (const auto& message : transport_.TakeMessages()) {
      const auto envelope = ParseEnvelope(message);
      const auto batch = ParseTileBatch(envelope ? envelope->message : message);
      if (!batch) continue;
      const int64_t backlog = transport_.QueuedBytes();
      largestBacklog_ = std::max(largestBacklog_, backlog);
      for (const TileRecord& record : batch->records) {
        const int tile = static_cast<int>(record.index);
        arrivesMs_[tile] = clock_.NowMs() + backlog / bytesPerMs_;
        seen_.insert(tile);
        const bool exact = record.coding <= static_cast<uint8_t>(TileCoding::kLossless);
        if (exact)
          rough_.erase(tile);
        else
          rough_.insert(tile);
      }
    }
  }

  FakeClock clock_;
  ScriptedScreen screen_{640, 384};
  FakeTileTransport transport_{"corvinet.tiles.v2"};
  FakeImageCodec codec_;
  TileStreamSender sender_{
      clock_, transport_, &codec_, {.encoder = {.refineTilesPerPass = 32, .refineBudget = 1'024}}};
  QualityControl quality_{clock_, transport_, sender_, false};
  SessionRequests requests_{0};
  CaptureTurn turn_{{.clock = clock_,
                     .displays = screen_,
                     .backends = screen_.Backends([this] { requests_.NoteScreenTouched(); }),
                     .sender = sender_,
                     .requests = requests_,
                     .quality = quality_}};
  CapturedLog log_;
  uint64_t noise_ = 1;
  uint32_t caret_ = 0;
  int64_t bytesPerMs_ = 0;
  int64_t longestWaitMs_ = 0;
  int64_t largestBacklog_ = 0;
  std::set<int> seen_;
  std::set<int> rough_;
  std::map<int, int64_t> arrivesMs_;
};

TEST_F(RestingPictureTest, BecomesExactBackToBackOnceItHasRestedAndThenCostsNothing) {
  Start(kLanBytesPerMs);
  Play(199);
  EXPECT_EQ(rough_.size(), static_cast<size_t>(kTiles - 1));
  EXPECT_TRUE(log_.Mentions("tiles=60/60 lossless=1 "));
  Play(3);
  EXPECT_FALSE(rough_.empty()) << "no bite takes all the time there is";
  Play(98);
  EXPECT_TRUE(Exact());
  EXPECT_LT(sender_.LastDropMs(), 0) << "its own bites are no congestion";
  const uint64_t sentBytes = transport_.SentBytes();
  Play(1'500);
  const int captures = screen_.Captures();
  Play(20'000);
  EXPECT_LE(screen_.Captures() - captures, 162) << "idle, and looking once in 120 frames for more";
  EXPECT_LE(transport_.SentBytes() - sentBytes, 20u) << "one heartbeat";
}

TEST_F(RestingPictureTest, BecomesExactBesideABlinkingCaret) {
  Start(kLanBytesPerMs / 50);
  for (int blinks = 0; blinks < 4; ++blinks) {
    BlinkCaret();
    const int64_t changedMs = clock_.NowMs();
    Play(500);
    EXPECT_LE(arrivesMs_[kCaretTile] - changedMs, 40 + 33) << "a frame, and the bite before it";
  }
  EXPECT_TRUE(Exact()) << rough_.size() << " rough tiles";
}

TEST_F(RestingPictureTest, NeverDelaysAChangeForLongOnASlowLine) {
  Start(kSlowBytesPerMs);
  Play(5'000);
  largestBacklog_ = 0;
  for (int pauseMs = 2'000; !Exact() && clock_.NowMs() < 90'000; pauseMs += 7) {
    Play(pauseMs);
    if (Exact()) break;
    EXPECT_LE(longestWaitMs_, 34) << "no rest while there is something to send";
    BlinkCaret();
    const int64_t changedMs = clock_.NowMs();
    Play(1'000);
    ASSERT_GT(arrivesMs_[kCaretTile], changedMs);
    EXPECT_LE(arrivesMs_[kCaretTile] - changedMs, 16'500 / kSlowBytesPerMs + 50)
        << "one whole tile may be on its way";
  }
  EXPECT_LE(largestBacklog_, 16'500);
  EXPECT_TRUE(Exact()) << rough_.size() << " rough tiles";
}

TEST_F(RestingPictureTest, SendsCoarseTilesAgainBeforeItRefines) {
  Start(kSlowBytesPerMs);
  Play(3'000);
  sender_.SetQuality(50, 256, 3);
  Photograph({0, 0, 640, 384});
  PlayUntilCoarse();
  EXPECT_EQ(codec_.lastQuality, 30);
  const int coarseCalls = codec_.jpegCalls + codec_.webpCalls;
  PlayUntilExact(60'000);
  EXPECT_EQ(codec_.lastQuality, 85);
  EXPECT_EQ(codec_.jpegCalls + codec_.webpCalls, coarseCalls + kTiles) << "each once";
  Photograph(RectOf(3));
  Play(1'000);
  EXPECT_EQ(codec_.lastQuality, 50) << "a change is coded as ever";
}

TEST_F(RestingPictureTest, KeepsAQualityThatIsHigherThanARestNeeds) {
  Start(kSlowBytesPerMs);
  Play(3'000);
  Photograph({0, 0, 640, 384});
  PlayUntilCoarse();
  PlayUntilExact(60'000);
  EXPECT_EQ(codec_.lastQuality, 90);
}

}  // namespace
}  // namespace cvn::agent
