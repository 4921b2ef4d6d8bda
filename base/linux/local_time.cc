#include "base/local_time.h"

namespace cvn::agent {

std::tm LocalTime(std::time_t seconds) {
  std::tm local{};
  if (localtime_r(&seconds, &local) == nullptr) return {};
  return local;
}

}  // namespace cvn::agent
