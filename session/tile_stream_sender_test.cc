#include "session/tile_stream_sender.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "testing/captured_log.h"
#include "testing/fake_clock.h"
#include "testing/fake_tile_transport.h"
#include "testing/tile_stream_text.h"

namespace cvn::agent {
namespace {

using Texts = std::vector<std::string>;

/// A picture made of 64x64 cells.
class Picture {
 public:
  Picture(int columns, int rows) : Picture(columns * 64, rows * 64, 0) {}
  Picture(int width, int height, uint32_t colour)
      : width_(width),
        height_(height),
        pixels_(static_cast<size_t>(width) * static_cast<size_t>(height), colour) {}

  void Fill(int column, int row, uint32_t colour) {
    PaintEach(column, row, [colour] { return colour; });
  }
  /// Cells that no coder makes smaller: 16395 bytes each.
  void Noise(int column, int row) {
    PaintEach(column, row, [this] {
      state_ = state_ * 6364136223846793005u + 1442695040888963407u;
      return static_cast<uint32_t>(state_ >> 32);
    });
  }
  CapturedFrame Frame() const {
    return {.width = static_cast<uint32_t>(width_),
            .height = static_cast<uint32_t>(height_),
            .pixels = reinterpret_cast<const uint8_t*>(pixels_.data()),
            .byteSize = pixels_.size() * 4,
            .unchanged = false,
            .changed = std::nullopt};
  }
  /// The same frame, claiming that only the one cell has changed.
  CapturedFrame FrameChangedAt(int column, int row) {
    hint_ = {{column * 64, row * 64, column * 64 + 64, row * 64 + 64}};
    CapturedFrame frame = Frame();
    frame.changed = hint_;
    return frame;
  }
  CapturedFrame UnchangedFrame() const {
    CapturedFrame frame = Frame();
    frame.unchanged = true;
    return frame;
  }

 private:
  template <typename Colour>
  void PaintEach(int column, int row, Colour colour) {
    for (int y = row * 64; y < row * 64 + 64; ++y)
      for (int x = column * 64; x < column * 64 + 64; ++x)
        pixels_[static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)] = colour();
  }

  int width_;
  int height_;
  std::vector<uint32_t> pixels_;
  std::vector<PixelRect> hint_;
  uint64_t state_ = 1;
};

/// Notes what it is asked for; knows no WebP.
class NotingCodec final : public TileImageCodec {
 public:
  std::vector<uint8_t> EncodeJpeg(std::span<const uint8_t>, int, int, int quality) override {
    lastQuality = quality;
    return {1};
  }
  bool Decode(std::span<const uint8_t>, int, int, std::vector<uint8_t>&) override { return false; }
  std::optional<std::vector<uint8_t>> EncodeWebp(std::span<const uint8_t>, int, int, int) override {
    webpAsked = true;
    return std::nullopt;
  }

  int lastQuality = 0;
  bool webpAsked = false;
};

class TileStreamSenderTest : public testing::Test {
 protected:
  Texts Sent() { return TileMessageTexts(transport_.TakeMessages()); }
  /// Those of the last batch sent.
  Texts LastPayloads() {
    const auto messages = transport_.TakeMessages();
    const auto envelope = ParseEnvelope(messages.back());
    const auto batch = ParseTileBatch(envelope->message);
    Texts payloads;
    for (const TileRecord& record : batch->records)
      payloads.emplace_back(record.payload.begin(), record.payload.end());
    return payloads;
  }
  /// Of a tile of one colour.
  static std::string TilePayload(uint32_t colour) {
    const Picture picture(64, 64, colour);
    TileEncoder encoder(64, 64, nullptr, {});
    const CapturedFrame frame = picture.Frame();
    const std::vector<uint8_t> payload = encoder.Encode({frame.pixels, frame.byteSize}).tiles[0].payload;
    return {payload.begin(), payload.end()};
  }
  TileStreamSender Sender(const TileStreamSettings& settings = {}) {
    return TileStreamSender(clock_, transport_, &codec_, settings);
  }
  /// Without a codec noise travels losslessly, so that payload sizes are known.
  TileStreamSender ExactSender(const TileStreamSettings& settings = {}) {
    return TileStreamSender(clock_, transport_, nullptr, settings);
  }

