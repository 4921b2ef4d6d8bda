#include "base/local_time.h"

namespace cvn::agent {

std::tm LocalTime(std::time_t seconds) {
  std::tm local{};
  if (localtime_s(&local, &seconds) != 0) return {};
  return local;
}

}  // namespace cvn::agent
