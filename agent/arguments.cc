#include "agent/arguments.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <optional>
#include <string_view>

#include "base/utf.h"

namespace cvn::agent {
namespace {

// The whole text as C's base-10 conversion reads it (blanks and a sign in front allowed), saturated.
std::optional<int32_t> ParseInteger(const std::string& text) {
  using Limits = std::numeric_limits<int32_t>;
  char* end = nullptr;
  const long long value = std::strtoll(text.c_str(), &end, 10);
  if (end == text.c_str() || *end != '\0') return std::nullopt;
  return static_cast<int32_t>(std::clamp<long long>(value, Limits::min(), Limits::max()));
}

bool StoreInteger(const std::string& text, int32_t& field) {
  const auto value = ParseInteger(text);
  if (value) field = *value;
  return value.has_value();
}

bool StorePort(Arguments& parsed, const std::string& text) {
  const auto value = ParseInteger(text);
  if (!value || *value < 1 || *value > 65535) return false;
  parsed.port = static_cast<uint16_t>(*value);
  return true;
}

bool StoreMonitor(Arguments& parsed, const std::string& text) {
  return StoreInteger(text, parsed.monitor);
}

bool StoreStrips(Arguments& parsed, const std::string& text) {
  return StoreInteger(text, parsed.strips);
}

bool StoreLogPath(Arguments& parsed, const std::string& text) {
  parsed.logPath = text;
  return true;
}

bool StoreDataDir(Arguments& parsed, const std::string& text) {
  parsed.dataDir = WideFromUtf8(text);
  return true;
}

bool StoreToken(Arguments& parsed, const std::string& text) {
  parsed.token = text;
  return true;
}

struct FlagOption {
  std::string_view name;
  bool Arguments::*field;
};

constexpr FlagOption kFlagOptions[] = {
    {"--view-only", &Arguments::viewOnly},
    {"--relayed", &Arguments::relayed},
    {"--listen-lan", &Arguments::listenLan},
    {"--insecure-plaintext", &Arguments::insecurePlaintext},
};

struct ValueOption {
  std::string_view name;
  bool (*store)(Arguments& parsed, const std::string& text);
};

constexpr ValueOption kValueOptions[] = {
    {"--port", StorePort},   {"--monitor", StoreMonitor},  {"--strips", StoreStrips},
    {"--log", StoreLogPath}, {"--data-dir", StoreDataDir}, {"--token", StoreToken},
};

template <typename Option, size_t count>
const Option* Find(const Option (&options)[count], std::string_view name) {
  const auto* found = std::find_if(std::begin(options), std::end(options),
                                   [name](const Option& option) { return option.name == name; });
  return found == std::end(options) ? nullptr : found;
}

// Consumes one option with its value from the front of `rest`.
bool TakeOption(std::span<const std::string>& rest, std::ostream& errors, Arguments& parsed) {
  const std::string& name = rest.front();
  rest = rest.subspan(1);
  if (const FlagOption* flag = Find(kFlagOptions, name)) {
    parsed.*(flag->field) = true;
    return true;
  }
  const ValueOption* option = Find(kValueOptions, name);
  if (option == nullptr) {
    errors << "unknown option: " << name << "\n";
    return false;
  }
  if (rest.empty()) return false;
  const std::string& value = rest.front();
  rest = rest.subspan(1);
  return option->store(parsed, value);
}

}  // namespace

const char kUsageText[] =
    "Corvinet agent (0.1)\n\n"
    "  cvn-agent serve [--port N] [--monitor N] [--view-only] [--relayed]\n"
    "                  [--strips N] [--log PATH]\n"
    "  cvn-agent device-id [--data-dir PATH]\n"
    "  cvn-agent selftest [--monitor N] [--strips N]\n";

bool ParseArguments(std::span<const std::string> arguments, std::ostream& errors, Arguments& parsed) {
  if (!arguments.empty() && !arguments.front().starts_with('-')) {
    parsed.command = arguments.front();
    arguments = arguments.subspan(1);
  }
  while (!arguments.empty())
    if (!TakeOption(arguments, errors, parsed)) return false;
  return true;
}

}  // namespace cvn::agent
