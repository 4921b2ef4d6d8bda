#pragma once

#include <memory>

#include "net/socket_system.h"

namespace cvn::agent {

/// POSIX sockets. Needs no start-up.
std::unique_ptr<SocketSystem> CreatePosixSocketSystem();

}  // namespace cvn::agent
