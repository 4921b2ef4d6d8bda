#include "tests/end_to_end/local_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace cvn::end_to_end {
namespace {

sockaddr_in Loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

int Bound(uint16_t port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  const sockaddr_in address = Loopback(port);
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot bind a port");
  }
  return descriptor;
}

}  // namespace

uint16_t FreePort() {
  const int descriptor = Bound(0);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
  close(descriptor);
  return ntohs(address.sin_port);
}

bool SomebodyListens(uint16_t port) {
  char wanted[40];
  std::snprintf(wanted, sizeof wanted, ":%04X 00000000:0000 0A", port);  // 0A: the state LISTEN
  std::ifstream table("/proc/net/tcp");
  for (std::string line; std::getline(table, line);) {
    if (line.find(wanted) != std::string::npos) return true;
  }
  return false;
}

LocalSocket LocalSocket::Listening(uint16_t port) {
  const int descriptor = Bound(port);
  listen(descriptor, 1);
  return LocalSocket(descriptor);
}

std::optional<LocalSocket> LocalSocket::Connected(uint16_t port, int receiveBufferBytes) {
  LocalSocket made(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (receiveBufferBytes > 0) {
    setsockopt(made.descriptor_, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
  }
  const sockaddr_in address = Loopback(port);
  if (connect(made.descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return std::nullopt;
  return made;
}

LocalSocket::~LocalSocket() {
  if (descriptor_ >= 0) close(descriptor_);
}

LocalSocket::LocalSocket(LocalSocket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

LocalSocket& LocalSocket::operator=(LocalSocket&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

bool LocalSocket::Accept(std::chrono::milliseconds patience) {
  if (!Readable(patience)) return false;
  const int connection = accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC);
  if (connection < 0) return false;
  close(descriptor_);
  descriptor_ = connection;
  return true;
}

bool LocalSocket::Readable(std::chrono::milliseconds patience) const {
  pollfd wanted{descriptor_, POLLIN, 0};
  return poll(&wanted, 1, static_cast<int>(patience.count())) > 0;
}

size_t LocalSocket::Receive(std::span<uint8_t> buffer) const {
  const ssize_t count = recv(descriptor_, buffer.data(), buffer.size(), 0);
  return count > 0 ? static_cast<size_t>(count) : 0;
}

bool LocalSocket::SendAll(std::span<const uint8_t> bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes = bytes.subspan(static_cast<size_t>(count));
  }
  return true;
}

}  // namespace cvn::end_to_end
