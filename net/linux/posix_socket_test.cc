#include "net/linux/posix_socket.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "testing/eventually.h"
#include "testing/host_sockets.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace cvn::agent {

std::unique_ptr<SocketSystem> CreateHostSockets() {
  return CreatePosixSocketSystem();
}

namespace {

uint16_t PeerPort(int fd) {
  sockaddr_in6 peer{};
  socklen_t size = sizeof peer;
  return getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0 ? ntohs(peer.sin6_port) : 0;
}

int Option(int fd, int level, int option) {
  int value = -1;
  socklen_t size = sizeof value;
  EXPECT_EQ(getsockopt(fd, level, option, &value, &size), 0);
  return value;
}

/// A plain listener on a free port, and the tested system's connection to it.
struct Loopback {
  explicit Loopback(int family) : listener(socket(family, SOCK_STREAM, 0)) {
    sockaddr_in6 address{};
    socklen_t size = family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    address.sin6_family = static_cast<sa_family_t>(family);  // any port and address are zeros in both forms
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(listen(listener, 0), 0);
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port = ntohs(address.sin6_port);
    std::string error;
    target = sockets->Resolve(family == AF_INET6 ? "::1" : "127.0.0.1", port, error).at(0);
    client = sockets->BeginConnect(target, error)->Wait(error);
    EXPECT_TRUE(client) << error;
  }
  ~Loopback() {
    close(listener);
    if (accepted >= 0) close(accepted);
  }

  void Accept() { accepted = accept(listener, nullptr, nullptr); }

  std::unique_ptr<SocketSystem> sockets = CreatePosixSocketSystem();
  int listener = -1;
  int accepted = -1;
  uint16_t port = 0;
  SocketAddress target;
  std::unique_ptr<StreamSocket> client;
};

TEST(PosixSocket, IsTunedForASession) {
  const Loopback loopback(AF_INET);
  int fd = 3;
  while (fd < 1024 && PeerPort(fd) != loopback.port) ++fd;
  ASSERT_LT(fd, 1024);
  const struct {
    const char* what;
    int level, option, value;
  } rows[] = {
      {"no delay", IPPROTO_TCP, TCP_NODELAY, 1},
      {"send buffer, which the system doubles", SOL_SOCKET, SO_SNDBUF, 2 * 65536},
      {"bytes not yet under way", IPPROTO_TCP, TCP_NOTSENT_LOWAT, 4096},
      {"receive buffer, which the system doubles", SOL_SOCKET, SO_RCVBUF, 2 * 65536},
      {"keep-alive", SOL_SOCKET, SO_KEEPALIVE, 1},
      {"first probe", IPPROTO_TCP, TCP_KEEPIDLE, 10},
      {"next probes", IPPROTO_TCP, TCP_KEEPINTVL, 1},
      {"probes", IPPROTO_TCP, TCP_KEEPCNT, 5},
  };
  for (const auto& row : rows) EXPECT_EQ(Option(fd, row.level, row.option), row.value) << row.what;
}

TEST(PosixSocket, APeerThatHalfClosesCanStillBeSentTo) {
  Loopback loopback(AF_INET);
  loopback.Accept();
  ASSERT_EQ(shutdown(loopback.accepted, SHUT_WR), 0);
  std::array<uint8_t, 4> buffer{};
  EXPECT_EQ(loopback.client->Receive(buffer).status, SocketStatus::Closed);
  const std::array<uint8_t, 3> bytes = {1, 2, 3};
  EXPECT_EQ(loopback.client->Send(bytes).bytes, 3u);
  EXPECT_EQ(recv(loopback.accepted, buffer.data(), buffer.size(), 0), 3);
}

TEST(PosixSocket, PeerTextIsNumericOfBothFamiliesAndUnknownOnceThePeerIsLost) {
  for (const auto& [family, address] : {std::pair{AF_INET, "127.0.0.1:"}, {AF_INET6, "::1:"}}) {
    Loopback loopback(family);
    loopback.Accept();
    EXPECT_EQ(loopback.client->PeerText(), address + std::to_string(loopback.port));
    const linger reset{.l_onoff = 1, .l_linger = 0};
    setsockopt(loopback.accepted, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    close(std::exchange(loopback.accepted, -1));
    EXPECT_TRUE(Eventually([&] { return loopback.client->PeerText() == "unknown"; }));
  }
}

TEST(PosixSocket, APortInUseIsABindFailure) {
  const Loopback taken(AF_INET);
  std::string error;
  EXPECT_FALSE(CreatePosixSocketSystem()->Listen(taken.port, true, error));
  EXPECT_EQ(error, "bind failed (WSA " + std::to_string(EADDRINUSE) + ")");
}

TEST(PosixSocket, AConnectThatGetsNoAnswerIsWaitedForInSlices) {
  const Loopback full(AF_INET);  // its one place is taken, so further connects get no answer
  std::string error;
  const auto pending = full.sockets->BeginConnect(full.target, error);
  ASSERT_TRUE(pending) << error;
  const double seconds = SecondsFor([&] { EXPECT_FALSE(pending->Wait(error)); });
  EXPECT_EQ(error, "");
  EXPECT_GT(seconds, 0.2);
  EXPECT_LT(seconds, 1);
}

}  // namespace
}  // namespace cvn::agent
