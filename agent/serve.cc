#include "agent/serve.h"

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/log.h"
#include "net/admission.h"
#include "session/agent_session.h"

namespace cvn::agent {
namespace {

constexpr std::chrono::milliseconds kPollInterval{100};
constexpr char kTileProtocol[] = "corvinet.tiles.v3";

/// The session and the connection it talks over. Ends both, the session first, since that is the order in
/// which nobody is left talking to something that is gone.
class ServedSession {
 public:
  ServedSession(std::shared_ptr<TransportConnection> connection, const SessionConfig& config,
                SessionParts parts)
      : connection_(std::move(connection)), session_(config, std::move(parts)) {}
  ~ServedSession() {
    session_.Stop();
    connection_->Close();
  }
  ServedSession(const ServedSession&) = delete;
  ServedSession& operator=(const ServedSession&) = delete;

  void Start() {
    connection_->Start([this](Channel channel, const std::vector<uint8_t>& payload) {
      if (channel == Channel::Control) session_.HandleControlMessage(payload);
    });
    session_.Start();
    session_.SendMonitorList();
  }

  void WaitForEnd(StopSignal& stop) const {
    while (connection_->IsOpen() && connection_->ReaderRunning() && !stop.IsSet())
      stop.WaitFor(kPollInterval);
  }

 private:
  std::shared_ptr<TransportConnection> connection_;
  AgentSession session_;
};

void Announce(const Arguments& arguments) {
  const unsigned port = arguments.port;
  if (arguments.listenLan) {
    Log().Warn(
        "[agent] listening on ALL interfaces, port %u. Anyone who can reach this port may attempt a session; "
        "the token is what stops them.",
        port);
  } else {
    Log().Info("[agent] listening on 127.0.0.1 port %u for one supporter", port);
  }
}

std::shared_ptr<TransportConnection> AdmitSupporter(SocketSystem& sockets, const Arguments& arguments,
                                                    const AgentContext& context, std::string& error) {
  return ListenAndAdmit({sockets, context.clock, context.stop},
                        {.port = arguments.port, .loopbackOnly = !arguments.listenLan},
                        {.plaintext = arguments.insecurePlaintext}, error);
}

void RunSession(std::shared_ptr<TransportConnection> connection, DisplaySystem& displays,
                const Arguments& arguments, const AgentContext& context) {
  const auto channel = [&connection](Channel number) {
    return std::make_shared<ChannelTransport>(connection, number, kTileProtocol);
  };
  SessionParts parts{.clock = context.clock,
                     .displays = displays,
                     .captureBackends =
                         [&](std::function<void()> screenTouched) {
                           return context.platform.CreateCaptureBackends(displays, std::move(screenTouched));
                         },
                     .createCodec = [&context] { return context.platform.CreateImageCodec(); },
                     .tiles = channel(Channel::Tiles),
                     .control = channel(Channel::Control)};
  const SessionConfig config{.viewOnly = arguments.viewOnly,
                             .monitor = arguments.monitor,
                             .relayed = arguments.relayed,
                             .strips = arguments.strips};
  ServedSession session(connection, config, std::move(parts));
  session.Start();
  session.WaitForEnd(context.stop);
  Log().Info("[agent] session ended");
}

/// Start-up has succeeded when this is called, apart from finding a supporter.
int ServeOne(SocketSystem& sockets, DisplaySystem& displays, const Arguments& arguments,
             const AgentContext& context) {
  Announce(arguments);
  std::string error;
  auto connection = AdmitSupporter(sockets, arguments, context, error);
  if (connection == nullptr && error.empty()) {
    Log().Info("[agent] stopped before anybody connected");
    return 0;
  }
  if (connection == nullptr) {
    Log().Warn("[agent] could not accept a session: %s", error.c_str());
    return 1;
  }
  Log().Info("[agent] session from %s", connection->PeerText().c_str());
  RunSession(std::move(connection), displays, arguments, context);
  return 0;
}

/// Whether the session's secrecy is settled: by the person's explicit wish to have none, never by a fallback.
bool SettleSecrecy(const Arguments& arguments) {
  if (arguments.insecurePlaintext) {
    Log().Warn("[agent] --insecure-plaintext: no TLS and no token. Loopback testing only.");
    return true;
  }
  Log().Warn("[agent] no device identity, so no TLS: %s",
             "this build cannot make one; only --insecure-plaintext is served");
  return false;
}

}  // namespace

int RunServe(const Arguments& arguments, const AgentContext& context) {
  std::string error;
  const auto sockets = context.platform.CreateSocketSystem(error);
  if (sockets == nullptr) {
    Log().Warn("%s", error.c_str());
    return 1;
  }
  if (!SettleSecrecy(arguments)) return 1;
  const auto displays = context.platform.CreateDisplaySystem(error);
  if (displays == nullptr) {
    Log().Warn("[capture] no display to serve: %s", error.c_str());
    return 1;
  }
  return ServeOne(*sockets, *displays, arguments, context);
}

}  // namespace cvn::agent
