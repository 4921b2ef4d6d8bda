#pragma once

#include <cstdint>
#include <ostream>
#include <span>
#include <string>

namespace cvn::agent {

/// The parsed command line. Every option is taken with every command, which ignores those that do not concern
/// it.
struct Arguments {
  std::string command = "serve";
  uint16_t port = 7443;
  int32_t monitor = -1;            // none chosen: all displays
  bool viewOnly = false;           //
  bool relayed = false;            //
  int32_t strips = 0;              // none: square tiles
  std::string logPath;             // UTF-8; empty: no log file
  std::wstring dataDir;            // holds the device identity; the caller presets the host's default
  bool listenLan = false;          //
  std::string token;               // empty: serve makes one
  bool insecurePlaintext = false;  //
};

/// Fills `parsed` from the arguments after the program's name, UTF-8. False when one is wrong: an unknown
/// option is named on `errors`, a missing or bad value is not; options that stand before it are stored all
/// the same.
bool ParseArguments(std::span<const std::string> arguments, std::ostream& errors, Arguments& parsed);

/// Deliberate: lists neither the options of a local test nor the tunnel's self-test.
extern const char kUsageText[];

}  // namespace cvn::agent
