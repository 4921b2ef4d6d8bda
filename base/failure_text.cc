#include "base/failure_text.h"

#include <cinttypes>
#include <cstdio>

namespace cvn::agent {

std::string FailureText(std::string_view what, uint32_t code) {
  char digits[sizeof "0x00000000"];
  std::snprintf(digits, sizeof digits, "0x%08" PRIX32, code);
  return std::string(what) + " failed (" + digits + ")";
}

}  // namespace cvn::agent
