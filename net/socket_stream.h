#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "net/stream_socket.h"

namespace cvn::agent {

/// A socket's bytes under the rule that every channel needs: a wait slice that ends without bytes is waited
/// again, unless the stream is being closed. One thread may send while another receives; `Abort` from any.
///
/// The closing flag is the stream's own: the connection's open flag is set only after admission, and bytes
/// flow before that.
class SocketStream {
 public:
  /// Borrows the socket.
  explicit SocketStream(StreamSocket& socket) : socket_(socket) {}

  bool SendAll(std::span<const uint8_t> bytes);
  /// At least one byte, or 0 when there will be no more.
  size_t ReceiveSome(std::span<uint8_t> buffer);
  void Abort();
  bool IsClosing() const { return closing_; }

 private:
  StreamSocket& socket_;
  std::atomic<bool> closing_ = false;
};

}  // namespace cvn::agent
