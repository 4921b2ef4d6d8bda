#pragma once

#include "agent/agent_context.h"
#include "agent/arguments.h"

namespace cvn::agent {

/// Waits for exactly one supporter, runs one session until either side ends it, and returns the process's
/// exit code: 0 after a session, and when `context.stop` ended the wait for one; 1 when it could not start.
/// Serving the next supporter is the next run's business.
int RunServe(const Arguments& arguments, const AgentContext& context);

}  // namespace cvn::agent
