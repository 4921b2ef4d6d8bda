#pragma once

#include <cstdint>
#include <span>

#include "capture/display_system.h"
#include "control/control_message.h"
#include "net/tile_transport.h"
#include "session/session_requests.h"

namespace cvn::agent {

/// Everything is borrowed.
struct ControlDispatchParts {
  DisplaySystem& displays;
  TileTransport& control;
  TileTransport& tiles;
  SessionRequests& requests;
};

/// Acts on the viewer's control messages, or passes their wishes on to the capture thread. Any thread.
class ControlDispatch {
 public:
  /// `viewOnly`: only what concerns the picture is acted on.
  ControlDispatch(bool viewOnly, const ControlDispatchParts& parts) : viewOnly_(viewOnly), parts_(parts) {}

  /// One payload of the control channel.
  void HandleControlMessage(std::span<const uint8_t> payload);
  void SendMonitorList();

 private:
  void Dispatch(const ControlMessage& message);
  void SelectMonitor(int32_t index);
  void RequestRepaint();
  int32_t MonitorCount() const;

  const bool viewOnly_;
  const ControlDispatchParts parts_;
};

}  // namespace cvn::agent
