#pragma once

#include <ostream>

#include "base/compiler.h"

namespace cvn::agent {

/// What the self-test tells a person: lines of "label       : text", one column of labels, and the verdict
/// last. Every line is out before the next is made, so that whoever waits sees what takes its time.
class SelftestReport {
 public:
  /// `out` is borrowed.
  explicit SelftestReport(std::ostream& out) : out_(out) {}

  /// A finding. An empty label continues the line above. Text is cut to 511 bytes.
  void Line(const char* label, const char* format, ...) CVN_PRINTF(3, 4);
  /// The same for what a healthy machine does not show: the verdict becomes a failure.
  void Wrong(const char* label, const char* format, ...) CVN_PRINTF(3, 4);

  /// Writes the verdict. Returns whether everything was as it should be.
  bool Finish();

 private:
  void Write(const char* label, const char* text);

  std::ostream& out_;
  bool failed_ = false;
};

}  // namespace cvn::agent
