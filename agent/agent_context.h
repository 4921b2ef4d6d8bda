#pragma once

#include <ostream>

#include "agent/host_platform.h"
#include "base/clock.h"
#include "base/stop_signal.h"

namespace cvn::agent {

/// What every command works with; all borrowed.
struct AgentContext {
  HostPlatform& platform;
  const Clock& clock;
  /// Set from outside when the process shall end.
  StopSignal& stop;
  /// Standard output: what a command was asked for.
  std::ostream& out;
  /// Standard error: what the person who typed the command has to read.
  std::ostream& errors;
};

}  // namespace cvn::agent
