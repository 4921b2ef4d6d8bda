#pragma once

#include <ostream>

#include "agent/agent_context.h"
#include "agent/arguments.h"
#include "agent/selftest_parts.h"

namespace cvn::agent {

/// Captures the screen, drives tile encoder and codec with it, and reports on `out` what a person wants to
/// know of this machine, ending in "SELFTEST OK" or "SELFTEST FAILED". True for the former; never throws for
/// what the parts throw.
bool TestCaptureAndCodecs(const SelftestParts& parts, std::ostream& out);

/// The command: the same with the host's own parts, on `context.out`. Returns the exit code, 0 or 1.
int RunSelftest(const Arguments& arguments, const AgentContext& context);

}  // namespace cvn::agent
