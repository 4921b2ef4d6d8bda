#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "base/clock.h"
#include "capture/display_system.h"
#include "capture/screen_capturer.h"
#include "net/tile_transport.h"
#include "tiles/tile_image_codec.h"

namespace cvn::agent {

/// What the person who started the agent decided about the session.
struct SessionConfig {
  bool viewOnly = false;
  /// Monitor number, -1 for all displays.
  int32_t monitor = -1;
  /// The line is a relay that must not be filled: at most 1800 kbps and 30 fps.
  bool relayed = false;
  /// >= 1: full-width strips instead of square tiles.
  int32_t strips = 0;
};

/// What a session works with; everything borrowed outlives it.
struct SessionParts {
  const Clock& clock;
  DisplaySystem& displays;
  /// Makes the host's ways of capturing. `screenTouched` may be called from any thread when the screen has
  /// changed, so that a resting session answers at once.
  std::function<CaptureBackends(std::function<void()> screenTouched)> captureBackends;
  /// Makes the codec for photographic tiles, null when there is none. Called on the capture thread, which
  /// also uses and destroys the codec.
  std::function<std::unique_ptr<TileImageCodec>()> createCodec;
  std::shared_ptr<TileTransport> tiles;    // channel 1
  std::shared_ptr<TileTransport> control;  // channel 0
};

/// One supporter's session: the capture thread that streams the screen, and the answers to control messages.
class AgentSession {
 public:
  AgentSession(const SessionConfig& config, SessionParts parts);
  /// Stops.
  ~AgentSession();
  AgentSession(const AgentSession&) = delete;
  AgentSession& operator=(const AgentSession&) = delete;

  /// Starts the capture thread. Once.
  void Start();
  /// Ends the capture thread and waits for it. Idempotent.
  void Stop();

  /// One payload of channel 0. Called on the transport's reader thread, also before `Start`.
  void HandleControlMessage(std::span<const uint8_t> payload);
  /// Tells the viewer how many monitors there are and which one it sees.
  void SendMonitorList();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace cvn::agent
