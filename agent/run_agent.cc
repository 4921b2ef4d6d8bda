#include "agent/run_agent.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <string_view>

#include "agent/arguments.h"
#include "agent/selftest.h"
#include "agent/serve.h"
#include "base/log.h"
#include "base/utf.h"

namespace cvn::agent {
namespace {

constexpr int kStartUpFailure = 1;
constexpr int kUsageError = 2;

int SayUnavailable(const Arguments& arguments, const AgentContext& context) {
  context.errors << "this build of cvn-agent has no " << arguments.command << " command yet\n";
  return kStartUpFailure;
}

struct Command {
  std::string_view name;
  int (*run)(const Arguments& arguments, const AgentContext& context);
};

constexpr Command kCommands[] = {
    {"serve", RunServe},
    {"device-id", SayUnavailable},
    {"selftest", RunSelftest},
    {"tls-selftest", SayUnavailable},
};

const Command* FindCommand(std::string_view name) {
  const auto* found = std::find_if(std::begin(kCommands), std::end(kCommands),
                                   [name](const Command& command) { return command.name == name; });
  return found == std::end(kCommands) ? nullptr : found;
}

int SayUsage(const AgentContext& context) {
  context.errors << kUsageText << std::flush;
  return kUsageError;
}

int RunCommand(const Command& command, const Arguments& arguments, const AgentContext& context) {
  try {
    return command.run(arguments, context);
  } catch (const std::exception& failure) {
    Log().Warn("[agent] %s could not go on: %s", arguments.command.c_str(), failure.what());
    return kStartUpFailure;
  }
}

}  // namespace

int RunAgent(std::span<const std::string> arguments, const AgentContext& context) {
  Arguments parsed;
  parsed.dataDir = context.platform.DefaultDataDirectory();
  if (!ParseArguments(arguments, context.errors, parsed)) return SayUsage(context);
  // Before the command is looked at, so that each of them logs to the file too.
  if (!parsed.logPath.empty()) Log().OpenFile(PathFromUtf8(parsed.logPath));
  const Command* command = FindCommand(parsed.command);
  return command != nullptr ? RunCommand(*command, parsed, context) : SayUsage(context);
}

}  // namespace cvn::agent
