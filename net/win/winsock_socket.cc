#include "net/win/winsock_socket.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/utf.h"
#include "net/socket_tuning.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <mstcpip.h>

namespace cvn::agent {
namespace {

// From ws2ipdef.h of the Windows SDK; this compiler's headers lack them.
constexpr int kTcpMaxRetransmitSeconds = 5;  // TCP_MAXRT
constexpr int kTcpKeepAliveProbes = 16;      // TCP_KEEPCNT

constexpr size_t kMaxBytesPerCall = 1048576;

/// Owns a socket handle.
class Handle {
 public:
  explicit Handle(SOCKET socket) : socket_(socket) {}
  ~Handle() {
    if (Valid()) closesocket(socket_);
  }
  Handle(Handle&& other) noexcept : socket_(std::exchange(other.socket_, INVALID_SOCKET)) {}
  Handle& operator=(Handle&&) = delete;

  SOCKET Get() const { return socket_; }
  bool Valid() const { return socket_ != INVALID_SOCKET; }

 private:
  SOCKET socket_;
};

/// An option that the system refuses stays at its default, with which a session works as well.
void SetOption(SOCKET socket, int level, int option, int value) {
  setsockopt(socket, level, option, reinterpret_cast<const char*>(&value), sizeof value);
}

void Tune(SOCKET socket) {
  SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  SetOption(socket, SOL_SOCKET, SO_SNDBUF, kSocketBufferBytes);
  SetOption(socket, SOL_SOCKET, SO_RCVBUF, kSocketBufferBytes);
  tcp_keepalive keepAlive{.onoff = 1,
                          .keepalivetime = kKeepAliveIdleSeconds * 1000,
                          .keepaliveinterval = kKeepAliveIntervalSeconds * 1000};
  DWORD ignored = 0;
  WSAIoctl(socket, SIO_KEEPALIVE_VALS, &keepAlive, sizeof keepAlive, nullptr, 0, &ignored, nullptr, nullptr);
  SetOption(socket, IPPROTO_TCP, kTcpKeepAliveProbes, kKeepAliveProbes);
  SetOption(socket, IPPROTO_TCP, kTcpMaxRetransmitSeconds, kUnansweredLimitMs / 1000);
}

enum class Readiness { Readable, Writable, Connected };

/// False when the slice passed without the event. A failed wait counts as the event: the next call tells why.
/// `select`, because the other call misses failed connects on older systems.
bool WaitUntilReady(SOCKET socket, Readiness readiness) {
  fd_set wanted{.fd_count = 1, .fd_array = {socket}};
  fd_set failed = wanted;
  timeval slice{.tv_sec = 0, .tv_usec = kWaitSliceMs * 1000};
  fd_set* reading = readiness == Readiness::Readable ? &wanted : nullptr;
  fd_set* writing = readiness == Readiness::Readable ? nullptr : &wanted;
  // Only while connecting: later it would mean urgent data, with which a peer could keep us from waiting.
  fd_set* failing = readiness == Readiness::Connected ? &failed : nullptr;
  return select(0, reading, writing, failing, &slice) != 0;
}

SocketResult ResultOf(int moved, SocketStatus whenZero) {
  if (moved > 0) return {SocketStatus::Bytes, static_cast<size_t>(moved)};
  if (moved == 0) return {whenZero, 0};
  return {WSAGetLastError() == WSAEWOULDBLOCK ? SocketStatus::TimedOut : SocketStatus::Failed, 0};
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

/// The system's own time-outs leave a socket in an undefined state, so calls do not block and the wait slice
/// is waited apart from them.
class WinsockSocket final : public StreamSocket {
 public:
  explicit WinsockSocket(Handle handle) : handle_(std::move(handle)) { Tune(handle_.Get()); }

  SocketResult Receive(std::span<uint8_t> buffer) override {
    const SocketResult ready = ReceiveReady(buffer);
    if (ready.status != SocketStatus::TimedOut || !WaitUntilReady(handle_.Get(), Readiness::Readable))
      return ready;
    return ReceiveReady(buffer);
  }
  SocketResult Send(std::span<const uint8_t> bytes) override {
    const SocketResult taken = SendReady(bytes);
    if (taken.status != SocketStatus::TimedOut || !WaitUntilReady(handle_.Get(), Readiness::Writable))
      return taken;
    return SendReady(bytes);
  }
  void Abort() override {
    shutdown(handle_.Get(), SD_BOTH);
    // A shutdown does not end a wait that has begun.
    CancelIoEx(reinterpret_cast<HANDLE>(handle_.Get()), nullptr);
  }
  std::string PeerText() const override {
    sockaddr_storage address{};
    int size = sizeof address;
    if (getpeername(handle_.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) return "unknown";
    return NumericPeerText(address);
  }

 private:
  SocketResult ReceiveReady(std::span<uint8_t> buffer) {
    const auto size = static_cast<int>(std::min(buffer.size(), kMaxBytesPerCall));
    return ResultOf(recv(handle_.Get(), reinterpret_cast<char*>(buffer.data()), size, 0),
                    SocketStatus::Closed);
  }
  SocketResult SendReady(std::span<const uint8_t> bytes) {
    const auto size = static_cast<int>(std::min(bytes.size(), kMaxBytesPerCall));
    return ResultOf(send(handle_.Get(), reinterpret_cast<const char*>(bytes.data()), size, 0),
                    SocketStatus::Failed);
  }

  const Handle handle_;
};

class WinsockListener final : public PendingSocket {
 public:
  explicit WinsockListener(Handle handle) : handle_(std::move(handle)) {}

  std::unique_ptr<StreamSocket> Wait(std::string& error) override {
    if (!WaitUntilReady(handle_.Get(), Readiness::Readable)) return nullptr;
    Handle accepted(accept(handle_.Get(), nullptr, nullptr));  // does not block either: it inherits that
    if (accepted.Valid()) return std::make_unique<WinsockSocket>(std::move(accepted));
    // A peer that gave up while it was waiting to be accepted is not the listener's failure.
    const int failure = WSAGetLastError();
    const bool peerLeft = failure == WSAEWOULDBLOCK || failure == WSAECONNRESET;
    if (!peerLeft) error = SocketFailureText("accept", failure);
    return nullptr;
  }

 private:
  const Handle handle_;
};

class WinsockConnecting final : public PendingSocket {
 public:
  explicit WinsockConnecting(Handle handle) : handle_(std::move(handle)) {}

  std::unique_ptr<StreamSocket> Wait(std::string& error) override {
    if (!WaitUntilReady(handle_.Get(), Readiness::Connected)) return nullptr;
    int failure = 0;
    int size = sizeof failure;
    if (getsockopt(handle_.Get(), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&failure), &size) != 0)
      failure = WSAGetLastError();
    if (failure == 0) return std::make_unique<WinsockSocket>(std::move(handle_));
    error = SocketFailureText("connect", failure);
    return nullptr;
  }

 private:
  Handle handle_;
};

/// A socket whose calls do not block; invalid, with the reason as the last error, when there is none.
Handle OpenSocket(int family) {
  Handle handle(WSASocketW(family, SOCK_STREAM, IPPROTO_TCP, nullptr, 0,
                           WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT));
  u_long nonBlocking = 1;
  if (handle.Valid() && ioctlsocket(handle.Get(), static_cast<long>(FIONBIO), &nonBlocking) != 0)
    return Handle(INVALID_SOCKET);
  return handle;
}

class WinsockSocketSystem final : public SocketSystem {
 public:
  ~WinsockSocketSystem() override { WSACleanup(); }

  std::unique_ptr<PendingSocket> Listen(uint16_t port, bool loopbackOnly, std::string& error) override {
    const auto failed = [&error](const char* operation) {
      error = SocketFailureText(operation, WSAGetLastError());
      return nullptr;
    };
    Handle listener = OpenSocket(AF_INET);
    if (!listener.Valid()) return failed("socket");
    SetOption(listener.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(loopbackOnly ? INADDR_LOOPBACK : INADDR_ANY);
    if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
      return failed("bind");
    if (listen(listener.Get(), 1) != 0) return failed("listen");
    return std::make_unique<WinsockListener>(std::move(listener));
  }

  std::vector<SocketAddress> Resolve(const std::string& host, uint16_t port, std::string& error) override {
    addrinfoW hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfoW* found = nullptr;
    const int failure =
        GetAddrInfoW(WideFromUtf8(host).c_str(), std::to_wstring(port).c_str(), &hints, &found);
    if (failure != 0) {
      error = SocketFailureText("getaddrinfo", failure);
      return {};
    }
    std::vector<SocketAddress> addresses;
    for (const addrinfoW* entry = found; entry; entry = entry->ai_next) {
      const auto* bytes = reinterpret_cast<const uint8_t*>(entry->ai_addr);
      addresses.emplace_back(bytes, bytes + entry->ai_addrlen);
    }
    FreeAddrInfoW(found);
    return addresses;
  }

  std::unique_ptr<PendingSocket> BeginConnect(const SocketAddress& address, std::string& error) override {
    const auto* target = reinterpret_cast<const sockaddr*>(address.data());
    Handle socket = OpenSocket(target->sa_family);
    const bool begun = socket.Valid() && connect(socket.Get(), target, static_cast<int>(address.size())) == 0;
    if (begun || (socket.Valid() && WSAGetLastError() == WSAEWOULDBLOCK))
      return std::make_unique<WinsockConnecting>(std::move(socket));
    error = SocketFailureText("connect", WSAGetLastError());
    return nullptr;
  }
};

}  // namespace

std::unique_ptr<SocketSystem> CreateWinsockSocketSystem(std::string& error) {
  WSADATA details;
  const int failure = WSAStartup(MAKEWORD(2, 2), &details);
  if (failure == 0) return std::make_unique<WinsockSocketSystem>();
  error = SocketFailureText("WSAStartup", failure);
  return nullptr;
}

}  // namespace cvn::agent
