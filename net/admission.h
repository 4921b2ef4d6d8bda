#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "base/clock.h"
#include "net/transport_connection.h"

namespace cvn::agent {

class SocketSystem;

/// What a side brings to the admission of a connection.
struct SessionOptions {
  /// No TLS and no token: loopback testing only.
  bool plaintext = false;
};

/// Listens on `port` (loopback only, or every address), accepts exactly one connection, closes the listener
/// and admits the peer. Null with `error` set on any failure. Blocks until somebody connects.
std::unique_ptr<TransportConnection> ListenAndAdmit(SocketSystem& sockets, const Clock& clock, uint16_t port,
                                                    bool loopbackOnly, const SessionOptions& options,
                                                    std::string& error);

/// Connects to the first address of `host` that answers and presents this side. Null with `error` set on any
/// failure.
std::unique_ptr<TransportConnection> ConnectAndPresent(SocketSystem& sockets, const Clock& clock,
                                                       const std::string& host, uint16_t port,
                                                       const SessionOptions& options, std::string& error);

}  // namespace cvn::agent
