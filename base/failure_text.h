#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace cvn::agent {

/// "<what> failed (0x<CODE>)" with the status (an HRESULT, NTSTATUS or SECURITY_STATUS) as eight upper-case
/// hexadecimal digits.
std::string FailureText(std::string_view what, uint32_t code);

}  // namespace cvn::agent
