#include "view/view_arguments.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "view/text.h"

namespace cvn::view {
namespace {

constexpr double kMaxSeconds = 1e6;
constexpr const char* kPresets[] = {"High", "Balanced", "DataSaver"};

/// Reads an option's value into the record; false when the value is of the wrong kind.
using SetValue = bool (*)(ViewArguments& arguments, const std::string& value);

struct ValueOption {
  const char* name;
  const char* wants;
  SetValue set;
};

struct FlagOption {
  const char* name;
  bool ViewArguments::*flag;
};

template <typename Number>
bool ReadNumber(const std::string& text, Number least, Number most, Number& number) {
  const char* const end = text.data() + text.size();
  const auto [stop, fault] = std::from_chars(text.data(), end, number);
  return fault == std::errc{} && stop == end && number >= least && number <= most;
}

/// For the letters of ASCII, whatever the locale.
bool EqualIgnoringCase(std::string_view left, std::string_view right) {
  const auto lower = [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  };
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [&lower](char a, char b) { return lower(a) == lower(b); });
}

bool ReadSeconds(const std::string& text, int64_t& nanoseconds) {
  double seconds = 0;
  if (!ReadNumber(text, 0.0, kMaxSeconds, seconds)) return false;
  nanoseconds = std::llround(seconds * 1e9);
  return true;
}

bool SetPort(ViewArguments& arguments, const std::string& value) {
  return ReadNumber<uint16_t>(value, 1, 65535, arguments.port);
}

bool SetDuration(ViewArguments& arguments, const std::string& value) {
  int64_t duration = 0;
  if (!ReadSeconds(value, duration) || duration == 0) return false;
  arguments.durationNs = duration;
  return true;
}

bool SetWait(ViewArguments& arguments, const std::string& value) {
  return ReadSeconds(value, arguments.waitNs);
}

bool SetMonitor(ViewArguments& arguments, const std::string& value) {
  int32_t monitor = 0;
  if (!ReadNumber<int32_t>(value, -1, 65535, monitor)) return false;
  arguments.monitor = monitor;
  return true;
}

bool SetSnapshot(ViewArguments& arguments, const std::string& value) {
  arguments.snapshotPath = value;
  return !value.empty();
}

bool SetCanvas(ViewArguments& arguments, const std::string& value) {
  arguments.canvasPath = value;
  return !value.empty();
}

bool SetPreset(ViewArguments& arguments, const std::string& value) {
  // The agent would take a name that it does not know for "High" without a word.
  const auto known = std::find_if(std::begin(kPresets), std::end(kPresets),
                                  [&value](const char* preset) { return EqualIgnoringCase(value, preset); });
  if (known == std::end(kPresets)) return false;
  arguments.preset = *known;
  return true;
}

constexpr ValueOption kValueOptions[] = {
    {"--port", "a number from 1 to 65535", SetPort},
    {"--seconds", "a number of seconds above 0", SetDuration},
    {"--wait", "a number of seconds", SetWait},
    {"--monitor", "a monitor number, or -1 for all displays", SetMonitor},
    {"--snapshot", "a file name", SetSnapshot},
    {"--canvas", "a file name", SetCanvas},
    {"--preset", "High, Balanced or DataSaver", SetPreset},
};

constexpr FlagOption kFlagOptions[] = {
    {"--insecure-plaintext", &ViewArguments::insecurePlaintext},
    {"--until-idle", &ViewArguments::untilIdle},
    {"--until-exact", &ViewArguments::untilExact},
    {"--show-cursor", &ViewArguments::showCursor},
    {"--repaint", &ViewArguments::repaint},
    {"--gray", &ViewArguments::gray},
    {"--help", &ViewArguments::help},
    {"--version", &ViewArguments::version},
};

template <typename Option, size_t count>
const Option* Find(const Option (&options)[count], const std::string& name) {
  const auto found = std::find_if(std::begin(options), std::end(options),
                                  [&name](const Option& option) { return name == option.name; });
  return found == std::end(options) ? nullptr : found;
}

bool TakeValue(const ValueOption& option, const std::string* value, ViewArguments& arguments,
               std::string& error) {
  if (value == nullptr) return Refuse(error, FormatText("%s needs %s", option.name, option.wants));
  if (option.set(arguments, *value)) return true;
  return Refuse(error, FormatText("%s needs %s, not \"%s\"", option.name, option.wants, value->c_str()));
}

bool TakeHost(const std::string& word, ViewArguments& arguments, std::string& error) {
  if (word.empty()) return Refuse(error, "the host is empty");
  if (word.front() == '-') return Refuse(error, FormatText("unknown option: %s", word.c_str()));
  if (!arguments.host.empty())
    return Refuse(error, FormatText("more than one host: %s and %s", arguments.host.c_str(), word.c_str()));
  arguments.host = word;
  return true;
}

bool CheckComplete(const ViewArguments& arguments, std::string& error) {
  if (arguments.help || arguments.version) return true;
  if (arguments.host.empty()) return Refuse(error, "no host to connect to");
  if (arguments.snapshotPath.empty() && arguments.canvasPath.empty())
    return Refuse(error, "nowhere to show the picture: give --snapshot FILE.png or --canvas FILE");
  if (arguments.snapshotPath == arguments.canvasPath)
    return Refuse(error, "--snapshot and --canvas need different files");
  return true;
}

}  // namespace

bool ParseViewArguments(std::span<const std::string> words, ViewArguments& arguments, std::string& error) {
  for (size_t at = 0; at < words.size(); ++at) {
    if (const FlagOption* flag = Find(kFlagOptions, words[at])) {
      arguments.*flag->flag = true;
    } else if (const ValueOption* option = Find(kValueOptions, words[at])) {
      const std::string* const value = at + 1 < words.size() ? &words[at + 1] : nullptr;
      if (!TakeValue(*option, value, arguments, error)) return false;
      ++at;
    } else if (!TakeHost(words[at], arguments, error)) {
      return false;
    }
  }
  return CheckComplete(arguments, error);
}

const char* ViewUsage() {
  return R"(Corvinet viewer: shows the screen of a machine on which cvn-agent serves.

  cvn-view HOST [--port N] --insecure-plaintext
           [--seconds S] [--until-idle | --until-exact]
           [--snapshot FILE.png] [--canvas FILE] [--monitor N] [--show-cursor]
           [--preset NAME] [--gray] [--repaint] [--wait S]

  --port N              the agent's port (default 7443)
  --insecure-plaintext  no TLS and no token; loopback testing only, and for now the only way
  --seconds S           end S seconds after connecting
  --until-idle          end when the picture is full and has not changed for half a second
  --until-exact         as --until-idle, but not before every pixel is exact
                        (with --seconds whichever comes first; with none of them the session
                        lasts until the agent or Ctrl+C ends it)
  --snapshot FILE.png   write the picture there at the end
  --canvas FILE         show the picture live in a file that other programs map into memory
  --monitor N           ask for monitor N, counted from 0; -1 for all displays
  --show-cursor         ask for the mouse cursor in the picture
  --preset NAME         ask for High, Balanced or DataSaver: sharpness against bytes
                        (the agent's own choice is High)
  --gray                ask for a picture without colours, which takes fewer bytes
  --repaint             ask for the whole picture once more when it is full
  --wait S              keep trying to connect for S seconds

One of --snapshot and --canvas must be given. The exit code is 0 only when a full picture has
arrived (with --until-exact: an exact one), 1 when something failed, 2 when the command line
makes no sense.
)";
}

}  // namespace cvn::view
