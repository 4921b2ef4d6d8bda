#include "session/agent_session.h"

#include <exception>
#include <thread>
#include <utility>

#include "base/log.h"
#include "session/capture_turn.h"
#include "session/control_dispatch.h"
#include "session/session_requests.h"
#include "session/stream_rate.h"
#include "session/tile_stream_sender.h"

namespace cvn::agent {
namespace {

TileStreamSettings StreamSettings(const SessionConfig& config) {
  TileStreamSettings settings;
  settings.encoder.strips = config.strips;
  settings.capBacklog = config.relayed;
  return settings;
}

StreamRate RateFor(const SessionConfig& config) {
  return config.relayed ? Capped(kStartingRate, kRelayedCap) : kStartingRate;
}

}  // namespace

/// The requests come first and go last: a capturer's watcher may raise them to the end.
struct AgentSession::State {
  State(const SessionConfig& config, SessionParts sessionParts)
      : parts(std::move(sessionParts)),
        requests(config.monitor),
        sender(parts.clock, *parts.tiles, nullptr, StreamSettings(config)),
        turn({.clock = parts.clock,
              .displays = parts.displays,
              .backends = parts.captureBackends([this] { requests.NoteScreenTouched(); }),
              .sender = sender,
              .requests = requests,
              .rate = RateFor(config)}),
        control(config.viewOnly, {.displays = parts.displays,
                                  .control = *parts.control,
                                  .tiles = *parts.tiles,
                                  .requests = requests}) {}

  void CaptureLoop();
  void RunTurns();

  const SessionParts parts;
  SessionRequests requests;
  TileStreamSender sender;
  CaptureTurn turn;
  ControlDispatch control;
  std::thread captureThread;
};

void AgentSession::State::CaptureLoop() {
  try {
    RunTurns();
  } catch (const std::exception& error) {
    Log().Warn("[session] capture failed for good: %s", error.what());
  } catch (...) {
    Log().Warn("[session] capture failed for good");
  }
  turn.End();
}

void AgentSession::State::RunTurns() {
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
