#pragma once

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string_view>

#include "base/compiler.h"
#include "base/log_file.h"
#include "base/mutex.h"

namespace cvn::agent {

/// Sees every line's level and message. Called with the log's lock held, so it must not log.
using LogObserver = std::function<void(std::string_view level, std::string_view message)>;

/// The log of the whole process: one line a message, on standard output and, once a file is open, in that
/// file too.
///
/// A line is "YYYY-MM-DD hh:mm:ss.mmm LVL text\n" in local time, LVL being "INF" or "WRN". The file is kept
/// below 8 MiB by moving it to the same name with ".1" appended. Any thread may log; whole lines never
/// interleave. Nothing is ever reported to the caller: logging must not be able to fail what it reports on.
class AgentLog {
 public:
  /// `console` is borrowed.
  explicit AgentLog(std::FILE* console = stdout) : console_(console) {}

  void Info(const char* format, ...) CVN_PRINTF(2, 3);
  void Warn(const char* format, ...) CVN_PRINTF(2, 3);
  void Write(std::string_view level, std::string_view message) EXCLUDES(mutex_);

  /// Attaches the file sink, creating the parent directories. A file that cannot be opened leaves the console
  /// only.
  void OpenFile(const std::filesystem::path& path) EXCLUDES(mutex_);

  /// Detaches the file sink: how a test starts fresh.
  void CloseFile() EXCLUDES(mutex_);

  /// Lets `observer` see the lines from now on, in place of any other; an empty one ends it. No call is under
  /// way once this returns.
  void Observe(LogObserver observer) EXCLUDES(mutex_);

 private:
  void WriteFormatted(const char* level, const char* format, std::va_list arguments) EXCLUDES(mutex_);
  void WriteLine(std::string_view line) REQUIRES(mutex_);

  std::FILE* const console_;
  Mutex mutex_;
  LogFile file_ GUARDED_BY(mutex_);
  LogObserver observer_ GUARDED_BY(mutex_);
};

/// The process-wide log, created on first use.
AgentLog& Log();

/// Traces the TLS handshake as "[tls:<role>] <text>", cut to 511 characters. Does and formats nothing unless
/// `EnableTlsTrace` was called, which only the self-test of the tunnel does.
void TlsTrace(const char* role, const char* format, ...) CVN_PRINTF(2, 3);
void EnableTlsTrace(bool enabled);

}  // namespace cvn::agent
