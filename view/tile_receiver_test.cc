#include "view/tile_receiver.h"

#include <gtest/gtest.h>

#include <cstring>

#include "testing/fake_clock.h"
#include "view/stream_for_test.h"

namespace cvn::view {
namespace {

class WatchedMemory final : public CanvasMemory {
 public:
  std::span<uint8_t> Renew(PictureSize size, const CanvasProgress& progress, std::string& error) override {
    last = progress;
    return pixels_.Renew(size, progress, error);
  }
  void Publish(const CanvasProgress& progress) override { last = progress; }

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
  void Draw(const std::vector<agent::EncodedTile>& tiles, bool keyframe = false) {
    Send(writer_.Frame(tiles, keyframe));
  }
  uint32_t PixelAt(int x, int y) const {
    uint32_t pixel = 0;
    const int at = y * receiver_.Canvas().Size().width + x;
    std::memcpy(&pixel, receiver_.Canvas().Pixels().data() + size_t{4} * static_cast<size_t>(at), 4);
    return pixel;
  }

  agent::FakeClock clock_;
  WatchedMemory memory_;
  TileReceiver receiver_{memory_, TestCodec(), clock_, 77};
  StreamWriter writer_{{100, 70}};
};

TEST_F(TileReceiverTest, DrawsTilesWhereTheyBelongAndKnowsWhenThePictureIsFull) {
  Draw({FlatTile(0, 0, {64, 70}, 0xff112233)}, true);
  EXPECT_FALSE(receiver_.HasFullPicture());
  EXPECT_EQ(memory_.last.fullPictureNs, 0u);

  clock_.AdvanceMs(1);
  const int64_t fullNs = clock_.NowNs();
  Draw({FlatTile(64, 0, {36, 64}, 0xff445566), GradientTile(64, 64, {36, 6}, 0xff000000)});
  clock_.AdvanceMs(1);
  Draw({FlatTile(3, 2, {1, 1}, 0xffabcdef)});
  EXPECT_EQ(receiver_.Times().firstFullNs, fullNs);
  EXPECT_EQ(memory_.last.fullPictureNs, static_cast<uint64_t>(fullNs));
  EXPECT_EQ(memory_.last.updates, 3u);
  EXPECT_EQ(memory_.last.tilesDrawn, 4u);
  EXPECT_EQ(memory_.last.connectNs, 77u);
  EXPECT_EQ(PixelAt(2, 2), 0xff112233);
  EXPECT_EQ(PixelAt(3, 2), 0xffabcdef);
  EXPECT_EQ(PixelAt(99, 63), 0xff445566);
  EXPECT_EQ(PixelAt(65, 65), 0xff000000 + 37);

  // A batch of a frame that is not complete is drawn, and is no update.
  Send({writer_.Enveloped(agent::BuildFrameHeader(writer_.Header(3, false, 2))),
        writer_.Enveloped(agent::BuildTileBatch(3, std::vector{FlatTile(0, 0, {1, 1}, 2)}))});
  EXPECT_EQ(PixelAt(0, 0), 2u);
  EXPECT_EQ(memory_.last.updates, 3u);
}

TEST_F(TileReceiverTest, AnotherSizeIsANewPictureAndAnotherKeyframeIsNot) {
  Draw({FlatTile(0, 0, {100, 70}, 1)}, true);
  Draw({FlatTile(0, 0, {50, 70}, 2)}, true);
  EXPECT_TRUE(receiver_.Canvas().IsExact());
  const int64_t firstFullNs = receiver_.Times().firstFullNs;

  clock_.AdvanceMs(5);
  writer_.SetSize({30, 20});
  Draw({FlatTile(0, 0, {30, 19}, 3)}, true);
  EXPECT_EQ(receiver_.Canvas().MissingPixels(), 30);
  EXPECT_EQ(receiver_.Canvas().InexactPixels(), 30);
  EXPECT_EQ(memory_.last.fullPictureNs, 0u);
  EXPECT_EQ(PixelAt(0, 19), 0u) << "nothing of the old picture shines through";

  Draw({FlatTile(0, 19, {30, 1}, 4)});
  EXPECT_EQ(memory_.last.fullPictureNs, static_cast<uint64_t>(clock_.NowNs()));
  EXPECT_EQ(receiver_.Times().firstFullNs, firstFullNs);
  EXPECT_EQ(receiver_.Times().lastExactNs, clock_.NowNs());
}

TEST_F(TileReceiverTest, IsExactWhenNothingIsLeftThatALossyTileDrew) {
  Draw({JpegTile(0, 0, {100, 35}), FlatTile(0, 35, {100, 35}, 1)}, true);
  EXPECT_TRUE(receiver_.HasFullPicture());
  EXPECT_EQ(receiver_.Times().lastLossyTileNs, clock_.NowNs());
  Draw({FlatTile(0, 0, {60, 35}, 2)});
  Draw({JpegTile(0, 30, {10, 10})});
  EXPECT_EQ(receiver_.Canvas().InexactPixels(), 40 * 35 + 100);
  EXPECT_EQ(receiver_.Times().firstExactNs, 0);
  clock_.AdvanceMs(7);
  Draw({FlatTile(0, 0, {100, 40}, 3)});
  EXPECT_TRUE(receiver_.Canvas().IsExact());
  const int64_t firstExactNs = receiver_.Times().firstExactNs;
  EXPECT_EQ(firstExactNs, clock_.NowNs());

  clock_.AdvanceMs(7);
  Draw({FlatTile(0, 0, {1, 1}, 4)});
  EXPECT_EQ(receiver_.Times().lastExactNs, firstExactNs) << "it has been exact all the time";
  Draw({JpegTile(0, 0, {1, 1})});
  Draw({FlatTile(0, 0, {1, 1}, 4)});
  EXPECT_EQ(receiver_.Times().lastExactNs, clock_.NowNs());
  EXPECT_EQ(receiver_.Times().firstExactNs, firstExactNs);
}

}  // namespace
}  // namespace cvn::view
