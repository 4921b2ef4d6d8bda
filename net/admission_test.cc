#include "net/admission.h"

#include <gtest/gtest.h>

#include <future>

#include "net/socket_system.h"
#include "testing/captured_log.h"
#include "testing/eventually.h"
#include "testing/host_sockets.h"
#include "testing/received_frames.h"

namespace cvn::agent {
namespace {

constexpr double kStopLimitSeconds = 0.5;

/// Real sockets over loopback: an agent that listens on a free port, and raw peers.
class Admission : public testing::Test {
 protected:
  using Connection = std::unique_ptr<TransportConnection>;

  void SetUp() override {
    // Ports below the ones that systems hand out by themselves, spread so that two runs rarely meet.
    auto candidate = static_cast<uint16_t>(20000 + SystemClock().NowNs() / 1000 % 10000);
    std::string error;
    while (!sockets_->Listen(candidate, true, error)) ++candidate;
    port_ = candidate;
  }

  std::future<Connection> Listen(const SessionOptions& options = {.plaintext = true}) {
    return std::async(std::launch::async, [this, options] {
      return ListenAndAdmit(context_, {port_, true}, options, error_);
    });
  }

  /// Connects once the agent listens.
  std::unique_ptr<StreamSocket> RawPeer() {
    std::unique_ptr<StreamSocket> peer;
    EXPECT_TRUE(Eventually([&] { return (peer = TryConnect()) != nullptr; }));
    return peer;
  }

  std::unique_ptr<StreamSocket> TryConnect() {
    std::string error;
    const auto addresses = sockets_->Resolve("127.0.0.1", port_, error);
    auto pending = sockets_->BeginConnect(addresses.at(0), error);
    while (pending && error.empty())
      if (auto socket = pending->Wait(error)) return socket;
    return nullptr;
  }

