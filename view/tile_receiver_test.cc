#include "view/tile_receiver.h"

#include <gtest/gtest.h>

#include "testing/fake_clock.h"
#include "view/stream_for_test.h"

namespace cvn::view {
namespace {

/// Remembers what was published.
class WatchedMemory final : public CanvasMemory {
 public:
  std::span<uint8_t> Renew(PictureSize size, const CanvasProgress& progress, std::string& error) override {
    ++renewals;
    last = progress;
    return pixels_.Renew(size, progress, error);
  }
  void Publish(const CanvasProgress& progress) override { last = progress; }

  int renewals = 0;
  CanvasProgress last;

 private:
  PrivateCanvasMemory pixels_;
};

class TileReceiverTest : public testing::Test {
 protected:
  void Send(const std::vector<Bytes>& messages) {
    std::string error;
    for (const Bytes& message : messages) ASSERT_TRUE(receiver_.Take(message, error)) << error;
  }
  uint32_t PixelAt(int x, int y) const {
    const auto pixel =
        receiver_.Canvas().Pixels().subspan(static_cast<size_t>(y * receiver_.Canvas().Size().width + x) * 4);
    return pixel[0] | uint32_t{pixel[1]} << 8 | uint32_t{pixel[2]} << 16 | uint32_t{pixel[3]} << 24;
  }

  agent::FakeClock clock_;
  WatchedMemory memory_;
  TileReceiver receiver_{memory_, clock_, 77};
  StreamWriter writer_{{100, 70}};
};

TEST_F(TileReceiverTest, DrawsTilesWhereTheyBelongAndKnowsWhenThePictureIsFull) {
  clock_.AdvanceMs(1);
  Send(writer_.Frame(std::vector{FlatTile(0, 0, {64, 70}, 0xff112233)}, true));
  EXPECT_FALSE(receiver_.HasFullPicture());
  EXPECT_EQ(memory_.last.fullPictureNs, 0u);
  EXPECT_EQ(memory_.last.updates, 1u);

  clock_.AdvanceMs(1);
  const int64_t fullNs = clock_.NowNs();
  Send(writer_.Frame(
      std::vector{FlatTile(64, 0, {36, 64}, 0xff445566), GradientTile(64, 64, {36, 6}, 0xff000000)}, false));
  clock_.AdvanceMs(1);
  Send(writer_.Frame(std::vector{FlatTile(3, 2, {1, 1}, 0xffabcdef)}, false));
  EXPECT_TRUE(receiver_.HasFullPicture());
  EXPECT_EQ(receiver_.FirstFullPictureNs(), fullNs);
  EXPECT_EQ(memory_.last.fullPictureNs, static_cast<uint64_t>(fullNs));
  EXPECT_EQ(memory_.last.updates, 3u);
  EXPECT_EQ(memory_.last.tilesDrawn, 4u);
  EXPECT_EQ(memory_.last.connectNs, 77u);

  EXPECT_EQ(PixelAt(2, 2), 0xff112233);
  EXPECT_EQ(PixelAt(3, 2), 0xffabcdef);
  EXPECT_EQ(PixelAt(63, 69), 0xff112233);
  EXPECT_EQ(PixelAt(99, 63), 0xff445566);
  EXPECT_EQ(PixelAt(65, 65), 0xff000000 + 37);
}

TEST_F(TileReceiverTest, AnotherSizeIsANewPictureAndAnotherKeyframeIsNot) {
  Send(writer_.Frame(std::vector{FlatTile(0, 0, {100, 70}, 1)}, true));
  Send(writer_.Frame(std::vector{FlatTile(0, 0, {50, 70}, 2)}, true));
  EXPECT_EQ(memory_.renewals, 1);
  EXPECT_TRUE(receiver_.HasFullPicture());
  const int64_t firstFullNs = receiver_.FirstFullPictureNs();

  clock_.AdvanceMs(5);
  writer_.SetSize({30, 20});
  Send(writer_.Frame(std::vector{FlatTile(0, 0, {30, 19}, 3)}, true));
  EXPECT_EQ(memory_.renewals, 2);
  EXPECT_FALSE(receiver_.HasFullPicture());
  EXPECT_EQ(receiver_.Canvas().MissingPixels(), 30);
  EXPECT_EQ(memory_.last.fullPictureNs, 0u);
  EXPECT_EQ(memory_.last.updates, 3u) << "counted since connecting";
  EXPECT_EQ(PixelAt(0, 19), 0u) << "nothing of the old picture shines through";

  Send(writer_.Frame(std::vector{FlatTile(0, 19, {30, 1}, 4)}, false));
  EXPECT_TRUE(receiver_.HasFullPicture());
  EXPECT_EQ(memory_.last.fullPictureNs, static_cast<uint64_t>(clock_.NowNs()));
  EXPECT_EQ(receiver_.FirstFullPictureNs(), firstFullNs);
}

TEST_F(TileReceiverTest, ABatchIsDrawnBeforeItsFrameIsCompleteAndCountsAsNoUpdate) {
  const std::vector<Bytes> frame = writer_.Frame(std::vector{FlatTile(0, 0, {100, 70}, 1)}, true);
  Send(frame);
  Send({writer_.Enveloped(agent::BuildFrameHeader(writer_.Header(1, false, 2))),
        writer_.Enveloped(agent::BuildTileBatch(1, std::vector{FlatTile(0, 0, {1, 1}, 2)}))});
  EXPECT_EQ(PixelAt(0, 0), 2u);
  EXPECT_TRUE(receiver_.FrameInTheMaking());
  EXPECT_EQ(memory_.last.updates, 1u);
  EXPECT_EQ(memory_.last.tilesDrawn, 2u);
  EXPECT_EQ(receiver_.Statistics().frames, 1);
}

TEST_F(TileReceiverTest, SaysWhyAPictureThatFindsNoRoomCannotBeShown) {
  class NoRoom final : public CanvasMemory {
    std::span<uint8_t> Renew(PictureSize, const CanvasProgress&, std::string& error) override {
      error = "no room";
      return {};
    }
    void Publish(const CanvasProgress&) override {}
  } noRoom;
  TileReceiver receiver(noRoom, clock_, 0);
  std::string error;
  EXPECT_FALSE(receiver.Take(writer_.Frame(std::vector{FlatTile(0, 0, {1, 1}, 1)}, true)[0], error));
  EXPECT_EQ(error, "no room");
}

}  // namespace
}  // namespace cvn::view
