#include "session/tile_message_queue.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "testing/captured_log.h"
#include "testing/fake_tile_transport.h"

namespace cvn::agent {
namespace {

using Bytes = std::vector<uint8_t>;
using Sizes = std::vector<size_t>;

constexpr StreamEpoch kEpoch = {.keyframes = 3, .width = 640, .height = 480};
constexpr uint64_t kPlenty = 65'536;

Sizes TakeSizes(FakeTileTransport& transport) {
  Sizes sizes;
  for (const Bytes& message : transport.TakeMessages()) sizes.push_back(message.size());
  return sizes;
}

TEST(TileMessageQueue, WrapsAndSplitsAsTheProtocolAsks) {
  const struct {
    const char* what;
    const char* protocol;
    uint32_t keyframes;
    size_t messageBytes;
    Sizes sent;
  } rows[] = {
      {"v3 just fits", "corvinet.tiles.v3", 1, 16375, {16384}},
      {"v3 one byte over", "corvinet.tiles.v3", 1, 16376, {16384, 36}},
      {"v3 three pieces", "corvinet.tiles.v3", 1, 40000, {16384, 16384, 7298}},
      {"v2 never splits", "corvinet.tiles.v2", 1, 20000, {20009}},
      {"v3 before the first keyframe", "corvinet.tiles.v3", 0, 20000, {16375, 3651}},
      {"another protocol", "other", 1, 20000, {20000}},
  };
  for (const auto& row : rows) {
    FakeTileTransport transport(row.protocol);
    TileMessageQueue queue(transport);
    queue.Add(Bytes(row.messageBytes, 1), {.keyframes = row.keyframes, .width = 64, .height = 64});
    while (queue.Pump(kPlenty) > 0) {
    }
    EXPECT_EQ(TakeSizes(transport), row.sent) << row.what;
  }
}

TEST(TileMessageQueue, NumbersSplitMessagesAndAnnouncesSplittingOnce) {
  CapturedLog log;
  FakeTileTransport transport;
  TileMessageQueue queue(transport);
  for (int i = 0; i < 2; ++i) queue.Add(Bytes(20'000, 7), kEpoch);
  queue.Pump(kPlenty);
  std::vector<std::pair<uint32_t, uint16_t>> pieces;
  for (const Bytes& message : transport.TakeMessages()) {
    const auto envelope = ParseEnvelope(message);
    ASSERT_TRUE(envelope);
    EXPECT_EQ(envelope->header.epoch, 3u);
    EXPECT_EQ(envelope->header.width, 640);
    EXPECT_EQ(envelope->header.height, 480);
    const auto fragment = ParseFragment(envelope->message);
    ASSERT_TRUE(fragment);
    pieces.emplace_back(fragment->messageId, fragment->index);
  }
  EXPECT_EQ(pieces, (std::vector<std::pair<uint32_t, uint16_t>>{{0, 0}, {0, 1}, {1, 0}, {1, 1}}));
  EXPECT_EQ(log.Lines(),
            std::vector<std::string>{"INF [tiles] v3 fragmentation active: 20000 B message split "
                                     "into 2 fragments of at most 16384 B"});
}

TEST(TileMessageQueue, HandsOverBoundedBites) {
  const struct {
    const char* what;
    int64_t backlogBytes;
    bool held;
    uint64_t allowedBytes;
    Sizes waiting;
    Sizes sent;
  } rows[] = {
      {"an empty backlog takes any one message", 0, true, 8192, {70'000, 1}, {70'000}},
      {"a small one after it must fit beside it", 0, true, 8192, {8'000, 192, 1}, {8'000, 192}},
      {"not a byte over the allowance", 1000, true, 8192, {7'193}, {}},
      {"just the allowance", 1000, true, 8192, {7'192}, {7'192}},
      {"a full backlog", 8192, true, 8192, {1}, {}},
      {"a backlog beyond the allowance", 9000, true, 8192, {1}, {}},
      {"at most 65,536 bytes to a fast link", 0, false, 65'536, {30'000, 30'000, 5'537}, {30'000, 30'000}},
      {"just 65,536 bytes, and then no more", 0, false, 65'536, {60'000, 5'536, 1}, {60'000, 5'536}},
  };
  for (const auto& row : rows) {
    FakeTileTransport transport("other");
    transport.HoldSends(row.held);
    transport.SetQueuedBytes(row.backlogBytes);
    TileMessageQueue queue(transport);
    int64_t sentBytes = 0;
    for (const size_t bytes : row.waiting) queue.Add(Bytes(bytes, 1), kEpoch);
    for (const size_t bytes : row.sent) sentBytes += static_cast<int64_t>(bytes);
    EXPECT_EQ(queue.Pump(row.allowedBytes), sentBytes) << row.what;
    EXPECT_EQ(TakeSizes(transport), row.sent) << row.what;
    EXPECT_EQ(queue.Empty(), row.sent.size() == row.waiting.size()) << row.what;
  }
}

TEST(TileMessageQueue, KeepsWhatItHasWhenAMessageCannotTravel) {
  FakeTileTransport transport;
  TileMessageQueue queue(transport);
  queue.Add(Bytes(10, 1), kEpoch);
  EXPECT_THROW(queue.Add(Bytes(8'388'609, 1), kEpoch), std::out_of_range);
  EXPECT_THROW(queue.Add(Bytes(10, 1), {.keyframes = 1, .width = 70'000, .height = 64}), std::out_of_range);
  queue.Pump(kPlenty);
  EXPECT_EQ(TakeSizes(transport), Sizes{19});
}

}  // namespace
}  // namespace cvn::agent
