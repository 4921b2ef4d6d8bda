#include "base/log.h"

#include <atomic>
#include <chrono>
#include <string>
#include <utility>

#include "base/local_time.h"

namespace cvn::agent {
namespace {

std::atomic<bool> tlsTraceEnabled = false;

std::string TimeStamp(std::chrono::system_clock::time_point now) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now - seconds).count();
  const std::tm local = LocalTime(std::chrono::system_clock::to_time_t(seconds));
  char text[96];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", local.tm_year + 1900,
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                static_cast<int>(ms));
  return text;
}

// Measures first, then formats into exactly that much.
CVN_PRINTF(1, 0) std::string FormatText(const char* format, std::va_list arguments) {
  std::va_list measured;
  va_copy(measured, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  if (length < 0) return format;
  std::string text(static_cast<size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

}  // namespace

void AgentLog::Info(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  WriteFormatted("INF", format, arguments);
  va_end(arguments);
}

void AgentLog::Warn(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  WriteFormatted("WRN", format, arguments);
  va_end(arguments);
}

CVN_PRINTF(3, 0)
void AgentLog::WriteFormatted(const char* level, const char* format, std::va_list arguments) {
  try {
    Write(level, FormatText(format, arguments));
  } catch (...) {
    // Out of memory: the line is lost, what it reports on goes on.
  }
}

void AgentLog::Write(std::string_view level, std::string_view message) {
  try {
    std::string line = TimeStamp(std::chrono::system_clock::now());
    line.append(" ").append(level).append(" ").append(message);
    MutexLock lock(mutex_);
    WriteLine(line);
    if (observer_) observer_(level, message);
  } catch (...) {
    // As above.
  }
}

void AgentLog::WriteLine(std::string_view line) {
  // A console that is closed or full makes these fail, which is all that shall happen.
  std::fprintf(console_, "%.*s\n", static_cast<int>(line.size()), line.data());
  std::fflush(console_);
  file_.Append(line);
}

void AgentLog::OpenFile(const std::filesystem::path& path) {
  MutexLock lock(mutex_);
  file_.Open(path);
}

void AgentLog::CloseFile() {
  MutexLock lock(mutex_);
  file_.Close();
}

void AgentLog::Observe(LogObserver observer) {
  MutexLock lock(mutex_);
  observer_ = std::move(observer);
}

AgentLog& Log() {
  // Never destroyed: a thread may log while the process is already leaving main.
  static AgentLog& log = *new AgentLog;
  return log;
}

void TlsTrace(const char* role, const char* format, ...) {
  if (!tlsTraceEnabled) return;
  char text[512];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  Log().Info("[tls:%s] %s", role, text);
}

void EnableTlsTrace(bool enabled) {
  tlsTraceEnabled = enabled;
}

}  // namespace cvn::agent
