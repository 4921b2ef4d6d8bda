#include "view/frame_assembler.h"

#include <gtest/gtest.h>

#include "view/stream_for_test.h"

namespace cvn::view {
namespace {

constexpr PictureSize kSize{200, 100};

agent::EncodedTile AnyTile(uint32_t x, uint32_t y, int width, int height, size_t payloadBytes = 3) {
  agent::EncodedTile tile = TileAt(x, y, {width, height});
  tile.payload.resize(payloadBytes);
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

Bytes Piece(Bytes message, uint32_t id, size_t index, uint32_t epoch = 1) {
  return InEnvelope(epoch, kSize, agent::Fragment(message, id).at(index));
}

Bytes BatchOfFrame7(const std::vector<agent::EncodedTile>& tiles) {
  return InEnvelope(1, kSize, Batch(7, tiles));
}

TEST(FrameAssembler, RefusesWhateverContradictsTheFormatOrWhatCameBefore) {
  const Bytes keyframe = InEnvelope(1, kSize, Header(7, true, 2));
  const Bytes one = BatchOfFrame7({AnyTile(0, 0, 1, 1)});
  const Bytes large = Batch(7, {AnyTile(0, 0, 1, 1, 20000), AnyTile(0, 0, 1, 1, 20000)});
  const Bytes nested[] = {Bytes(16400, 6), Bytes(16400, 5)};
  const Bytes beat = agent::BuildHeartbeat(8);
  // The last message of each row is the lie.
  const struct {
    std::vector<Bytes> messages;
    const char* error;
  } rows[] = {
      {{{}}, "an empty tile message"},
      {{{2, 0, 0}}, "a tile message of unknown type 2"},
      {{InEnvelope(1, kSize, {9})}, "a tile message of unknown type 9"},
      {{{4, 0, 0}}, "a malformed heartbeat"},
      {{{5, 0, 0, 0, 1, 0, 1, 0}}, "a malformed envelope"},
      {{InEnvelope(1, kSize, {1, 0, 0, 0, 0, 1, 0, 200, 0, 100, 0, 64, 0})}, "a malformed frame header"},
      {{keyframe, InEnvelope(1, kSize, {3, 0, 0, 0, 7, 0, 1, 0})}, "a malformed tile batch"},
      {{InEnvelope(1, kSize, {6, 0, 0, 0, 0, 0, 0x80, 0, 1, 0, 0, 2, 1, 0})}, "a malformed fragment"},
      {{Header(0, true, 1)}, "a frame header outside an envelope"},
      {{{5, 0, 0, 0, 1, 0, 1, 0, 1, 5, 0, 0, 0, 1, 0, 1, 0, 1, 4}}, "an envelope inside an envelope"},
      {{InEnvelope(3, kSize, beat), InEnvelope(2, kSize, beat)}, "the epoch went back from 3 to 2"},
      {{InEnvelope(3, kSize, beat), InEnvelope(3, {200, 101}, beat)},
       "the picture changed from 200x100 to 200x101 within epoch 3"},
      {{keyframe, InEnvelope(2, kSize, beat)}, "epoch 2 began before frame 7 was complete"},
      {{InEnvelope(1, {65535, 65535}, beat)}, "a picture of 65535x65535 is larger than this viewer takes"},

      {{InEnvelope(1, kSize, Header(7, true, 1, {100, 100}))},
       "a frame of 100x100 in an envelope of 200x100"},
      {{InEnvelope(1, kSize, Header(7, true, 0))}, "frame 7 has no tiles"},
      {{InEnvelope(1, kSize, Header(7, false, 1))}, "epoch 1 began without a keyframe"},
      {{keyframe, one, InEnvelope(1, kSize, Header(8, false, 1))},
       "frame 8 began while 1 tiles of frame 7 were missing"},
      {{keyframe, one, one, InEnvelope(1, kSize, Header(9, false, 1))}, "frame 9 came after frame 7"},

      {{one}, "a tile batch without a frame header"},
      {{keyframe, one, one, one}, "a tile batch without a frame header"},
      {{keyframe, InEnvelope(1, kSize, Batch(8, {AnyTile(0, 0, 1, 1)}))},
       "a tile batch of frame 8 inside frame 7"},
      {{keyframe, BatchOfFrame7({})}, "a tile batch without tiles"},
      {{keyframe, one, BatchOfFrame7({AnyTile(0, 0, 1, 1), AnyTile(0, 0, 1, 1)})},
       "a batch of 2 tiles where frame 7 lacks 1"},
      {{keyframe, BatchOfFrame7({AnyTile(137, 0, 64, 1)})},
       "tile 0 at (137,0) of 64x1 does not lie in the frame of 200x100"},
      {{keyframe, BatchOfFrame7({AnyTile(0, 0, 1, 1), AnyTile(0, 99, 1, 2)})},
       "tile 0 at (0,99) of 1x2 does not lie in the frame of 200x100"},
      {{keyframe, BatchOfFrame7({AnyTile(65535, 65535, 65535, 65535)})},
       "tile 0 at (65535,65535) of 65535x65535 does not lie in the frame of 200x100"},
      {{keyframe, BatchOfFrame7({AnyTile(0, 0, 0, 1)})},
       "tile 0 at (0,0) of 0x1 does not lie in the frame of 200x100"},
      {{keyframe, BatchOfFrame7({AnyTile(0, 0, 1, 0)})},
       "tile 0 at (0,0) of 1x0 does not lie in the frame of 200x100"},

      {{keyframe, Piece(large, 1, 1)}, "fragment 1 of message 1 where fragment 0 was due"},
      {{keyframe, Piece(large, 1, 0), Piece(large, 1, 2)},
       "fragment 2 of message 1 where fragment 1 was due"},
      {{keyframe, Piece(large, 1, 0), Piece(large, 1, 0)},
       "fragment 0 of message 1 where fragment 1 was due"},
      {{keyframe, Piece(large, 1, 0), Piece(large, 2, 1)},
       "a fragment of message 2 (40037 bytes) amid message 1 (40037 bytes)"},
      {{keyframe, Piece(large, 1, 0), Piece(Bytes(40036, 3), 1, 1)},
       "a fragment of message 1 (40036 bytes) amid message 1 (40037 bytes)"},
      {{keyframe, Piece(large, 1, 0), one}, "a message of type 3 amid the fragments of message 1"},
      {{keyframe, Piece(large, 1, 0), Piece(large, 1, 1, 2)}, "epoch 2 began before frame 7 was complete"},
      {{keyframe, Piece(nested[0], 1, 0), Piece(nested[0], 1, 1)}, "a fragment inside a fragment"},
      {{keyframe, Piece(nested[1], 1, 0), Piece(nested[1], 1, 1)}, "an envelope inside a fragment"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.error);
    FrameAssembler assembler;
    Delivery delivery;
    std::string error;
    for (size_t i = 0; i + 1 < row.messages.size(); ++i)
      ASSERT_TRUE(assembler.Take(row.messages[i], delivery, error)) << "message " << i << ": " << error;
    EXPECT_FALSE(assembler.Take(row.messages.back(), delivery, error));
    EXPECT_EQ(error, row.error);
    EXPECT_TRUE(delivery.tiles.empty());
  }
}

}  // namespace
}  // namespace cvn::view
