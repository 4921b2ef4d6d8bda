#include "net/admission.h"

#include <gtest/gtest.h>

#include <future>
#include <regex>

#include "net/socket_system.h"
#include "testing/captured_log.h"
#include "testing/eventually.h"
#include "testing/host_sockets.h"
#include "testing/received_frames.h"

namespace cvn::agent {
namespace {

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

  std::future<Connection> Listen() {
    return std::async(std::launch::async, [this] {
      return ListenAndAdmit(context_, {port_, true}, {.plaintext = true}, error_);
    });
  }

  /// An admitted raw peer.
  void Meet() {
    auto listening = Listen();
    ASSERT_TRUE(Eventually([&] { return (peer_ = TryConnect()) != nullptr; }));
    agent_ = listening.get();
    ASSERT_TRUE(agent_) << error_;
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
  std::unique_ptr<StreamSocket> peer_;
  Connection agent_;
};

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
  ReceivedFrames received;
  Meet();
  agent_->Start(received.Handler());
  const std::vector<uint8_t> bytes = {1, 0, 0, 0, 3, 'a', 'b', 'c', 3, 0, 0, 0, 1, 'd'};
  for (const uint8_t byte : bytes) {
    EXPECT_EQ(peer_->Send({&byte, 1}).bytes, 1u);
    // Longer than a receive waits, once, in the middle of a frame.
    if (byte == 'a') StopSignal().WaitFor(std::chrono::milliseconds(300));
  }
  EXPECT_TRUE(Eventually([&] { return received.Count() == 2; }));
  EXPECT_EQ(received.All(), (std::vector<ReceivedFrames::Frame>{{Channel::Tiles, {'a', 'b', 'c'}},
                                                                {static_cast<Channel>(3), {'d'}}}));
  agent_->Close();
}

TEST_F(Admission, ASecondViewerIsRefusedWhileTheFirstIsServed) {
  Meet();
  EXPECT_FALSE(TryConnect());
  EXPECT_TRUE(agent_->IsOpen());
}

TEST_F(Admission, AStrayOrKilledPeerEndsTheSessionAtOnce) {
  const std::vector<uint8_t> nothing, cutHeader = {1, 0}, cutPayload = {1, 0, 0, 0, 9, 'x'};
  for (const auto& sent : {nothing, cutHeader, cutPayload}) {
    ReceivedFrames received;
    Meet();
    agent_->Start(received.Handler());
    if (!sent.empty()) peer_->Send(sent);
    peer_.reset();
    const double seconds = SecondsFor([&] {
      EXPECT_TRUE(Eventually([&] { return !agent_->IsOpen() && !agent_->ReaderRunning(); }));
      agent_->Close();
    });
    EXPECT_LT(seconds, 1) << sent.size();
    EXPECT_EQ(received.Count(), 0u) << sent.size();
  }
}

TEST_F(Admission, AWriterThatThePeerBlocksIsReleasedByClose) {
  Meet();
  agent_->Start({});
  agent_->Enqueue(Channel::Tiles, std::vector<uint8_t>(8388608));
  StopSignal().WaitFor(std::chrono::milliseconds(400));  // more than one wait slice in the same write
  EXPECT_TRUE(agent_->IsOpen());
  EXPECT_EQ(agent_->QueuedBytes(Channel::Tiles), 8388608);
  EXPECT_LT(SecondsFor([&] { agent_->Close(); }), 1);
}

TEST_F(Admission, APeerThatIsGoneFailsTheWriteAndNotTheProcess) {
  Meet();
  agent_->Start({});
  peer_.reset();
  for (int i = 0; i < 100; ++i) agent_->Enqueue(Channel::Tiles, std::vector<uint8_t>(65536));
  EXPECT_TRUE(Eventually([&] { return !agent_->IsOpen(); }));
}

TEST_F(Admission, AStopEndsTheWaitForAPeerWithoutAnError) {
  auto listening = Listen();
  StopSignal().WaitFor(std::chrono::milliseconds(50));
  stop_.Set();
  EXPECT_LT(SecondsFor([&] { EXPECT_FALSE(listening.get()); }), 0.5);
  EXPECT_EQ(error_, "");
}

TEST_F(Admission, FailuresNameTheOperationAndTheSystemsNumber) {
  for (const auto& [host, operation] : {std::pair{"127.0.0.1", "connect"}, {"no such host", "getaddrinfo"}}) {
    std::string error;
    EXPECT_FALSE(ConnectAndPresent(context_, {host, port_}, {.plaintext = true}, error));
    EXPECT_TRUE(std::regex_match(error, std::regex(operation + std::string(" failed \\(WSA -?[1-9]\\d*\\)"))))
        << error;
  }
}

}  // namespace
}  // namespace cvn::agent
