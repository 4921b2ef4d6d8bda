#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "base/clock.h"
#include "base/stop_signal.h"
#include "net/transport_connection.h"

namespace cvn::agent {

class SocketSystem;

/// What a side brings to the admission of a connection.
struct SessionOptions {
  /// No TLS and no token: loopback testing only.
  bool plaintext = false;
};

/// What admission works with. Setting `stop` ends it within 250 ms, wherever it waits.
struct AdmissionContext {
  SocketSystem& sockets;
  const Clock& clock;
  const StopSignal& stop;
};

struct ListenAddress {
  uint16_t port = 0;
  bool loopbackOnly = true;
};

struct ConnectAddress {
  std::string host;
  uint16_t port = 0;
};

/// Listens, accepts exactly one connection, closes the listener and admits the peer. Null with `error` set on
/// any failure, or with `error` empty when stopped. Waits for a peer without limit.
std::unique_ptr<TransportConnection> ListenAndAdmit(const AdmissionContext& context,
                                                    const ListenAddress& address,
                                                    const SessionOptions& options, std::string& error);

/// Connects to the first address of the host that answers and presents this side. Null with `error` set on
/// any failure, or with `error` empty when stopped. A name that is being looked up does not notice `stop`.
std::unique_ptr<TransportConnection> ConnectAndPresent(const AdmissionContext& context,
                                                       const ConnectAddress& address,
                                                       const SessionOptions& options, std::string& error);

}  // namespace cvn::agent
