#pragma once

#include <memory>
#include <string>

#include "capture/display_system.h"

namespace cvn::agent {

/// The displays of an X server: its RandR monitors inside the root window. There is one desktop for input, so
/// attaching always succeeds. It holds its own connection; once the server is gone the lists are empty.
///
/// `displayName` empty means $DISPLAY. Null with `error` set when there is no server to talk to.
std::unique_ptr<DisplaySystem> CreateX11DisplaySystem(std::string& error,
                                                      const std::string& displayName = {});

}  // namespace cvn::agent
