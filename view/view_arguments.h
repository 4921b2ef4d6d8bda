#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace cvn::view {

/// The parsed command line.
struct ViewArguments {
  std::string host;
  uint16_t port = 7443;
  bool insecurePlaintext = false;
  /// Ends the session that long after connecting; absent means no such limit.
  std::optional<int64_t> durationNs;
  bool untilIdle = false;
  bool untilExact = false;
  /// UTF-8; empty when not asked for.
  std::string snapshotPath;
  std::string canvasPath;
  /// -1 for all displays; absent leaves the agent's choice.
  std::optional<int32_t> monitor;
  bool showCursor = false;
  bool repaint = false;
  /// Absent leaves the agent's choice.
  std::optional<std::string> preset;
  bool gray = false;
  /// Keeps trying to connect for that long.
  int64_t waitNs = 0;
  /// Asked for instead of a session; the rest may be missing then.
  bool help = false;
  bool version = false;
};

/// `words` are the arguments without the program's name, in UTF-8. False with `error` set when they make no
/// session; `arguments` is then of no use.
bool ParseViewArguments(std::span<const std::string> words, ViewArguments& arguments, std::string& error);

/// What --help prints.
const char* ViewUsage();

}  // namespace cvn::view
