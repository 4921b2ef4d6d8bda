#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "testing/temporary_directory.h"

namespace cvn::end_to_end {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Asks again every few milliseconds until `condition` holds; false when it does not within `patience`.
bool WaitUntil(milliseconds patience, const std::function<bool()>& condition);

/// A program that runs beside the test, its output in a temporary file. Killed when destroyed, and when the
/// test dies.
class ChildProcess {
 public:
  /// `command` holds the program's path and its arguments.
  explicit ChildProcess(const std::vector<std::string>& command);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// What it has written so far to its standard output and standard error stream.
  std::string Output() const;
  std::string Errors() const;

  bool Running();
  /// The exit code, 128 + n after signal n; nothing when it still runs after `patience`.
  std::optional<int> WaitForExit(milliseconds patience);
  void Signal(int number);

  int64_t ResidentBytes() const;
  /// User and system time of all its threads so far.
  milliseconds CpuTime() const;

 private:
  agent::TemporaryDirectory directory_;
  pid_t pid_ = -1;
  std::optional<int> exitCode_;
};

}  // namespace cvn::end_to_end
