#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "net/secure_channel.h"
#include "net/socket_stream.h"

namespace cvn::agent {

/// Passes bytes through unchanged: loopback testing only.
class PlaintextChannel final : public SecureChannel {
 public:
  /// Borrows the socket.
  explicit PlaintextChannel(StreamSocket& socket) : stream_(socket) {}

  bool Send(std::span<const uint8_t> bytes) override { return stream_.SendAll(bytes); }
  bool ReceiveExactly(std::span<uint8_t> wanted) override;
  void Close() override {}
  void Abort() override { stream_.Abort(); }
  std::string Describe() const override { return "plaintext"; }

 private:
  size_t TakeReceived(std::span<uint8_t> wanted);

  SocketStream stream_;
  // Read ahead, so that headers and small frames do not cost a system call each.
  std::array<uint8_t, 65536> buffer_;
  std::span<const uint8_t> received_;  // what of `buffer_` has not been handed out yet
};

}  // namespace cvn::agent
