#include "net/transport_connection.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

#include "testing/captured_log.h"
#include "testing/eventually.h"
#include "testing/memory_channel.h"
#include "testing/received_frames.h"

namespace cvn::agent {
namespace {

constexpr double kCloseLimitSeconds = 2;

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
  ReceivedFrames received;
  Road road;
  road.connection->Start(received.Handler());
  road.connection->Enqueue(Channel::Tiles, {0xaa, 0xbb, 0xcc});
  EXPECT_EQ(Read(*road.peer, 8), (std::vector<uint8_t>{1, 0, 0, 0, 3, 0xaa, 0xbb, 0xcc}));

  const std::vector<uint8_t> incoming = {0, 0, 0, 0, 2, 'h', 'i', 3, 0, 0, 0, 1, 9};
  for (const uint8_t byte : incoming) EXPECT_TRUE(road.peer->Send({&byte, 1}));
  ASSERT_TRUE(Eventually([&] { return received.Count() == 2; }));
  EXPECT_EQ(received.All(), (std::vector<ReceivedFrames::Frame>{{Channel::Control, {'h', 'i'}},
                                                                {static_cast<Channel>(3), {9}}}));
}

TEST(TransportConnection, TheLargestFrameTravelsBothWays) {
  ReceivedFrames received;
  Road road;
  road.connection->Start(received.Handler());
  road.connection->Enqueue(Channel::Tiles, Bytes(8388608, 5));
  const auto frame = Read(*road.peer, 8388613);
  EXPECT_EQ(frame.front(), 1);
  EXPECT_EQ(frame.back(), 5);
  EXPECT_TRUE(road.peer->Send(frame));
  ASSERT_TRUE(Eventually([&] { return received.Count() == 1; }));
  EXPECT_EQ(received.All()[0].bytes, Bytes(8388608, 5));
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

TEST(TransportConnection, AMalformedHeaderIsLoggedAndEndsTheSession) {
  for (const std::vector<uint8_t>& header :
       {std::vector<uint8_t>{4, 0, 0, 0, 1}, {0, 0, 0, 0, 0}, {0, 0, 0x80, 0, 1}}) {
    CapturedLog log;
    ReceivedFrames received;
    Road road;
    road.connection->Start(received.Handler());
    EXPECT_TRUE(road.connection->ReaderRunning());
    EXPECT_TRUE(road.peer->Send(header));
    EXPECT_TRUE(Eventually([&] { return !road.connection->ReaderRunning(); }));
    EXPECT_FALSE(road.connection->IsOpen());
    EXPECT_EQ(received.Count(), 0u);
    EXPECT_EQ(log.Lines(),
              std::vector<std::string>{"WRN [transport] malformed frame header; closing the session"});
  }
}

TEST(TransportConnection, APeerThatLeavesMidFrameEndsTheSessionQuietly) {
  CapturedLog log;
  ReceivedFrames received;
  Road road;
  road.connection->Start(received.Handler());
  EXPECT_TRUE(road.peer->Send(std::vector<uint8_t>{0, 0, 0, 0, 9, 'h', 'a'}));
  road.peer.reset();
  EXPECT_TRUE(Eventually([&] { return !road.connection->IsOpen() && !road.connection->ReaderRunning(); }));
  EXPECT_EQ(received.Count(), 0u);
  EXPECT_TRUE(log.Lines().empty());
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
  const std::vector<uint8_t> question = {0, 0, 0, 0, 1, '?'};
  for (int i = 0; i < 8; ++i) EXPECT_TRUE(road.peer->Send(question));
  ASSERT_TRUE(Eventually([&] { return handled == 5; }));
  StopSignal().WaitFor(std::chrono::milliseconds(30));
  EXPECT_EQ(handled, 5) << "five answers are more than four mebibytes";

  for (int i = 0; i < 8; ++i) Read(*road.peer, 1024 * 1024 + 5);
  EXPECT_TRUE(Eventually([&] { return handled == 8; })) << "nothing is dropped";
}

TEST(TransportConnection, AHandlerThatThrowsEndsTheSessionAndNotTheProcess) {
  Road road;
  road.connection->Start([](Channel, std::vector<uint8_t>) { throw std::runtime_error("bad"); });
  EXPECT_TRUE(road.peer->Send(std::vector<uint8_t>{0, 0, 0, 0, 1, 1}));
  EXPECT_TRUE(Eventually([&] { return !road.connection->IsOpen() && !road.connection->ReaderRunning(); }));
}

// Every way in which the threads can be stuck, and every thread that can ask for the end.
TEST(TransportConnection, CloseEndsEverythingFromEveryState) {
  struct Row {
    const char* what;
    bool start;
    bool blockWriter;
    bool pauseReader;
    int closers;
  };
  const Row rows[] = {
      {"never started", false, false, false, 1},    {"idle", true, false, false, 1},
      {"blocked writer", true, true, false, 1},     {"paused reader", true, true, true, 1},
      {"two threads, idle", true, false, false, 2}, {"two threads, paused reader", true, true, true, 2},
  };
  for (const Row& row : rows) {
    Road road(16);
    if (row.pauseReader) road.connection->Enqueue(Channel::Control, Bytes(5 * 1024 * 1024));
    if (row.blockWriter) road.connection->Enqueue(Channel::Tiles, Bytes(1000));
    if (row.start) road.connection->Start({});
    if (row.pauseReader) road.peer->Send(std::vector<uint8_t>{0, 0, 0, 0, 1, 1});
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
  road.connection->Start([&closedAfter, connection](Channel, std::vector<uint8_t>) {
    closedAfter.set_value(SecondsFor([connection] {
      connection->Close();
      connection->Close();
    }));
  });
  road.connection->Enqueue(Channel::Tiles, Bytes(1000));
  ASSERT_TRUE(Eventually([&] { return road.raw.UnreadByPeer() == 16; }));
  EXPECT_TRUE(road.peer->Send(std::vector<uint8_t>{0, 0, 0, 0, 1, 1}));
  EXPECT_LT(closedAfter.get_future().get(), kCloseLimitSeconds);
  road.connection->Close();
  EXPECT_FALSE(road.connection->ReaderRunning()) << "a close from elsewhere waits for the handler";
}

TEST(TransportConnection, TheHandlerMayCloseWhileAnotherThreadIsClosing) {
  std::promise<void> inHandler;
  StopSignal elsewhere;
  Road road;
  auto* connection = road.connection.get();
  road.connection->Start([&, connection](Channel, std::vector<uint8_t>) {
    inHandler.set_value();
    elsewhere.WaitFor(std::chrono::seconds(10));
    connection->Close();
  });
  EXPECT_TRUE(road.peer->Send(std::vector<uint8_t>{0, 0, 0, 0, 1, 1}));
  inHandler.get_future().get();
  auto closer = std::async(std::launch::async, [&] { road.connection->Close(); });
  EXPECT_TRUE(Eventually([&] { return !road.connection->IsOpen(); }));
  elsewhere.Set();
  EXPECT_EQ(closer.wait_for(std::chrono::seconds(2)), std::future_status::ready);
}

TEST(TransportConnection, TheHandlerMayHoldTheLastReference) {
  Road road;
  std::weak_ptr<TransportConnection> watch = road.connection;
  std::promise<void> mayDrop;
  auto dropNow = mayDrop.get_future().share();
  road.connection->Start([held = road.connection, dropNow](Channel, std::vector<uint8_t>) mutable {
    dropNow.wait();
    held.reset();
  });
  EXPECT_TRUE(road.peer->Send(std::vector<uint8_t>{0, 0, 0, 0, 1, 1}));
  road.connection.reset();
  mayDrop.set_value();
  EXPECT_TRUE(Eventually([&] { return watch.expired(); }));
  uint8_t byte = 0;
  EXPECT_FALSE(road.peer->ReceiveExactly({&byte, 1})) << "the line was closed";
}

}  // namespace
}  // namespace cvn::agent
