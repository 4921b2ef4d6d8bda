#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "base/compiler.h"
#include "base/mutex.h"

namespace cvn::agent {

/// The log of the whole process: one line a message, on standard output and, once a file is open, in that
/// file too.
///
/// A line is "YYYY-MM-DD hh:mm:ss.mmm LVL text\n" in local time, LVL being "INF" or "WRN". The file is kept
/// below 8 MiB by moving it to the same name with ".1" appended. Any thread may log; whole lines never
/// interleave. Nothing is ever reported to the caller: logging must not be able to fail what it reports on.
class AgentLog {
 public:
  void Info(const char* format, ...) CVN_PRINTF(2, 3);
  void Warn(const char* format, ...) CVN_PRINTF(2, 3);
  void Write(std::string_view level, std::string_view message) EXCLUDES(mutex_);

  /// Attaches the file sink, creating the parent directories. A file that cannot be opened leaves the console
  /// only.
  void OpenFile(const std::filesystem::path& path) EXCLUDES(mutex_);

  /// Detaches the file sink: how a test starts fresh.
  void CloseFile() EXCLUDES(mutex_);

 private:
  void Rotate() REQUIRES(mutex_);

  Mutex mutex_;
  std::ofstream file_ GUARDED_BY(mutex_);
  std::filesystem::path path_ GUARDED_BY(mutex_);
  uint64_t maxBytes_ GUARDED_BY(mutex_) = 0;
  uint64_t writtenBytes_ GUARDED_BY(mutex_) = 0;
};

/// The process-wide log, created on first use.
AgentLog& Log();

/// Traces the TLS handshake as "[tls:<role>] <text>", cut to 511 characters. Does and formats nothing unless
/// `EnableTlsTrace` was called, which only the self-test of the tunnel does.
void TlsTrace(const char* role, const char* format, ...) CVN_PRINTF(2, 3);
void EnableTlsTrace(bool enabled);

}  // namespace cvn::agent
