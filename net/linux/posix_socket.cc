#include "net/linux/posix_socket.h"

#include <array>
#include <utility>

#include "net/peer_watch.h"
#include "net/socket_tuning.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace cvn::agent {
namespace {

/// Owns a file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;

  int Get() const { return fd_; }
  bool Valid() const { return fd_ >= 0; }

 private:
  int fd_;
};

/// An option that the system refuses stays at its default, with which a session works as well.
template <typename Value>
void SetOption(int fd, int level, int option, const Value& value) {
  setsockopt(fd, level, option, &value, sizeof value);
}

void Tune(int fd) {
  SetOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
  SetOption(fd, SOL_SOCKET, SO_SNDBUF, kSocketBufferBytes);
  SetOption(fd, IPPROTO_TCP, TCP_NOTSENT_LOWAT, kMostUnsentBytes);
  SetOption(fd, SOL_SOCKET, SO_RCVBUF, kSocketBufferBytes);
  SetOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
  SetOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdleSeconds);
  SetOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalSeconds);
  SetOption(fd, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
  const timeval slice{.tv_sec = 0, .tv_usec = kWaitSliceMs * 1000};
  SetOption(fd, SOL_SOCKET, SO_RCVTIMEO, slice);
  SetOption(fd, SOL_SOCKET, SO_SNDTIMEO, slice);
}

std::string NumericPeerText(const sockaddr_storage& address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const bool v6 = address.ss_family == AF_INET6;
  const auto& in4 = reinterpret_cast<const sockaddr_in&>(address);
  const auto& in6 = reinterpret_cast<const sockaddr_in6&>(address);
  const void* numeric = v6 ? static_cast<const void*>(&in6.sin6_addr) : &in4.sin_addr;
  if (!inet_ntop(address.ss_family, numeric, text.data(), text.size())) return "unknown";
  return SocketPeerText(text.data(), ntohs(v6 ? in6.sin6_port : in4.sin_port));
}

SocketResult ResultOf(ssize_t moved, SocketStatus whenZero) {
  if (moved > 0) return {SocketStatus::Bytes, static_cast<size_t>(moved)};
  if (moved == 0) return {whenZero, 0};
  if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return {SocketStatus::TimedOut, 0};
  return {SocketStatus::Failed, 0};
}

PeerSigns SignsOf(int fd) {
  tcp_info info{};
  socklen_t size = sizeof info;
  if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return {};
  return {.owesAnswer = info.tcpi_unacked > 0 || info.tcpi_probes > 0,
          .sinceHeardMs = info.tcpi_last_ack_recv};
}

class PosixSocket final : public StreamSocket {
 public:
  explicit PosixSocket(Descriptor descriptor) : descriptor_(std::move(descriptor)) {
    Tune(descriptor_.Get());
  }

