#pragma once

#include <memory>
#include <string>

#include "net/socket_system.h"

namespace cvn::agent {

/// Windows sockets. Starts the socket library, and ends it when destroyed; null with `error` set when it does
/// not start.
std::unique_ptr<SocketSystem> CreateWinsockSocketSystem(std::string& error);

}  // namespace cvn::agent
