#pragma once

#include <string>
#include <string_view>

namespace cvn::agent {

/// Where the agent keeps its state, by the XDG Base Directory rules: `xdgStateHome` counts only when it is an
/// absolute path.
std::string StateDirectory(std::string_view xdgStateHome, std::string_view home);

}  // namespace cvn::agent
