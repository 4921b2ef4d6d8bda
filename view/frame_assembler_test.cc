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

Bytes Piece(const Bytes& message, uint32_t id, size_t index, uint32_t epoch = 1) {
  return InEnvelope(epoch, kSize, agent::Fragment(message, id).at(index));
}

Bytes Wrap(Bytes message) {
  return InEnvelope(1, kSize, std::move(message));
}

/// A batch of frame 7 with one tile.
Bytes BatchWith(uint32_t x, uint32_t y, int width, int height) {
  return Wrap(Batch(7, {AnyTile(x, y, width, height)}));
}

TEST(FrameAssembler, FollowsAnHonestStream) {
  // What looks odd but happens: heartbeats before there is an epoch, ahead of a queued keyframe and amid
  // fragments, a frame in two batches, a sequence that wraps, a keyframe of the same size, one of another.
  const PictureSize other{64, 64};
  const agent::EncodedTile large = AnyTile(64, 0, 136, 100, 40000);
  const Bytes split = Batch(1, {AnyTile(0, 0, 64, 64), large});
  const std::vector<Bytes> messages{
      InEnvelope(5, other, Header(0xfffffffe, true, 1, other)),
      InEnvelope(5, other, Batch(0xfffffffe, {AnyTile(0, 0, 64, 64)})),
      InEnvelope(6, kSize, agent::BuildHeartbeat(0)),
      InEnvelope(6, kSize, Header(0xffffffff, true, 3)),
      InEnvelope(6, kSize, Batch(0xffffffff, {AnyTile(0, 0, 1, 1), AnyTile(136, 36, 64, 64)})),
      InEnvelope(6, kSize, Batch(0xffffffff, {AnyTile(0, 0, 200, 100)})),
      InEnvelope(6, kSize, Header(0, false, 1)),
      InEnvelope(6, kSize, Batch(0, {AnyTile(199, 99, 1, 1)})),
      InEnvelope(7, kSize, Header(1, true, 2)),
      Piece(split, 1, 0, 7),
      InEnvelope(7, kSize, agent::BuildHeartbeat(2)),
      Piece(split, 1, 1, 7),
      Piece(split, 1, 2, 7),
  };
  FrameAssembler assembler;
  Delivery delivery;
  std::string error;
  std::string kinds;
  ASSERT_TRUE(assembler.Take(agent::BuildHeartbeat(0), delivery, error)) << error;
  for (const Bytes& message : messages) {
    ASSERT_TRUE(assembler.Take(message, delivery, error)) << error;
    kinds += ".hbt"[static_cast<size_t>(delivery.kind)];
    if (delivery.frameEnds) kinds += '|';
    EXPECT_EQ(assembler.InTheMaking(), kinds.back() != '|' && kinds != "bt|h");
  }
  EXPECT_EQ(kinds, "bt|hbtt|bt|b.h.t|");
  ASSERT_EQ(delivery.tiles.size(), 2u);
  EXPECT_EQ(Bytes(delivery.tiles[1].payload.begin(), delivery.tiles[1].payload.end()), large.payload);
}