  std::unique_ptr<SocketSystem> sockets_ = CreateHostSockets();
  SystemClock clock_;
  StopSignal stop_;
  const AdmissionContext context_{*sockets_, clock_, stop_};
  uint16_t port_ = 0;
  std::string error_;
};

bool SendAll(StreamSocket& socket, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const SocketResult sent = socket.Send(bytes);
    if (sent.status == SocketStatus::Closed || sent.status == SocketStatus::Failed) return false;
    bytes = bytes.subspan(sent.bytes);
  }
  return true;
}

TEST_F(Admission, WithoutPlaintextAnIdentityIsNeededAndNothingListens) {
  std::string error = "old";
  EXPECT_FALSE(ListenAndAdmit(context_, {port_, true}, {}, error));
  EXPECT_EQ(error, "a TLS session needs a device identity to bind its certificate to");
  EXPECT_FALSE(ConnectAndPresent(context_, {"127.0.0.1", port_}, {}, error));
  EXPECT_EQ(error, "a TLS session needs a device id to pin");
}

TEST_F(Admission, BothSidesExchangeFramesAndKnowTheirPeer) {
  CapturedLog log;
  auto listening = Listen();
  Connection viewer;
  std::string error;
  ASSERT_TRUE(Eventually([&] {
    return (viewer = ConnectAndPresent(context_, {"127.0.0.1", port_}, {.plaintext = true}, error)) !=
           nullptr;
  }));
  const Connection agent = listening.get();
  ASSERT_TRUE(agent) << error_;
  EXPECT_EQ(viewer->PeerText(), "127.0.0.1:" + std::to_string(port_) + " (plaintext)");
  EXPECT_EQ(log.Lines(),
            std::vector<std::string>{"INF [transport] accepted a connection from " + agent->PeerText()});

  ReceivedFrames received;
  auto* echo = agent.get();
  agent->Start([echo](Channel channel, std::vector<uint8_t> bytes) { echo->Enqueue(channel, bytes); });
  viewer->Start(received.Handler());
  const std::vector<ReceivedFrames::Frame> frames = {
      {Channel::Control, {'h', 'i'}},
      {Channel::Control, std::vector<uint8_t>(8388608, 3)},  // many times what the system buffers
      {Channel::Control, {9}}};
  for (const auto& frame : frames) viewer->Enqueue(frame.channel, frame.bytes);
  EXPECT_TRUE(Eventually([&] { return received.Count() == frames.size(); }));
  EXPECT_EQ(received.All(), frames);
  EXPECT_EQ(viewer->SentBytes(Channel::Control), 8388611u);
  viewer->Close();
  EXPECT_TRUE(Eventually([&] { return !agent->IsOpen(); }));
  agent->Close();
}

TEST_F(Admission, BytesThatArriveOneByOneAreOneFrame) {
  auto listening = Listen();
  const auto peer = RawPeer();
  const Connection agent = listening.get();
  ReceivedFrames received;
  agent->Start(received.Handler());
  const std::vector<uint8_t> bytes = {1, 0, 0, 0, 3, 'a', 'b', 'c', 0, 0, 0, 0, 1, 'd'};
  for (const uint8_t byte : bytes) {
    EXPECT_TRUE(SendAll(*peer, {&byte, 1}));
    // Longer than a receive waits, once, in the middle of a header.
    if (byte == 3) StopSignal().WaitFor(std::chrono::milliseconds(300));
  }
  EXPECT_TRUE(Eventually([&] { return received.Count() == 2; }));
  EXPECT_EQ(received.All(), (std::vector<ReceivedFrames::Frame>{{Channel::Tiles, {'a', 'b', 'c'}},
                                                                {Channel::Control, {'d'}}}));
  EXPECT_TRUE(agent->IsOpen());
  agent->Close();
}

TEST_F(Admission, AReceiveTellsSilenceFromAClose) {
  auto listening = Listen();
  const auto peer = RawPeer();
  const Connection agent = listening.get();
  std::array<uint8_t, 16> buffer;
  EXPECT_LT(SecondsFor([&] { EXPECT_EQ(peer->Receive(buffer).status, SocketStatus::TimedOut); }), 1);
  agent->Close();
  EXPECT_EQ(peer->Receive(buffer).status, SocketStatus::Closed);
  EXPECT_EQ(peer->Receive(buffer).bytes, 0u);
}

TEST_F(Admission, ASecondViewerIsRefusedWhileTheFirstIsServed) {
  auto listening = Listen();
  const auto first = RawPeer();
  const Connection agent = listening.get();
  EXPECT_FALSE(TryConnect());
  agent->Start({});
  EXPECT_TRUE(agent->IsOpen());
  agent->Close();
}

TEST_F(Admission, AStrayOrKilledPeerEndsTheSessionAtOnce) {
  struct Row {
    const char* what;
    std::vector<uint8_t> sent;
  };
  for (const Row& row : {Row{"says nothing", {}}, Row{"dies in a header", {1, 0}},
                         Row{"dies in a payload", {1, 0, 0, 0, 9, 'x'}}}) {
    auto listening = Listen();
    auto peer = RawPeer();
    const Connection agent = listening.get();
    ASSERT_TRUE(agent) << row.what << ": " << error_;
    ReceivedFrames received;
    agent->Start(received.Handler());
    EXPECT_TRUE(SendAll(*peer, row.sent));
    peer.reset();
    EXPECT_LT(SecondsFor([&] {
                EXPECT_TRUE(Eventually([&] { return !agent->IsOpen() && !agent->ReaderRunning(); }));
                agent->Close();
              }),
              1)
        << row.what;
    EXPECT_EQ(received.Count(), 0u) << row.what;
  }
}

TEST_F(Admission, AWriterThatThePeerBlocksIsReleasedByClose) {
  auto listening = Listen();
  const auto peer = RawPeer();
  const Connection agent = listening.get();
  agent->Start({});
  agent->Enqueue(Channel::Tiles, std::vector<uint8_t>(8388608));
  StopSignal().WaitFor(std::chrono::milliseconds(400));  // more than one wait slice in the same write
  EXPECT_TRUE(agent->IsOpen());
  EXPECT_EQ(agent->QueuedBytes(Channel::Tiles), 8388608);
  EXPECT_LT(SecondsFor([&] { agent->Close(); }), 1);
}

TEST_F(Admission, APeerThatIsGoneFailsTheWriteAndNotTheProcess) {
  auto listening = Listen();
  auto peer = RawPeer();
  const Connection agent = listening.get();
  agent->Start({});
  peer.reset();
  for (int i = 0; i < 100; ++i) agent->Enqueue(Channel::Tiles, std::vector<uint8_t>(65536));
  EXPECT_TRUE(Eventually([&] { return !agent->IsOpen(); }));
  agent->Close();
}

TEST_F(Admission, AStopEndsTheWaitForAPeerWithoutAnError) {
  auto listening = Listen();
  StopSignal().WaitFor(std::chrono::milliseconds(50));
  EXPECT_LT(SecondsFor([&] {
              stop_.Set();
              EXPECT_FALSE(listening.get());
            }),
            kStopLimitSeconds);
  EXPECT_EQ(error_, "");
}

TEST_F(Admission, FailuresNameTheOperationAndTheSystemsNumber) {
  const auto numberOf = [](const std::string& error, const std::string& operation) {
    const std::string begin = operation + " failed (WSA ";
    if (!error.starts_with(begin) || !error.ends_with(")")) return 0;
    return std::stoi(error.substr(begin.size()));
  };
  std::string error;
  EXPECT_FALSE(ConnectAndPresent(context_, {"127.0.0.1", port_}, {.plaintext = true}, error));
  EXPECT_NE(numberOf(error, "connect"), 0) << error;
  EXPECT_FALSE(ConnectAndPresent(context_, {"no such host", port_}, {.plaintext = true}, error));
  EXPECT_NE(numberOf(error, "getaddrinfo"), 0) << error;
}

TEST(SocketTexts, HaveOneFormOnEveryHost) {
  EXPECT_EQ(SocketFailureText("bind", 10048), "bind failed (WSA 10048)");
  EXPECT_EQ(SocketPeerText("10.1.2.3", 65535), "10.1.2.3:65535");
  EXPECT_EQ(SocketPeerText("fe80::1", 80), "fe80::1:80");
}

}  // namespace
}  // namespace cvn::agent
