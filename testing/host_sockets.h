#pragma once

#include <memory>

#include "net/socket_system.h"

namespace cvn::agent {

/// This host's real sockets, for net's portable tests; defined beside the host's adapter.
std::unique_ptr<SocketSystem> CreateHostSockets();

}  // namespace cvn::agent
