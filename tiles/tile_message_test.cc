#include "tiles/tile_message.h"

#include <gtest/gtest.h>

#include "testing/thrown_text.h"

namespace cvn::agent {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Sequence(size_t count) {
  Bytes bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 251);
  return bytes;
}

EncodedTile Tile(uint32_t index, TileCoding coding, Bytes payload) {
  return {index, 0, 0, 0x0102, 0x0304, 64, 300, coding, std::move(payload)};
}

// Every way to cut a message short, and one byte too many, must be refused.
template <typename Parse>
void ExpectOnlyWholeMessageParses(const Bytes& message, Parse parse) {
  EXPECT_TRUE(parse(message).has_value());
  for (size_t length = 0; length < message.size(); ++length)
    EXPECT_FALSE(parse(std::span(message).first(length)).has_value()) << length;
  Bytes longer = message;
  longer.push_back(0);
  EXPECT_FALSE(parse(longer).has_value());
  Bytes otherType = message;
  otherType[0] = 2;
  EXPECT_FALSE(parse(otherType).has_value());
}

TEST(FrameHeaderMessage, HasItsFourteenBytes) {
  const Bytes bytes = BuildFrameHeader({0x01020304, true, 1920, 1080, 64, 510});
  EXPECT_EQ(bytes, (Bytes{1, 1, 2, 3, 4, 1, 0x07, 0x80, 0x04, 0x38, 0, 64, 0x01, 0xfe}));
  ExpectOnlyWholeMessageParses(bytes, ParseFrameHeader);
  EXPECT_EQ(BuildFrameHeader(*ParseFrameHeader(bytes)), bytes);
  Bytes otherKeyframe = bytes;
  for (uint8_t value = 0; value <= 2; ++value) {
    otherKeyframe[5] = value;
    EXPECT_EQ(ParseFrameHeader(otherKeyframe).has_value(), value < 2);
  }
}

TEST(TileBatchMessage, HasItsRecordsBackToBack) {
  const std::vector<EncodedTile> tiles = {Tile(5, TileCoding::kPalette, {0xaa, 0xbb}),
                                          Tile(0x10203, TileCoding::kWebp, {})};
  const Bytes bytes = BuildTileBatch(9, tiles);
  EXPECT_EQ(bytes, (Bytes{3, 0, 0, 0, 9, 0, 2,                                        // header
                          0, 5, 1, 2, 3, 4, 0, 64, 1, 44, 1, 0, 0, 0, 2, 0xaa, 0xbb,  // first
                          2, 3, 1, 2, 3, 4, 0, 64, 1, 44, 4, 0, 0, 0, 0}));           // second
  EXPECT_EQ(bytes.capacity(), bytes.size()) << "built with one allocation";
  ExpectOnlyWholeMessageParses(bytes, ParseTileBatch);

  const auto batch = ParseTileBatch(bytes);
  std::vector<EncodedTile> parsed;
  for (const TileRecord& r : batch->records)
    parsed.push_back({r.index, 0, 0, r.x, r.y, r.width, r.height, static_cast<TileCoding>(r.coding),
                      Bytes(r.payload.begin(), r.payload.end())});
  EXPECT_EQ(BuildTileBatch(batch->sequence, parsed), bytes);
}

TEST(TileBatchMessage, IsRefusedWhenItsCountsLie) {
  const std::vector<EncodedTile> tiles = {Tile(1, TileCoding::kLossless, Sequence(40))};
  const Bytes good = BuildTileBatch(1, tiles);
  const struct {
    const char* what;
    size_t offset;
    uint8_t value;
  } rows[] = {
      {"no record announced, one present", 6, 0},    {"a second record announced, absent", 6, 2},
      {"as many records as fit the field", 5, 0xff}, {"payload one byte longer than the message", 21, 41},
      {"payload one byte shorter", 21, 39},          {"payload of almost 4 GiB", 18, 0xff},
  };
  for (const auto& row : rows) {
    Bytes bad = good;
    bad[row.offset] = row.value;
    EXPECT_FALSE(ParseTileBatch(bad)) << row.what;
  }
}

TEST(HeartbeatMessage, CarriesTheNextSequence) {
  const Bytes bytes = BuildHeartbeat(0xfffffffe);
  EXPECT_EQ(bytes, (Bytes{4, 0xff, 0xff, 0xff, 0xfe}));
  EXPECT_EQ(ParseHeartbeat(bytes), 0xfffffffeu);
  EXPECT_EQ(BuildHeartbeat(0), (Bytes{4, 0, 0, 0, 0}));
  ExpectOnlyWholeMessageParses(bytes, ParseHeartbeat);
}

TEST(EnvelopeMessage, WrapsOnlyVersionedProtocolsWithAnEpoch) {
  const Bytes inner = {4, 0, 0, 0, 1};
  const Bytes wrapped = {5, 0, 0, 0, 3, 0x07, 0x80, 0xff, 0xff, 4, 0, 0, 0, 1};
  const struct {
    const char* what;
    std::string_view protocol;
    uint32_t epoch;
    bool wraps;
  } rows[] = {
      {"v2", "corvinet.tiles.v2", 3, true},
      {"v3", "corvinet.tiles.v3", 3, true},
      {"before the first keyframe", "corvinet.tiles.v3", 0, false},
      {"an older version", "corvinet.tiles.v1", 3, false},
      {"a longer name", "corvinet.tiles.v3 ", 3, false},
      {"none", "", 3, false},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Envelope(row.protocol, row.epoch, 1920, 65535, inner), row.wraps ? wrapped : inner) << row.what;

  const auto parsed = ParseEnvelope(wrapped);
  ASSERT_TRUE(parsed);
  const EnvelopeHeader& header = parsed->header;
  const Bytes message(parsed->message.begin(), parsed->message.end());
  EXPECT_EQ(Envelope(kTilesV3, header.epoch, header.width, header.height, message), wrapped);
}

