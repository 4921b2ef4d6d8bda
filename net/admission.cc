#include "net/admission.h"

#include <utility>
#include <vector>

#include "base/log.h"
#include "net/plaintext_channel.h"
#include "net/socket_system.h"

namespace cvn::agent {
namespace {

/// Null with `error` set when it failed, or empty when `stop` ended it.
std::unique_ptr<StreamSocket> WaitConnected(PendingSocket& pending, const StopSignal& stop,
                                            std::string& error) {
  while (error.empty() && !stop.IsSet())
    if (auto socket = pending.Wait(error)) return socket;
  return nullptr;
}

/// The listener ends with the call: one listener serves exactly one viewer.
std::unique_ptr<StreamSocket> AcceptOne(const AdmissionContext& context, const ListenAddress& address,
                                        std::string& error) {
  const auto listener = context.sockets.Listen(address.port, address.loopbackOnly, error);
  return listener ? WaitConnected(*listener, context.stop, error) : nullptr;
}

std::unique_ptr<StreamSocket> ConnectTo(const AdmissionContext& context, const SocketAddress& address,
                                        std::string& error) {
  const auto connecting = context.sockets.BeginConnect(address, error);
  return connecting ? WaitConnected(*connecting, context.stop, error) : nullptr;
}

/// Null with the last address's error.
std::unique_ptr<StreamSocket> ConnectToAny(const AdmissionContext& context, const ConnectAddress& address,
                                           std::string& error) {
  for (const auto& candidate : context.sockets.Resolve(address.host, address.port, error)) {
    error.clear();
    if (context.stop.IsSet()) return nullptr;
    if (auto socket = ConnectTo(context, candidate, error)) return socket;
  }
  return nullptr;
}

}  // namespace

std::unique_ptr<TransportConnection> ListenAndAdmit(const AdmissionContext& context,
                                                    const ListenAddress& address,
                                                    const SessionOptions& options, std::string& error) {
  error.clear();
  if (!options.plaintext) {
    error = "a TLS session needs a device identity to bind its certificate to";
    return nullptr;
  }
  auto socket = AcceptOne(context, address, error);
  if (!socket) return nullptr;

  std::string peerText = socket->PeerText();
  Log().Info("[transport] accepted a connection from %s", peerText.c_str());
  auto channel = std::make_unique<PlaintextChannel>(*socket);
  return std::make_unique<TransportConnection>(std::move(socket), std::move(channel), std::move(peerText));
}

std::unique_ptr<TransportConnection> ConnectAndPresent(const AdmissionContext& context,
                                                       const ConnectAddress& address,
                                                       const SessionOptions& options, std::string& error) {
  error.clear();
  if (!options.plaintext) {
    error = "a TLS session needs a device id to pin";
    return nullptr;
  }
  auto socket = ConnectToAny(context, address, error);
  if (!socket) return nullptr;

  auto channel = std::make_unique<PlaintextChannel>(*socket);
  std::string peerText = socket->PeerText() + " (" + channel->Describe() + ")";
  return std::make_unique<TransportConnection>(std::move(socket), std::move(channel), std::move(peerText));
}

}  // namespace cvn::agent
