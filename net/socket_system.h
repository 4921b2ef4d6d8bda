#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "net/stream_socket.h"

namespace cvn::agent {

/// The host's own form of an address and port; only the system that made it looks inside.
using SocketAddress = std::vector<uint8_t>;

/// Something that becomes a connected socket: a listener, or a connect that is under way. One thread.
/// Destroying it closes it; a socket that it gave away lives on.
class PendingSocket {
 public:
  virtual ~PendingSocket() = default;
  /// Waits no longer than a wait slice. Null with an empty `error`: nothing yet, ask again. Null with `error`
  /// set: it failed.
  virtual std::unique_ptr<StreamSocket> Wait(std::string& error) = 0;
};

/// The host's TCP sockets. Outlives every socket that it made. Any thread.
///
/// Failures are told as `SocketFailureText`.
class SocketSystem {
 public:
  virtual ~SocketSystem() = default;
  /// Listens on IPv4, on 127.0.0.1 or on every address. Null with `error` set on failure.
  virtual std::unique_ptr<PendingSocket> Listen(uint16_t port, bool loopbackOnly, std::string& error) = 0;
  /// The addresses of a host name or numeric address, in the order to try. Empty with `error` set on failure.
  virtual std::vector<SocketAddress> Resolve(const std::string& host, uint16_t port, std::string& error) = 0;
  /// Null with `error` set when it fails at once.
  virtual std::unique_ptr<PendingSocket> BeginConnect(const SocketAddress& address, std::string& error) = 0;
};

/// "<operation> failed (WSA <code>)", the form on every host.
std::string SocketFailureText(std::string_view operation, int code);

/// The form of `StreamSocket::PeerText`.
std::string SocketPeerText(std::string_view numericAddress, uint16_t port);

}  // namespace cvn::agent
