#include "agent/linux/state_directory.h"

namespace cvn::agent {

std::string StateDirectory(std::string_view xdgStateHome, std::string_view home) {
  if (xdgStateHome.starts_with('/')) return std::string(xdgStateHome) + "/corvinet";
  return std::string(home) + "/.local/state/corvinet";
}

}  // namespace cvn::agent
