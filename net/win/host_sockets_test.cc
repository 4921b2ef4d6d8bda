#include <gtest/gtest.h>

#include "net/win/winsock_socket.h"
#include "testing/host_sockets.h"

namespace cvn::agent {

std::unique_ptr<SocketSystem> CreateHostSockets() {
  std::string error;
  auto sockets = CreateWinsockSocketSystem(error);
  EXPECT_TRUE(sockets) << error;
  return sockets;
}

}  // namespace cvn::agent
