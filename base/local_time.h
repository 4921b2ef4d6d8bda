#pragma once

#include <ctime>

namespace cvn::agent {

/// `seconds` since the epoch as the machine's local calendar time; all zero when the system cannot convert
/// it. Any thread.
std::tm LocalTime(std::time_t seconds);

}  // namespace cvn::agent
