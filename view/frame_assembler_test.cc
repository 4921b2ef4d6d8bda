#include "view/frame_assembler.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "view/stream_for_test.h"

namespace cvn::view {
namespace {

constexpr PictureSize kSize{200, 100};

agent::EncodedTile AnyTile(uint32_t x, uint32_t y, int width, int height, size_t payloadBytes = 3) {
  agent::EncodedTile tile = TileAt(x, y, {width, height});
  tile.payload.assign(payloadBytes, 0xab);
  for (size_t i = 0; i < payloadBytes; ++i) tile.payload[i] = static_cast<uint8_t>(i * 31 + i / 256);
  return tile;
}

Bytes InEnvelope(uint32_t epoch, PictureSize size, Bytes message) {
  return agent::Envelope(agent::kTilesV3, epoch, size.width, size.height, std::move(message));
}

Bytes Header(uint32_t sequence, bool keyframe, uint16_t tileCount, PictureSize size = kSize) {
  return agent::BuildFrameHeader({sequence, keyframe, static_cast<uint16_t>(size.width),
                                  static_cast<uint16_t>(size.height), 64, tileCount});
}

Bytes Batch(uint32_t sequence, const std::vector<agent::EncodedTile>& tiles) {
  return agent::BuildTileBatch(sequence, tiles);
}

TEST(FrameAssembler, DeliversFramesThatWereSplitWithAHeartbeatAmidThem) {
  StreamWriter writer(kSize);
  const agent::EncodedTile small = AnyTile(0, 0, 64, 64);
  const agent::EncodedTile large = AnyTile(64, 0, 136, 100, 40000);
  const std::vector tiles{small, large};
  std::vector<Bytes> messages = writer.Frame(tiles, true);
  ASSERT_EQ(messages.size(), 4u) << "a header and a batch in three pieces";
  messages.insert(messages.begin() + 2, writer.Heartbeat());

  FrameAssembler assembler;
  Delivery delivery;
  std::string error;
  std::vector<DeliveryKind> kinds;
  for (const Bytes& message : messages) {
    ASSERT_TRUE(assembler.Take(message, delivery, error)) << error;
    kinds.push_back(delivery.kind);
    EXPECT_EQ(assembler.InTheMaking(), kinds.size() < messages.size());
  }
  EXPECT_EQ(kinds, (std::vector{DeliveryKind::kFrameBegin, DeliveryKind::kNothing, DeliveryKind::kHeartbeat,
                                DeliveryKind::kNothing, DeliveryKind::kTiles}));
  EXPECT_TRUE(delivery.frameEnds);
  ASSERT_EQ(delivery.tiles.size(), 2u);
  EXPECT_EQ(delivery.tiles[1].x, 64);
  EXPECT_EQ(delivery.tiles[1].width, 136);
  EXPECT_EQ(Bytes(delivery.tiles[1].payload.begin(), delivery.tiles[1].payload.end()), large.payload);
}

TEST(FrameAssembler, FollowsAnHonestStream) {
  // What looks odd but happens: heartbeats before there is an epoch and ahead of a queued keyframe, a frame
  // in two batches, a sequence that wraps, a keyframe of the same size, and one of another.
  const PictureSize other{64, 64};
  const std::vector<Bytes> messages{
      agent::BuildHeartbeat(0),
      InEnvelope(1, kSize, agent::BuildHeartbeat(0)),
      InEnvelope(1, kSize, Header(0xffffffff, true, 3)),
      InEnvelope(1, kSize, Batch(0xffffffff, {AnyTile(0, 0, 1, 1), AnyTile(136, 36, 64, 64)})),
      InEnvelope(1, kSize, Batch(0xffffffff, {AnyTile(0, 0, 200, 100)})),
      InEnvelope(1, kSize, Header(0, false, 1)),
      InEnvelope(1, kSize, Batch(0, {AnyTile(199, 99, 1, 1)})),
      InEnvelope(2, kSize, Header(1, true, 1)),
      InEnvelope(2, kSize, Batch(1, {AnyTile(0, 0, 200, 100)})),
      InEnvelope(5, other, Header(2, true, 1, other)),
      InEnvelope(5, other, Batch(2, {AnyTile(0, 0, 64, 64)})),
  };
  FrameAssembler assembler;
  Delivery delivery;
  std::string error;
  int complete = 0;
  for (const Bytes& message : messages) {
    ASSERT_TRUE(assembler.Take(message, delivery, error)) << error;
    complete += delivery.frameEnds ? 1 : 0;
  }
  EXPECT_EQ(complete, 4);
}

/// A stream of which the last message is a lie.
struct Lie {
  const char* what;
  std::vector<Bytes> messages;
  const char* error;
};

Bytes Piece(Bytes message, uint32_t id, size_t index) {
  return InEnvelope(1, kSize, agent::Fragment(message, id).at(index));
}

Bytes Changed(Bytes bytes, size_t offset, uint8_t value) {
  bytes.at(offset) = value;
  return bytes;
}

/// Frame 7, a keyframe of two tiles, begins.
Bytes Keyframe() {
  return InEnvelope(1, kSize, Header(7, true, 2));
}

Bytes BatchOfFrame7(const std::vector<agent::EncodedTile>& tiles) {
  return InEnvelope(1, kSize, Batch(7, tiles));
}

std::vector<Lie> EnvelopeLies() {
  const Bytes keyframe = Keyframe();
  return {
      {"empty message", {{}}, "an empty tile message"},
      {"unknown type", {{2, 0, 0}}, "a tile message of unknown type 2"},
      {"header before any epoch", {Header(0, true, 1)}, "a frame header outside an envelope"},
      {"batch outside an envelope",
       {keyframe, Batch(7, {AnyTile(0, 0, 1, 1)})},
       "a tile batch outside an envelope"},
      {"heartbeat cut short", {{4, 0, 0}}, "a malformed heartbeat"},
      {"envelope cut short", {{5, 0, 0, 0, 1, 0, 1, 0}}, "a malformed envelope"},
      {"envelope of epoch 0", {{5, 0, 0, 0, 0, 0, 1, 0, 1, 4, 0, 0, 0, 0}}, "a malformed envelope"},
      {"envelope without size", {{5, 0, 0, 0, 1, 0, 0, 0, 1, 4, 0, 0, 0, 0}}, "a malformed envelope"},
      {"envelope around nothing", {{5, 0, 0, 0, 1, 0, 1, 0, 1}}, "a malformed envelope"},
      {"envelope in an envelope",
       {{5, 0, 0, 0, 1, 0, 1, 0, 1, 5, 0, 0, 0, 1, 0, 1, 0, 1, 4}},
       "an envelope inside an envelope"},
      {"unknown type inside", {InEnvelope(1, kSize, {9})}, "a tile message of unknown type 9"},
      {"epoch backwards",
       {InEnvelope(3, kSize, agent::BuildHeartbeat(0)), InEnvelope(2, kSize, agent::BuildHeartbeat(0))},
       "the epoch went back from 3 to 2"},
      {"size changes without an epoch",
       {InEnvelope(3, kSize, agent::BuildHeartbeat(0)), InEnvelope(3, {200, 101}, agent::BuildHeartbeat(0))},
       "the picture changed from 200x100 to 200x101 within epoch 3"},
      {"epoch within a frame",
       {keyframe, InEnvelope(2, kSize, agent::BuildHeartbeat(8))},
       "epoch 2 began before frame 7 was complete"},
      {"gigantic picture",
       {InEnvelope(1, {65535, 65535}, agent::BuildHeartbeat(0))},
       "a picture of 65535x65535 is larger than this viewer takes"},
  };
}

std::vector<Lie> HeaderLies() {
  const Bytes keyframe = Keyframe();
  const Bytes one = BatchOfFrame7({AnyTile(0, 0, 1, 1)});
  return {
      {"header of another size",
       {InEnvelope(1, kSize, Header(7, true, 1, {100, 100}))},
       "a frame of 100x100 in an envelope of 200x100"},
      {"header cut short",
       {InEnvelope(1, kSize, {1, 0, 0, 0, 0, 1, 0, 200, 0, 100, 0, 64, 0})},
       "a malformed frame header"},
      {"frame of no tiles", {InEnvelope(1, kSize, Header(7, true, 0))}, "frame 7 has no tiles"},
      {"delta frame first", {InEnvelope(1, kSize, Header(7, false, 1))}, "epoch 1 began without a keyframe"},
      {"frame within a frame",
       {keyframe, one, InEnvelope(1, kSize, Header(8, false, 1))},
       "frame 8 began while 1 tiles of frame 7 were missing"},
      {"frame left out",
       {keyframe, one, one, InEnvelope(1, kSize, Header(9, false, 1))},
       "frame 9 came after frame 7"},
  };
}

std::vector<Lie> BatchLies() {
  const Bytes keyframe = Keyframe();
  const Bytes one = BatchOfFrame7({AnyTile(0, 0, 1, 1)});
  Bytes longer = one;
  longer.push_back(0);
  return {
      {"batch of no frame",
       {InEnvelope(1, kSize, Batch(7, {AnyTile(0, 0, 1, 1)}))},
       "a tile batch without a frame header"},
      {"batch after the last tile", {keyframe, one, one, one}, "a tile batch without a frame header"},
      {"batch of another frame",
       {keyframe, InEnvelope(1, kSize, Batch(8, {AnyTile(0, 0, 1, 1)}))},
       "a tile batch of frame 8 inside frame 7"},
      {"batch of no tiles", {keyframe, BatchOfFrame7({})}, "a tile batch without tiles"},
      {"more tiles than announced",
       {keyframe, BatchOfFrame7({AnyTile(0, 0, 1, 1), AnyTile(0, 0, 1, 1), AnyTile(0, 0, 1, 1)})},
       "a batch of 3 tiles where frame 7 lacks 2"},
      {"batch with a byte too many", {keyframe, longer}, "a malformed tile batch"},
      {"payload longer than the batch", {keyframe, Changed(one, 9 + 7 + 14, 200)}, "a malformed tile batch"},
      {"tile too far right",
       {keyframe, BatchOfFrame7({AnyTile(137, 0, 64, 1)})},
       "tile 0 at (137,0) of 64x1 does not lie in the frame of 200x100"},
      {"tile too far down",
       {keyframe, BatchOfFrame7({AnyTile(0, 0, 1, 1), AnyTile(0, 99, 1, 2)})},
       "tile 0 at (0,99) of 1x2 does not lie in the frame of 200x100"},
      {"tile beyond 16 bits",
       {keyframe, BatchOfFrame7({AnyTile(65535, 65535, 65535, 65535)})},
       "tile 0 at (65535,65535) of 65535x65535 does not lie in the frame of 200x100"},
      {"tile without width",
       {keyframe, BatchOfFrame7({AnyTile(0, 0, 0, 1)})},
       "tile 0 at (0,0) of 0x1 does not lie in the frame of 200x100"},
      {"tile without height",
       {keyframe, BatchOfFrame7({AnyTile(0, 0, 1, 0)})},
       "tile 0 at (0,0) of 1x0 does not lie in the frame of 200x100"},
  };
}

std::vector<Lie> FragmentLies() {
  const Bytes keyframe = Keyframe();
  const Bytes one = BatchOfFrame7({AnyTile(0, 0, 1, 1)});
  const Bytes largeFragment = Changed(Bytes(20000, 1), 0, 6);
  const Bytes large = Batch(7, {AnyTile(0, 0, 1, 1, 20000), AnyTile(0, 0, 1, 1, 20000)});
  return {
      {"split message over 8 MiB",
       {InEnvelope(1, kSize, {6, 0, 0, 0, 0, 0, 0x80, 0, 1, 0, 0, 2, 1, 0})},
       "a malformed fragment"},
      {"fragment count not as computed",
       {keyframe, Changed(Piece(large, 1, 0), 9 + 12, 4)},
       "a malformed fragment"},
      {"fragment in the middle",
       {keyframe, Piece(large, 1, 1)},
       "fragment 1 of message 1 where fragment 0 was due"},
      {"fragment left out",
       {keyframe, Piece(large, 1, 0), Piece(large, 1, 2)},
       "fragment 2 of message 1 where fragment 1 was due"},
      {"fragment twice",
       {keyframe, Piece(large, 1, 0), Piece(large, 1, 0)},
       "fragment 0 of message 1 where fragment 1 was due"},
      {"second split message amid the first",
       {keyframe, Piece(large, 1, 0), Piece(large, 2, 1)},
       "a fragment of message 2 (40037 bytes) amid message 1 (40037 bytes)"},
      {"total changes amid a split message",
       {keyframe, Piece(large, 1, 0), Piece(Bytes(40036, 3), 1, 1)},
       "a fragment of message 1 (40036 bytes) amid message 1 (40037 bytes)"},
      {"batch amid a split message",
       {keyframe, Piece(large, 1, 0), one},
       "a message of type 3 amid the fragments of message 1"},
      {"epoch amid a split message",
       {keyframe, Piece(large, 1, 0), InEnvelope(2, kSize, agent::Fragment(large, 1).at(1))},
       "epoch 2 began before frame 7 was complete"},
      {"fragment in a fragment",
       {keyframe, Piece(largeFragment, 1, 0), Piece(largeFragment, 1, 1)},
       "a fragment inside a fragment"},
      {"envelope in a fragment",
       {keyframe, Piece(Bytes(16400, 5), 1, 0), Piece(Bytes(16400, 5), 1, 1)},
       "an envelope inside a fragment"},
      {"nonsense in fragments",
       {keyframe, Piece(Bytes(16400, 3), 1, 0), Piece(Bytes(16400, 3), 1, 1)},
       "a malformed tile batch"},
  };
}

TEST(FrameAssembler, RefusesEveryLieWithAClearText) {
  std::vector<Lie> lies;
  for (const auto& group : {EnvelopeLies(), HeaderLies(), BatchLies(), FragmentLies()})
    lies.insert(lies.end(), group.begin(), group.end());
  for (const Lie& lie : lies) {
    SCOPED_TRACE(lie.what);
    FrameAssembler assembler;
    Delivery delivery;
    std::string error;
    for (size_t i = 0; i + 1 < lie.messages.size(); ++i)
      ASSERT_TRUE(assembler.Take(lie.messages[i], delivery, error)) << "message " << i << ": " << error;
    EXPECT_FALSE(assembler.Take(lie.messages.back(), delivery, error));
    EXPECT_EQ(error, lie.error);
    EXPECT_TRUE(delivery.tiles.empty());
  }
}

// Whatever survives the checks must be safe to draw.
TEST(FrameAssembler, DamagedStreamsDeliverOnlyTilesInsideThePicture) {
  StreamWriter writer(kSize);
  std::vector<Bytes> honest;
  for (int frame = 0; frame < 4; ++frame) {
    const std::vector tiles{AnyTile(0, 0, 64, 64), AnyTile(64, 0, 136, 100, 17000)};
    for (Bytes& message : writer.Frame(tiles, frame % 2 == 0)) honest.push_back(std::move(message));
  }
  std::mt19937 random(20240229);
  int refused = 0;
  for (int round = 0; round < 3000; ++round) {
    std::vector<Bytes> messages = honest;
    Bytes& victim = messages[random() % messages.size()];
    victim[random() % std::min<size_t>(victim.size(), 48)] = static_cast<uint8_t>(random());
    if (random() % 8 == 0) victim.resize(random() % victim.size());
    FrameAssembler assembler;
    Delivery delivery;
    std::string error;
    for (const Bytes& message : messages) {
      if (!assembler.Take(message, delivery, error)) {
        ++refused;
        break;
      }
      for (const agent::TileRecord& tile : delivery.tiles) {
        ASSERT_GE(tile.width * tile.height, 1);
        ASSERT_LE(tile.x + tile.width, kSize.width);
        ASSERT_LE(tile.y + tile.height, kSize.height);
      }
    }
  }
  EXPECT_GT(refused, 1000);
}

}  // namespace
}  // namespace cvn::view
