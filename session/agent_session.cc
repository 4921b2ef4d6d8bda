#include "session/agent_session.h"

#include <exception>
#include <thread>
#include <utility>

#include "base/log.h"
#include "session/capture_turn.h"
#include "session/control_dispatch.h"
#include "session/quality_control.h"
#include "session/session_requests.h"
#include "session/tile_stream_sender.h"

namespace cvn::agent {
namespace {

/// More than any exact form of a tile takes: in the end every tile becomes exact.
constexpr int32_t kAnyBitsPerPixel = 1'024;
/// Keeps a pass short where tiles cost more time than bytes.
constexpr int32_t kRefineTilesPerPass = 32;

TileStreamSettings StreamSettings(const SessionConfig& config) {
  TileStreamSettings settings;
  settings.encoder.strips = config.strips;
  settings.encoder.refineBudget = kAnyBitsPerPixel;
  settings.encoder.refineTilesPerPass = kRefineTilesPerPass;
  settings.capBacklog = config.relayed;
  return settings;
}

template <typename Work>
void OrGiveUp(Work work) {
  try {
    work();
  } catch (const std::exception& error) {
    Log().Warn("[session] capture failed for good: %s", error.what());
  } catch (...) {
    Log().Warn("[session] capture failed for good");
  }
}

}  // namespace

/// The requests come first and go last: a capturer's watcher may raise them to the end.
struct AgentSession::State {
  State(const SessionConfig& sessionConfig, SessionParts sessionParts)
      : config(sessionConfig),
        parts(std::move(sessionParts)),
        requests(config.monitor),
        control(config.viewOnly, {.displays = parts.displays,
                                  .control = *parts.control,
                                  .tiles = *parts.tiles,
                                  .requests = requests}) {}

  void CaptureLoop();
  void StreamScreen();
  void RunTurns(CaptureTurn& turn);

  const SessionConfig config;
  const SessionParts parts;
  SessionRequests requests;
  ControlDispatch control;
  std::thread captureThread;
};

void AgentSession::State::CaptureLoop() {
  OrGiveUp([this] { StreamScreen(); });
}

/// What belongs to the capture thread is made and destroyed on it.
void AgentSession::State::StreamScreen() {
  const std::unique_ptr<TileImageCodec> codec = parts.createCodec();
  TileStreamSender sender(parts.clock, *parts.tiles, codec.get(), StreamSettings(config));
  QualityControl quality(parts.clock, *parts.tiles, sender, config.relayed);
  CaptureTurn turn({.clock = parts.clock,
                    .displays = parts.displays,
                    .backends = parts.captureBackends([this] { requests.NoteScreenTouched(); }),
                    .sender = sender,
                    .requests = requests,
                    .quality = quality});
  OrGiveUp([&] { RunTurns(turn); });
  turn.End();
}

void AgentSession::State::RunTurns(CaptureTurn& turn) {
  if (!turn.Begin()) return;
  while (!requests.signal.IsSet() && parts.tiles->IsOpen()) requests.signal.WaitFor(turn.Run());
}

AgentSession::AgentSession(const SessionConfig& config, SessionParts parts)
    : state_(std::make_unique<State>(config, std::move(parts))) {}

AgentSession::~AgentSession() {
  Stop();
}

void AgentSession::Start() {
  state_->captureThread = std::thread([state = state_.get()] { state->CaptureLoop(); });
}

void AgentSession::Stop() {
  state_->requests.signal.Set();
  if (state_->captureThread.joinable()) state_->captureThread.join();
}

void AgentSession::HandleControlMessage(std::span<const uint8_t> payload) {
  state_->control.HandleControlMessage(payload);
}

void AgentSession::SendMonitorList() {
  state_->control.SendMonitorList();
}

}  // namespace cvn::agent
