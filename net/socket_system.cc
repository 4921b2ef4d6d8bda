#include "net/socket_system.h"

namespace cvn::agent {

std::string SocketFailureText(std::string_view operation, int code) {
  return std::string(operation) + " failed (WSA " + std::to_string(code) + ")";
}

std::string SocketPeerText(std::string_view numericAddress, uint16_t port) {
  return std::string(numericAddress) + ":" + std::to_string(port);
}

}  // namespace cvn::agent