  FakeClock clock_;
  FakeTileTransport transport_{"corvinet.tiles.v2"};
  NotingCodec codec_;
  CapturedLog log_;
};

TEST_F(TileStreamSenderTest, NumbersOnlyFramesThatCarryTiles) {
  TileStreamSender sender = ExactSender();
  Picture picture(4, 2);
  EXPECT_GT(sender.SendFrame(picture.Frame()), 0);
  EXPECT_EQ(sender.SendFrame(picture.Frame()), 0);
  picture.Fill(3, 1, 0xffffff);
  EXPECT_GT(sender.SendFrame(picture.Frame()), 0);
  sender.RequestRepaint();
  EXPECT_TRUE(sender.WantsFrame());
  EXPECT_GT(sender.SendFrame(picture.UnchangedFrame()), 0);
  EXPECT_FALSE(sender.WantsFrame());
  EXPECT_EQ(
      Sent(),
      (Texts{"[1 256x128] keyframe 0: 8 tiles of 64 in 256x128", "[1 256x128] batch 0: 0 1 2 3 4 5 6 7",
             "[1 256x128] frame 1: 1 tiles of 64 in 256x128", "[1 256x128] batch 1: 7",
             "[2 256x128] keyframe 2: 8 tiles of 64 in 256x128", "[2 256x128] batch 2: 0 1 2 3 4 5 6 7"}));
}

TEST_F(TileStreamSenderTest, StartsAnewWithAnotherFrameSize) {
  TileStreamSender sender = ExactSender({.encoder = {.strips = 2}});
  Picture wide(4, 2);
  Picture small(1, 2);
  sender.SendFrame(wide.Frame());
  sender.SendFrame(small.FrameChangedAt(0, 0));
  EXPECT_EQ(Sent(), (Texts{"[1 256x128] keyframe 0: 2 tiles of 64 in 256x128", "[1 256x128] batch 0: 0 1",
                           "[2 64x128] keyframe 1: 2 tiles of 64 in 64x128", "[2 64x128] batch 1: 0 1"}));
}

TEST_F(TileStreamSenderTest, ClosesABatchBeforeItGrowsTooLarge) {
  TileStreamSender sender = ExactSender();
  Picture picture(5, 1);
  for (int column = 0; column < 5; ++column) picture.Noise(column, 0);
  EXPECT_EQ(sender.SendFrame(picture.Frame()), 5 * 16395);
  while (sender.PumpPending() > 0) {
  }
  EXPECT_EQ(Sent(), (Texts{"[1 320x64] keyframe 0: 5 tiles of 64 in 320x64", "[1 320x64] batch 0: 0 1",
                           "[1 320x64] batch 0: 2 3", "[1 320x64] batch 0: 4"}))
      << "three would be 49,185 bytes";

  TileStreamSender strips = ExactSender({.encoder = {.strips = 2}});
  Picture tall(4, 2);
  for (int cell = 0; cell < 8; ++cell) tall.Noise(cell % 4, cell / 4);
  strips.SendFrame(tall.Frame());
  while (strips.PumpPending() > 0) {
  }
  EXPECT_EQ(Sent(), (Texts{"[1 256x128] keyframe 0: 2 tiles of 64 in 256x128", "[1 256x128] batch 0: 0",
                           "[1 256x128] batch 0: 1"}))
      << "a tile over the limit travels alone";
}

TEST_F(TileStreamSenderTest, DropsAFrameWhileAnOlderOneWaits) {
  TileStreamSender sender = ExactSender();
  Picture picture(10, 1);
  for (int column = 0; column < 10; ++column) picture.Noise(column, 0);
  EXPECT_GT(sender.SendFrame(picture.Frame()), 0);
  picture.Fill(9, 0, 5);
  for (int batchesLeft = 4; batchesLeft > 1; --batchesLeft) {
    clock_.AdvanceMs(1);
    EXPECT_EQ(sender.SendFrame(picture.Frame()), 0) << "a bite is one batch here: " << batchesLeft;
    EXPECT_TRUE(sender.HasPending());
    EXPECT_EQ(sender.LastDropMs(), clock_.NowMs()) << "though the transport itself has nothing to write";
  }
  EXPECT_GT(sender.SendFrame(picture.Frame()), 0);
  EXPECT_EQ(sender.MeasuredKbps(), 8000);
}

TEST_F(TileStreamSenderTest, DropsAFrameWhileTheConnectionIsBehind) {
  const struct {
    const char* what;
    bool capBacklog;
    int64_t backlogBytes;
    bool sent;
  } rows[] = {
      {"just the allowance of a fast link", false, 65'536, true},
      {"one byte over it", false, 65'537, false},
      {"just the cap of a shared line", true, 16'384, true},
      {"one byte over the cap", true, 16'385, false},
  };
  for (const auto& row : rows) {
    TileStreamSender sender = ExactSender({.encoder = {}, .capBacklog = row.capBacklog});
    transport_.SetQueuedBytes(row.backlogBytes);
    EXPECT_EQ(sender.SendFrame(Picture(1, 1).Frame()) > 0, row.sent) << row.what;
    EXPECT_EQ(sender.LastDropMs() < 0, row.sent) << row.what;
    EXPECT_EQ(sender.WantsFrame(), !row.sent) << row.what;
  }
}

TEST_F(TileStreamSenderTest, ReportsEveryTenthDrop) {
  TileStreamSender sender = ExactSender();
  transport_.SetQueuedBytes(100'000);
  for (int i = 0; i < 29; ++i) sender.SendFrame(Picture(1, 1).Frame());
  EXPECT_EQ(
      log_.Lines(),
      (Texts{"INF [tiles] backpressure: 10 frames dropped (channel backlog 97 KB > 64 KB allowed at 977 "
             "KB/s measured drain)",
             "INF [tiles] backpressure: 20 frames dropped (channel backlog 97 KB > 64 KB allowed at 977 "
             "KB/s measured drain)"}));
}

TEST_F(TileStreamSenderTest, LosesNothingOfADroppedFrame) {
  TileStreamSender sender = ExactSender();
  Picture picture(4, 1);
  sender.SendFrame(picture.Frame());
  Sent();
  transport_.SetQueuedBytes(100'000);
  picture.Fill(0, 0, 1);
  EXPECT_EQ(sender.SendFrame(picture.FrameChangedAt(0, 0)), 0);
  EXPECT_TRUE(sender.WantsFrame());
  picture.Fill(2, 0, 1);
  EXPECT_EQ(sender.SendFrame(picture.FrameChangedAt(2, 0)), 0);
  transport_.SetQueuedBytes(0);
  EXPECT_GT(sender.SendFrame(picture.UnchangedFrame()), 0);
  EXPECT_FALSE(sender.WantsFrame());
  EXPECT_EQ(Sent(), (Texts{"[1 256x64] frame 1: 2 tiles of 64 in 256x64", "[1 256x64] batch 1: 0 2"}));
}

TEST_F(TileStreamSenderTest, DoesNotMixHintsOfOtherFrameSizes) {
  TileStreamSender sender = ExactSender();
  Picture picture(4, 1);
  sender.SendFrame(picture.Frame());
  Sent();
  transport_.SetQueuedBytes(100'000);
  sender.SendFrame(Picture(1, 1).FrameChangedAt(0, 0));
  transport_.SetQueuedBytes(0);
  picture.Fill(2, 0, 1);
  sender.SendFrame(picture.FrameChangedAt(3, 0));
  EXPECT_EQ(Sent(), (Texts{"[1 256x64] frame 1: 1 tiles of 64 in 256x64", "[1 256x64] batch 1: 2"}));
}

TEST_F(TileStreamSenderTest, DoesNotBelieveTheFirstHintOfAnotherCapturer) {
  TileStreamSender sender = ExactSender();
  Picture picture(4, 1);
  sender.SendFrame(picture.Frame());
  Sent();
  picture.Fill(0, 0, 1);
  sender.ForgetChangeHints();
  EXPECT_TRUE(sender.WantsFrame());
  sender.SendFrame(picture.FrameChangedAt(3, 0));
  EXPECT_EQ(Sent(), (Texts{"[1 256x64] frame 1: 1 tiles of 64 in 256x64", "[1 256x64] batch 1: 0"}));
}

TEST_F(TileStreamSenderTest, DoesNothingOnceTheConnectionIsClosed) {
  TileStreamSender sender = ExactSender();
  transport_.SetOpen(false);
  EXPECT_EQ(sender.SendFrame(Picture(1, 1).Frame()), 0);
  EXPECT_EQ(sender.PumpPending(), 0);
  EXPECT_EQ(sender.SendHeartbeat(), 0);
  EXPECT_LT(sender.LastDropMs(), 0);
  transport_.SetOpen(true);
  EXPECT_EQ(sender.SendHeartbeat(), 5);
  EXPECT_EQ(Sent(), Texts{"heartbeat 0"});
}

TEST_F(TileStreamSenderTest, SendsHeartbeatsPastTheQueueInTheStreamsEnvelope) {
  TileStreamSender sender = ExactSender();
  transport_.HoldSends(true);
  Picture picture(10, 1);
  for (int column = 0; column < 10; ++column) picture.Noise(column, 0);
  sender.SendFrame(picture.Frame());
  ASSERT_TRUE(sender.HasPending());
  Sent();
  EXPECT_EQ(sender.SendHeartbeat(), 14);
  EXPECT_EQ(Sent(), Texts{"[1 640x64] heartbeat 1"});
}

TEST_F(TileStreamSenderTest, LogsKeyframesAndLargeFramesOnly) {
  TileStreamSender sender = ExactSender();
  Picture picture(4, 1);
  picture.Noise(0, 0);
  sender.SendFrame(picture.Frame());
  transport_.SetQueuedBytes(3000);
  for (int column = 0; column < 2; ++column) picture.Noise(column, 0);
  sender.SendFrame(picture.Frame());
  while (sender.PumpPending() > 0) {
  }
  transport_.SetQueuedBytes(3000);
  for (int column = 0; column < 3; ++column) picture.Noise(column, 0);
  sender.SendFrame(picture.Frame());
  const Texts lines = log_.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].substr(0, 48), "INF [tiles] frame seq=0 tiles=4/4 lossless=4 byt");
  EXPECT_EQ(lines[0].substr(lines[0].find(" enc=")), " enc=0ms backlog=0KB keyframe");
  EXPECT_EQ(lines[1], "INF [tiles] frame seq=2 tiles=3/4 lossless=3 bytes=49185 enc=0ms backlog=2KB");
}

TEST_F(TileStreamSenderTest, AllowsCoarseFramesOnSlowLinksOfMachinesWithTime) {
  const struct {
    const char* what;
    uint64_t drainedBytes;
    bool overloaded;
    int quality;
    bool webpAsked;
  } rows[] = {
      {"716,800 bytes a second is no slow link", 433'600, false, 90, false},
      {"one less is", 433'598, false, 30, true},
      {"no time for it", 433'598, true, 90, false},
  };
  for (const auto& row : rows) {
    codec_ = {};
    TileStreamSender sender = Sender();
    Picture picture(3, 2);
    transport_.SetSentBytes(0);
    transport_.SetQueuedBytes(9);
    sender.SendFrame(picture.Frame());
    transport_.SetQueuedBytes(9);
    transport_.SetSentBytes(row.drainedBytes);
    clock_.AdvanceMs(1000);
    for (int cell = 0; cell < 6; ++cell) picture.Noise(cell % 3, cell / 3);
    sender.SetProducerOverloaded(row.overloaded);
    EXPECT_GT(sender.SendFrame(picture.Frame()), 0);
    EXPECT_EQ(codec_.lastQuality, row.quality) << row.what;
    EXPECT_EQ(codec_.webpAsked, row.webpAsked) << row.what;
  }
}

TEST_F(TileStreamSenderTest, AppliesQualityToThisEncoderAndTheNext) {
  TileStreamSender sender = Sender();
  Picture picture(1, 1);
  Picture other(2, 1);
  sender.SendFrame(picture.Frame());
  const struct {
    int asked;
    int used;
  } rows[] = {{0, 1}, {1, 1}, {55, 55}, {100, 100}, {101, 100}};
  for (const auto& row : rows) {
    sender.SetQuality(row.asked, 256, -1);
    picture.Noise(0, 0);
    sender.SendFrame(picture.Frame());
    EXPECT_EQ(codec_.lastQuality, row.used) << row.asked;
  }
  sender.SetQuality(70, 0, 40);
  other.Noise(0, 0);
  sender.SendFrame(other.Frame());
  EXPECT_EQ(codec_.lastQuality, 70);
}

TEST_F(TileStreamSenderTest, TakesTheColoursOutWhenAskedTo) {
  TileStreamSender sender = Sender({.encoder = {.refineBudget = 1'024}});
  Picture picture(2, 1);
  sender.SendFrame(picture.Frame());
  sender.SetGrayscale(true);
  EXPECT_TRUE(sender.WantsFrame()) << "every pixel may look other";
  picture.Fill(0, 0, 0x00ff0000);
  sender.SendFrame(picture.FrameChangedAt(1, 0));
  EXPECT_EQ(LastPayloads(), (Texts{TilePayload(0xff4c4c4c), TilePayload(0xff000000)}));
  picture.Fill(1, 0, 0x0000ff00);
  sender.SendFrame(picture.FrameChangedAt(1, 0));
  EXPECT_EQ(LastPayloads(), Texts{TilePayload(0xff959595)});
  Picture other(1, 1);
  other.Fill(0, 0, 0x000000ff);
  sender.SendFrame(other.Frame());
  EXPECT_EQ(LastPayloads(), Texts{TilePayload(0xff1c1c1c)}) << "the next encoder too";
  sender.SetGrayscale(false);
  sender.SendFrame(other.UnchangedFrame());
  EXPECT_EQ(LastPayloads(), Texts{TilePayload(0x000000ff)});
}

TEST_F(TileStreamSenderTest, CountsNoDropOfAFrameThatBringsNothing) {
  TileStreamSender sender = ExactSender();
  Picture picture(1, 1);
  sender.SendFrame(picture.Frame());
  transport_.SetQueuedBytes(100'000);
  sender.SendFrame(picture.UnchangedFrame());
  EXPECT_LT(sender.LastDropMs(), 0);
}

TEST_F(TileStreamSenderTest, LooksAgainForRoughParts) {
  TileStreamSender sender = ExactSender();
  Picture picture(1, 1);
  sender.SendFrame(picture.Frame());
  EXPECT_FALSE(sender.HasRoughParts());
  sender.LookForRoughParts();
  clock_.AdvanceMs(199);
  EXPECT_FALSE(sender.ImprovementDue());
  clock_.AdvanceMs(1);
  EXPECT_TRUE(sender.ImprovementDue());
  EXPECT_EQ(sender.ImprovePicture(picture.UnchangedFrame()), 0);
  EXPECT_FALSE(sender.HasRoughParts());
}

TEST_F(TileStreamSenderTest, ImprovesOnlyWhereThereIsRoom) {
  const struct {
    const char* what;
    bool capBacklog;
    int64_t backlogBytes;
    size_t tiles;
  } rows[] = {
      {"as much as may wait", false, 0, 3},
      {"what fits beside the backlog", false, 20'000, 2},
      {"one tile at least", false, 49'036, 1},
      {"which must fit whole", false, 49'037, 0},
      {"one tile on an empty shared line", true, 0, 1},
      {"and nothing beside a backlog", true, 1, 0},
  };
  for (const auto& row : rows) {
    TileStreamSender sender =
        Sender({.encoder = {.refineTilesPerPass = 9, .refineBudget = 1'024}, .capBacklog = row.capBacklog});
    Picture picture(10, 1);
    for (int column = 0; column < 10; ++column) picture.Noise(column, 0);
    transport_.SetQueuedBytes(0);
    sender.SendFrame(picture.Frame());
    clock_.AdvanceMs(200);
    transport_.TakeMessages();
    transport_.SetQueuedBytes(row.backlogBytes);
    EXPECT_EQ(sender.ImprovePicture(picture.UnchangedFrame()) / 16'395, static_cast<int64_t>(row.tiles))
        << row.what;
  }
}

TEST_F(TileStreamSenderTest, RepeatsThePictureAfterAFrameThatCouldNotTravel) {
  TileStreamSender sender = ExactSender();
  Picture picture(1, 1);
  sender.SendFrame(picture.Frame());
  EXPECT_THROW(sender.SendFrame(Picture(70'000, 2, 0).Frame()), std::out_of_range);
  EXPECT_TRUE(sender.WantsFrame());
  Sent();
  EXPECT_GT(sender.SendFrame(picture.UnchangedFrame()), 0);
  EXPECT_EQ(Sent(), (Texts{"[3 64x64] keyframe 2: 1 tiles of 64 in 64x64", "[3 64x64] batch 2: 0"}));
}

}  // namespace
}  // namespace cvn::agent