TEST(EnvelopeMessage, RefusesSizesItsFieldsCannotCarry) {
  const auto thrown = [](int width, int height) {
    return ThrownText([&] { Envelope(kTilesV3, 1, width, height, {4}); });
  };
  for (const int size : {1, 65535}) EXPECT_EQ(thrown(size, size), "nothing thrown") << size;
  for (const int size : {-1, 0, 65536}) {
    EXPECT_EQ(thrown(size, 100), "envelope dimensions") << size;
    EXPECT_EQ(thrown(100, size), "envelope dimensions") << size;
  }
  EXPECT_EQ(Envelope(kTilesV3, 0, 70000, 0, {4}), Bytes{4}) << "nothing is checked where nothing is wrapped";
}

TEST(EnvelopeMessage, IsRefusedWhenNoSenderCouldHaveMadeIt) {
  const struct {
    const char* what;
    Bytes message;
  } rows[] = {
      {"nothing at all", {}},
      {"another type", {6, 0, 0, 0, 1, 0, 1, 0, 1, 4}},
      {"cut in the header", {5, 0, 0, 0, 1, 0, 1, 0}},
      {"nothing inside", {5, 0, 0, 0, 1, 0, 1, 0, 1}},
      {"epoch 0", {5, 0, 0, 0, 0, 0, 1, 0, 1, 4}},
      {"width 0", {5, 0, 0, 0, 1, 0, 0, 0, 1, 4}},
      {"height 0", {5, 0, 0, 0, 1, 0, 1, 0, 0, 4}},
      {"an envelope inside", {5, 0, 0, 0, 1, 0, 1, 0, 1, 5, 0, 0, 0, 1, 0, 1, 0, 1, 4}},
  };
  for (const auto& row : rows) EXPECT_FALSE(ParseEnvelope(row.message)) << row.what;
}

TEST(Fragments, AreNeededOnlyOnV3AndPastTheLimit) {
  EXPECT_FALSE(NeedsFragments("corvinet.tiles.v3", 16375));
  EXPECT_TRUE(NeedsFragments("corvinet.tiles.v3", 16376));
  EXPECT_FALSE(NeedsFragments("corvinet.tiles.v2", 100000));
  EXPECT_EQ(ThrownText([] { Fragment({}, 0); }), "fragment input");
  EXPECT_EQ(ThrownText([] { Fragment(Bytes(8388609), 0); }), "fragment input");
}

TEST(Fragments, CarryEveryByteInOrder) {
  const struct {
    size_t messageBytes, count, lastChunkBytes;
  } rows[] = {{1, 1, 1},         {16362, 1, 16362}, {16363, 2, 1},
              {32724, 2, 16362}, {32725, 3, 1},     {8388608, 513, 11264}};
  for (const auto& row : rows) {
    const Bytes message = Sequence(row.messageBytes);
    const auto fragments = Fragment(message, 77);
    ASSERT_EQ(fragments.size(), row.count) << row.messageBytes;
    EXPECT_EQ(fragments.back().size(), 13 + row.lastChunkBytes);
    Bytes joined;
    for (size_t i = 0; i < fragments.size(); ++i) {
      const auto fragment = ParseFragment(fragments[i]);
      ASSERT_TRUE(fragment) << row.messageBytes << " fragment " << i;
      EXPECT_EQ((std::vector<size_t>{fragment->messageId, fragment->totalBytes, fragment->index}),
                (std::vector<size_t>{77, row.messageBytes, i}));
      joined.insert(joined.end(), fragment->chunk.begin(), fragment->chunk.end());
    }
    EXPECT_EQ(joined, message) << row.messageBytes;
  }
}

TEST(Fragments, HaveTheirThirteenByteHeader) {
  Bytes second = Fragment(Sequence(16362 + 2), 0x0a0b0c0d)[1];
  second.resize(13);
  EXPECT_EQ(second, (Bytes{6, 0x0a, 0x0b, 0x0c, 0x0d, 0, 0, 0x3f, 0xec, 0, 1, 0, 2}));
}

TEST(Fragments, AreRefusedWhenTheirFieldsDisagree) {
  const auto fragments = Fragment(Sequence(40000), 1);  // Three: 16362, 16362 and 7276 bytes.
  const struct {
    const char* what;
    size_t fragment;
    size_t offset;
    Bytes value;
  } rows[] = {
      {"another type", 0, 0, {5}},
      {"total 0", 0, 5, {0, 0, 0, 0}},
      {"total one more than 8 MiB", 0, 5, {0, 0x80, 0, 1, 0, 0, 2, 1}},
      {"total of almost 4 GiB", 0, 5, {0xff, 0xff, 0xff, 0xff}},
      {"count one too low", 0, 11, {0, 2}},
      {"count one too high", 0, 11, {0, 4}},
      {"count 0", 0, 11, {0, 0}},
      {"index equal to the count", 0, 9, {0, 3}},
      {"a full chunk as the last one", 0, 9, {0, 2}},
      {"the last chunk as an earlier one", 2, 9, {0, 1}},
      {"total one byte more than the last chunk has", 2, 5, {0, 0, 0x9c, 0x41}},
  };
  for (const auto& row : rows) {
    Bytes bad = fragments[row.fragment];
    std::copy(row.value.begin(), row.value.end(), bad.begin() + static_cast<ptrdiff_t>(row.offset));
    EXPECT_FALSE(ParseFragment(bad)) << row.what;
  }
  ExpectOnlyWholeMessageParses(fragments[2], ParseFragment);
}

}  // namespace
}  // namespace cvn::agent
