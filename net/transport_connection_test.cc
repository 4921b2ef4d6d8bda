#include "net/transport_connection.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

#include "testing/captured_log.h"
#include "testing/eventually.h"
#include "testing/memory_channel.h"

namespace cvn::agent {
namespace {

constexpr double kCloseLimitSeconds = 2;
const std::vector<uint8_t> kQuestion = {0, 0, 0, 0, 1, '?'};  // the least that reaches the handler

std::vector<uint8_t> Bytes(size_t count, uint8_t value = 7) {
  return std::vector<uint8_t>(count, value);
}

/// The agent's connection over memory, and the raw bytes of its peer.
struct Road {
  explicit Road(size_t capacityBytes = 64 * 1024 * 1024) : Road(CreateMemoryChannelPair(capacityBytes)) {}
  explicit Road(MemoryChannelPair pair)
      : raw(*pair.agent),
        peer(std::move(pair.viewer)),
        connection(std::make_shared<TransportConnection>(nullptr, std::move(pair.agent), "peer:1")) {}

  MemoryChannel& raw;  // until the connection is closed
  std::unique_ptr<MemoryChannel> peer;
  std::shared_ptr<TransportConnection> connection;
};

std::vector<uint8_t> Read(MemoryChannel& channel, size_t count) {
  std::vector<uint8_t> bytes(count);
  EXPECT_TRUE(channel.ReceiveExactly(bytes));
  return bytes;
}

TEST(TransportConnection, FramesCarryChannelLengthAndPayload) {
  Road road;
  road.connection->Start({});
  road.connection->Enqueue(Channel::Tiles, {0xaa, 0xbb, 0xcc});
  EXPECT_EQ(Read(*road.peer, 8), (std::vector<uint8_t>{1, 0, 0, 0, 3, 0xaa, 0xbb, 0xcc}));
}

TEST(TransportConnection, AControlMessageOvertakesTilesThatWaitBehindABlockedWrite) {
  Road road(4);  // the first frame's header alone fills the line
  road.connection->Start({});
  for (uint8_t i = 1; i <= 3; ++i) road.connection->Enqueue(Channel::Tiles, {i});
  ASSERT_TRUE(Eventually([&] { return road.raw.UnreadByPeer() == 4; }));
  road.connection->Enqueue(Channel::Control, {99});
  std::vector<uint8_t> payloads;
  for (int i = 0; i < 4; ++i) payloads.push_back(Read(*road.peer, 6)[5]);
  EXPECT_EQ(payloads, (std::vector<uint8_t>{1, 99, 2, 3}));
}

TEST(TransportConnection, WhatCannotBeReadOrHandledEndsTheSessionAndNotTheProcess) {
  const struct {
    const char* what;
    std::vector<uint8_t> bytes;
    bool leaves;
    int handled;
    std::vector<std::string> logged;
  } rows[] = {
      {"malformed header", {4, 0, 0, 0, 1}, false, 0, {"malformed frame header"}},
      {"leaves mid-frame, quietly", {0, 0, 0, 0, 9, 'h', 'a'}, true, 0, {}},
      {"unhandled", kQuestion, false, 1, {"a received message could not be handled"}},
  };
  for (const auto& row : rows) {
    CapturedLog log;
    std::atomic<int> handled = 0;
    Road road;
    road.connection->Start([&handled](Channel, std::vector<uint8_t>) {
      ++handled;
      throw std::runtime_error("bad");
    });
    EXPECT_TRUE(road.connection->ReaderRunning());
    EXPECT_TRUE(road.peer->Send(row.bytes));
    if (row.leaves) road.peer.reset();
    EXPECT_TRUE(Eventually([&] { return !road.connection->ReaderRunning(); })) << row.what;
    EXPECT_FALSE(road.connection->IsOpen()) << row.what;
    EXPECT_EQ(handled, row.handled) << row.what;
    EXPECT_EQ(log.Lines().size(), row.logged.size()) << row.what;
    for (const std::string& text : row.logged)
      EXPECT_EQ(log.Count("WRN [transport] " + text + "; closing the session"), 1u);
  }
}

TEST(TransportConnection, WhatAHalfClosedPeerIsStillOwedIsWritten) {
  Road road(4);
  road.connection->Start({});
  road.connection->Enqueue(Channel::Tiles, {1});
  road.connection->Enqueue(Channel::Tiles, {2});
  road.peer->EndSending();
  ASSERT_TRUE(Eventually([&] { return !road.connection->IsOpen(); }));
  road.connection->Enqueue(Channel::Control, {3});  // too late
  EXPECT_EQ(Read(*road.peer, 6)[5], 1);
  EXPECT_EQ(Read(*road.peer, 6)[5], 2);
  EXPECT_TRUE(Eventually([&] { return road.connection->SentBytes(Channel::Tiles) == 2; }));
  EXPECT_EQ(road.connection->SentBytes(Channel::Control), 0u);
}

TEST(TransportConnection, AFailedWriteIsLoggedAndLeavesNoBacklogOfItsOwn) {
  CapturedLog log;
  Road road(4);
  const ChannelTransport tiles(road.connection, Channel::Tiles, "corvinet.tiles.v3");
  road.connection->Start({});
  road.connection->Enqueue(Channel::Tiles, Bytes(100));
  ASSERT_TRUE(Eventually([&] { return road.raw.UnreadByPeer() == 4; }));
  EXPECT_EQ(tiles.QueuedBytes(), 100);
  road.peer->Abort();
  EXPECT_TRUE(Eventually([&] { return tiles.QueuedBytes() == 0 && !tiles.IsOpen(); }));
  EXPECT_EQ(tiles.SentBytes(), 0u);
  EXPECT_TRUE(
      Eventually([&] { return log.Count("WRN [transport] write failed; closing the session") == 1; }));
}

TEST(TransportConnection, ReadsNoMoreFromAPeerThatDoesNotTakeItsAnswers) {
  std::atomic<int> handled = 0;
  Road road(1000);
  auto* connection = road.connection.get();
  road.connection->Start([&handled, connection](Channel, std::vector<uint8_t>) {
    ++handled;
    connection->Enqueue(Channel::Control, Bytes(1024 * 1024));
  });
  for (int i = 0; i < 8; ++i) EXPECT_TRUE(road.peer->Send(kQuestion));
  ASSERT_TRUE(Eventually([&] { return handled == 5; }));
  StopSignal().WaitFor(std::chrono::milliseconds(30));
  EXPECT_EQ(handled, 5) << "five answers are more than four mebibytes";

  for (int i = 0; i < 8; ++i) Read(*road.peer, 1024 * 1024 + 5);
  EXPECT_TRUE(Eventually([&] { return handled == 8; })) << "nothing is dropped";
}

// Every way in which the threads can be stuck, and every thread that can ask for the end.
TEST(TransportConnection, CloseEndsEverythingFromEveryState) {
  const struct {
    const char* what;
    bool start, blockWriter, pauseReader;
    int closers;
  } rows[] = {
      {"never started", false, false, false, 1},    {"idle", true, false, false, 1},
      {"blocked writer", true, true, false, 1},     {"paused reader", true, true, true, 1},
      {"two threads, idle", true, false, false, 2}, {"two threads, paused reader", true, true, true, 2},
  };
  for (const auto& row : rows) {
    Road road(16);
    if (row.pauseReader) road.connection->Enqueue(Channel::Control, Bytes(5 * 1024 * 1024));
    if (row.blockWriter) road.connection->Enqueue(Channel::Tiles, Bytes(1000));
    if (row.start) road.connection->Start({});
    if (row.pauseReader) road.peer->Send(kQuestion);
    EXPECT_TRUE(Eventually([&] { return !row.blockWriter || road.raw.UnreadByPeer() == 16; }));

    const double seconds = SecondsFor([&] {
      std::vector<std::future<void>> closers;
      for (int i = 0; i < row.closers; ++i)
        closers.push_back(std::async(std::launch::async, [&] { road.connection->Close(); }));
      for (auto& closer : closers) closer.get();
      road.connection->Close();
    });
    EXPECT_LT(seconds, kCloseLimitSeconds) << row.what;
    EXPECT_FALSE(road.connection->IsOpen()) << row.what;
    EXPECT_FALSE(road.connection->ReaderRunning()) << row.what;
    road.connection->Start({});
    EXPECT_FALSE(road.connection->ReaderRunning()) << row.what << ": nothing starts again";
  }
}

TEST(TransportConnection, TheHandlerMayCloseWhileTheWriterIsBlocked) {
  std::promise<double> closedAfter;
  Road road(16);
  auto* connection = road.connection.get();
  connection->Start([&closedAfter, connection](Channel, std::vector<uint8_t>) {
    const double seconds = SecondsFor([connection] { connection->Close(); });
    connection->Close();
    closedAfter.set_value(seconds);
  });
  connection->Enqueue(Channel::Tiles, Bytes(1000));
  ASSERT_TRUE(Eventually([&] { return road.raw.UnreadByPeer() == 16; }));
  EXPECT_TRUE(road.peer->Send(kQuestion));
  EXPECT_LT(closedAfter.get_future().get(), kCloseLimitSeconds);
  connection->Close();
  EXPECT_FALSE(connection->ReaderRunning()) << "a close from elsewhere waits for the handler";
}

TEST(TransportConnection, TheHandlerMayCloseWhileAnotherThreadIsClosing) {
  std::atomic<bool> inHandler = false;
  Road road;
  auto* connection = road.connection.get();
  connection->Start([&inHandler, connection](Channel, std::vector<uint8_t>) {
    inHandler = true;
    EXPECT_TRUE(Eventually([connection] { return !connection->IsOpen(); }));
    connection->Close();
  });
  EXPECT_TRUE(road.peer->Send(kQuestion));
  EXPECT_TRUE(Eventually([&] { return inHandler.load(); }));
  EXPECT_LT(SecondsFor([connection] { connection->Close(); }), kCloseLimitSeconds);
}

TEST(TransportConnection, TheHandlerMayHoldTheLastReference) {
  Road road;
  std::weak_ptr<TransportConnection> watch = road.connection;
  road.connection->Start([held = road.connection, &watch](Channel, std::vector<uint8_t>) mutable {
    EXPECT_TRUE(Eventually([&] { return watch.use_count() == 1; }));
    held.reset();
  });
  EXPECT_TRUE(road.peer->Send(kQuestion));
  road.connection.reset();
  EXPECT_TRUE(Eventually([&] { return watch.expired(); }));
  uint8_t byte = 0;
  EXPECT_FALSE(road.peer->ReceiveExactly({&byte, 1})) << "the line was closed";
}

}  // namespace
}  // namespace cvn::agent