TEST(FrameAssembler, RefusesWhateverContradictsTheFormatOrWhatCameBefore) {
  const Bytes keyframe = Wrap(Header(7, true, 2));
  const Bytes one = BatchWith(0, 0, 1, 1);
  const Bytes large = Batch(7, {AnyTile(0, 0, 1, 1, 20000), AnyTile(0, 0, 1, 1, 20000)});
  const Bytes first = Piece(large, 1, 0);
  const Bytes nested[] = {Bytes(16400, 6), Bytes(16400, 5)};
  const Bytes beat = agent::BuildHeartbeat(8);
  const std::string outside = " does not lie in the frame of 200x100";
  // The last message of each row is the lie.
  const std::pair<std::vector<Bytes>, std::string> rows[] = {
      {{{}}, "an empty tile message"},
      {{{2, 0, 0}}, "a tile message of unknown type 2"},
      {{Wrap({6, 0, 0, 0, 0, 0, 0x80, 0, 1, 0, 0, 2, 1, 0})}, "a malformed fragment"},
      {{Header(0, true, 1)}, "a frame header outside an envelope"},
      {{Wrap({5, 0, 0, 0, 1, 0, 1, 0, 1, 4})}, "an envelope inside an envelope"},
      {{InEnvelope(3, kSize, beat), Wrap(beat)}, "the epoch went back from 3 to 1"},
      {{Wrap(beat), InEnvelope(1, {200, 101}, beat)},
       "the picture changed from 200x100 to 200x101 within epoch 1"},
      {{keyframe, InEnvelope(2, kSize, beat)}, "epoch 2 began before frame 7 was complete"},
      {{InEnvelope(1, {65535, 65535}, beat)}, "a picture of 65535x65535 is larger than this viewer takes"},

      {{Wrap(Header(7, true, 1, {9, 9}))}, "a frame of 9x9 in an envelope of 200x100"},
      {{Wrap(Header(7, true, 0))}, "frame 7 has no tiles"},
      {{Wrap(Header(7, false, 1))}, "epoch 1 began without a keyframe"},
      {{keyframe, one, keyframe}, "frame 7 began while 1 tiles of frame 7 were missing"},
      {{keyframe, one, one, Wrap(Header(9, false, 1))}, "frame 9 came after frame 7"},

      {{one}, "a tile batch without a frame header"},
      {{keyframe, one, one, one}, "a tile batch without a frame header"},
      {{keyframe, Wrap(Batch(8, {}))}, "a tile batch of frame 8 inside frame 7"},
      {{keyframe, Wrap(Batch(7, {}))}, "a tile batch without tiles"},
      {{keyframe, one, Wrap(large)}, "a batch of 2 tiles where frame 7 lacks 1"},
      {{keyframe, BatchWith(137, 0, 64, 1)}, "tile 0 at (137,0) of 64x1" + outside},
      {{keyframe, BatchWith(0, 99, 1, 2)}, "tile 0 at (0,99) of 1x2" + outside},
      {{keyframe, BatchWith(65535, 9, 65535, 9)}, "tile 0 at (65535,9) of 65535x9" + outside},
      {{keyframe, BatchWith(0, 0, 0, 1)}, "tile 0 at (0,0) of 0x1" + outside},
      {{keyframe, BatchWith(0, 0, 1, 0)}, "tile 0 at (0,0) of 1x0" + outside},

      {{keyframe, Piece(large, 1, 1)}, "fragment 1 of message 1 where fragment 0 was due"},
      {{keyframe, first, Piece(large, 1, 2)}, "fragment 2 of message 1 where fragment 1 was due"},
      {{keyframe, first, Piece(large, 2, 1)},
       "a fragment of message 2 (40037 bytes) amid message 1 (40037 bytes)"},
      {{keyframe, first, Piece(Bytes(40036, 3), 1, 1)},
       "a fragment of message 1 (40036 bytes) amid message 1 (40037 bytes)"},
      {{keyframe, first, one}, "a message of type 3 amid the fragments of message 1"},
      {{keyframe, first, Piece(large, 1, 1, 2)}, "epoch 2 began before frame 7 was complete"},
      {{keyframe, Piece(nested[0], 1, 0), Piece(nested[0], 1, 1)}, "a fragment inside a fragment"},
      {{keyframe, Piece(nested[1], 1, 0), Piece(nested[1], 1, 1)}, "an envelope inside a fragment"},
  };
  for (const auto& [messages, refusal] : rows) {
    SCOPED_TRACE(refusal);
    FrameAssembler assembler;
    Delivery delivery;
    std::string error;
    for (size_t i = 0; i + 1 < messages.size(); ++i)
      ASSERT_TRUE(assembler.Take(messages[i], delivery, error)) << "message " << i << ": " << error;
    EXPECT_FALSE(assembler.Take(messages.back(), delivery, error));
    EXPECT_EQ(error, refusal);
    EXPECT_TRUE(delivery.tiles.empty());
  }
}

}  // namespace
}  // namespace cvn::view
