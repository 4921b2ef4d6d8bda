#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/stop_signal.h"

namespace cvn::agent {

/// What the host does for the process as a whole while this lives; destroying it gives the console back as it
/// was found.
class HostProcess {
 public:
  virtual ~HostProcess() = default;
  /// The command line after the program's name, in UTF-8 whatever main was given.
  virtual std::vector<std::string> Utf8Arguments(int argc, const char* const* argv) const = 0;
};

/// Call it first in main, before any other thread exists: narrows where libraries are loaded from, makes
/// standard output and error safe to write to (byte for byte, even when nobody listens) and sets `stop` when
/// the person or the system wants the process to end. `stop` is borrowed.
std::unique_ptr<HostProcess> PrepareHostProcess(StopSignal& stop);

}  // namespace cvn::agent
