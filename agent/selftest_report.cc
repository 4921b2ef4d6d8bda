#include "agent/selftest_report.h"

#include <cstdarg>
#include <cstdio>

namespace cvn::agent {
namespace {

constexpr size_t kTextBytes = 512;

}  // namespace

void SelftestReport::Line(const char* label, const char* format, ...) {
  char text[kTextBytes];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  Write(label, text);
}

void SelftestReport::Wrong(const char* label, const char* format, ...) {
  char text[kTextBytes];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  failed_ = true;
  Write(label, text);
}

bool SelftestReport::Finish() {
  out_ << (failed_ ? "SELFTEST FAILED\n" : "SELFTEST OK\n") << std::flush;
  return !failed_;
}

void SelftestReport::Write(const char* label, const char* text) {
  char column[32];
  std::snprintf(column, sizeof column, "%-12s: ", label);
  out_ << column << text << "\n" << std::flush;
}

}  // namespace cvn::agent
