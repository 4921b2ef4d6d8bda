#pragma once

#include <span>
#include <string>

#include "agent/agent_context.h"

namespace cvn::agent {

/// The whole program: parses the arguments after its name (UTF-8), opens the log file, runs the command.
/// Returns the exit code: 0 success, 1 start-up failure, 2 usage error with the usage text on the error
/// stream.
int RunAgent(std::span<const std::string> arguments, const AgentContext& context);

}  // namespace cvn::agent