  SocketResult Receive(std::span<uint8_t> buffer) override {
    const ssize_t received = recv(descriptor_.Get(), buffer.data(), buffer.size(), 0);
    return UnlessLost(ResultOf(received, SocketStatus::Closed), receiveWatch_);
  }
  SocketResult Send(std::span<const uint8_t> bytes) override {
    const ssize_t sent = send(descriptor_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return UnlessLost(ResultOf(sent, SocketStatus::Failed), sendWatch_);
  }
  void Abort() override { shutdown(descriptor_.Get(), SHUT_RDWR); }
  std::string PeerText() const override {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getpeername(descriptor_.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) return "unknown";
    return NumericPeerText(address);
  }

 private:
  SocketResult UnlessLost(SocketResult result, PeerWatch& watch) {
    if (result.status == SocketStatus::TimedOut && watch.IsLost(SignsOf(descriptor_.Get())))
      return {SocketStatus::Failed, 0};
    return result;
  }

  const Descriptor descriptor_;
  PeerWatch receiveWatch_;  // the two threads' own
  PeerWatch sendWatch_;
};

/// False when the slice passed without the event. A failed poll counts as the event: the next call tells why.
bool WaitForEvent(int fd, short event) {
  pollfd waited{.fd = fd, .events = event, .revents = 0};
  return poll(&waited, 1, kWaitSliceMs) != 0;
}

class PosixListener final : public PendingSocket {
 public:
  explicit PosixListener(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

  std::unique_ptr<StreamSocket> Wait(std::string& error) override {
    if (!WaitForEvent(descriptor_.Get(), POLLIN)) return nullptr;
    Descriptor accepted(accept4(descriptor_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (accepted.Valid()) return std::make_unique<PosixSocket>(std::move(accepted));
    // A peer that gave up while it was waiting to be accepted is not the listener's failure.
    const bool peerLeft = errno == EAGAIN || errno == ECONNABORTED || errno == EPROTO || errno == EINTR;
    if (!peerLeft) error = SocketFailureText("accept", errno);
    return nullptr;
  }

 private:
  const Descriptor descriptor_;
};

class PosixConnecting final : public PendingSocket {
 public:
  explicit PosixConnecting(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

  std::unique_ptr<StreamSocket> Wait(std::string& error) override {
    if (!WaitForEvent(descriptor_.Get(), POLLOUT)) return nullptr;
    int failure = 0;
    socklen_t size = sizeof failure;
    if (getsockopt(descriptor_.Get(), SOL_SOCKET, SO_ERROR, &failure, &size) != 0) failure = errno;
    if (failure == 0 && fcntl(descriptor_.Get(), F_SETFL, 0) != 0) failure = errno;
    if (failure == 0) return std::make_unique<PosixSocket>(std::move(descriptor_));
    error = SocketFailureText("connect", failure);
    return nullptr;
  }

 private:
  Descriptor descriptor_;
};

Descriptor OpenSocket(int family) {
  return Descriptor(socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
}

class PosixSocketSystem final : public SocketSystem {
 public:
  std::unique_ptr<PendingSocket> Listen(uint16_t port, bool loopbackOnly, std::string& error) override {
    const auto failed = [&error](const char* operation) {
      error = SocketFailureText(operation, errno);
      return nullptr;
    };
    Descriptor listener = OpenSocket(AF_INET);
    if (!listener.Valid()) return failed("socket");
    SetOption(listener.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(loopbackOnly ? INADDR_LOOPBACK : INADDR_ANY);
    if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
      return failed("bind");
    if (listen(listener.Get(), 1) != 0) return failed("listen");
    return std::make_unique<PosixListener>(std::move(listener));
  }

  std::vector<SocketAddress> Resolve(const std::string& host, uint16_t port, std::string& error) override {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* found = nullptr;
    const int failure = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (failure != 0) {
      error = SocketFailureText("getaddrinfo", failure == EAI_SYSTEM ? errno : failure);
      return {};
    }
    std::vector<SocketAddress> addresses;
    for (const addrinfo* entry = found; entry; entry = entry->ai_next) {
      const auto* bytes = reinterpret_cast<const uint8_t*>(entry->ai_addr);
      addresses.emplace_back(bytes, bytes + entry->ai_addrlen);
    }
    freeaddrinfo(found);
    return addresses;
  }

  std::unique_ptr<PendingSocket> BeginConnect(const SocketAddress& address, std::string& error) override {
    const auto* target = reinterpret_cast<const sockaddr*>(address.data());
    Descriptor socket = OpenSocket(target->sa_family);
    const bool begun =
        socket.Valid() && connect(socket.Get(), target, static_cast<socklen_t>(address.size())) == 0;
    if (begun || (socket.Valid() && errno == EINPROGRESS))
      return std::make_unique<PosixConnecting>(std::move(socket));
    error = SocketFailureText("connect", errno);
    return nullptr;
  }
};

}  // namespace

std::unique_ptr<SocketSystem> CreatePosixSocketSystem() {
  return std::make_unique<PosixSocketSystem>();
}

}  // namespace cvn::agent
