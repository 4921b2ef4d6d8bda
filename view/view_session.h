#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/mutex.h"
#include "base/stop_signal.h"
#include "net/transport_connection.h"
#include "view/view_conversation.h"
#include "view/view_end.h"

namespace cvn::view {

/// How a session went.
struct ViewOutcome {
  ViewEnd end = ViewEnd::kGoesOn;
  /// A full picture of what was wished for is on the canvas.
  bool pictureReady = false;
  /// Why the session failed, or why there is no ready picture; empty when all is well.
  std::string error;
};

/// One session with an agent: draws on the connection's reader thread, and watches on the caller's thread
/// for the end.
class ViewSession {
 public:
  /// `receiver` and `clock` are borrowed. The receiver is the session's own while it runs.
  ViewSession(TileReceiver& receiver, const agent::Clock& clock, const ViewWishes& wishes);

  /// Returns when the session has come to an end, with the connection closed. A set `stop` interrupts it at
  /// once. Called once, with a connection that has not been started.
  ViewOutcome Run(agent::TransportConnection& connection, const ViewLimits& limits, agent::StopSignal& stop);

 private:
  void TakeFrame(ViewConversation& conversation, agent::Channel channel, std::span<const uint8_t> bytes)
      EXCLUDES(mutex_);
  ViewSituation Situation(const agent::TransportConnection& connection, const agent::StopSignal& stop) const
      EXCLUDES(mutex_);
  ViewOutcome Outcome(ViewEnd end, const ViewConversation& conversation) const EXCLUDES(mutex_);

  TileReceiver& receiver_;
  const agent::Clock& clock_;
  const ViewWishes wishes_;

  mutable agent::Mutex mutex_;
  /// What the reader thread last told about the session; the connection's part is filled in when asked.
  ViewSituation situation_ GUARDED_BY(mutex_);
  std::string error_ GUARDED_BY(mutex_);
};

}  // namespace cvn::view
