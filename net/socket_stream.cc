#include "net/socket_stream.h"

namespace cvn::agent {

bool SocketStream::SendAll(std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    if (closing_) return false;
    const SocketResult sent = socket_.Send(bytes);
    if (sent.status == SocketStatus::TimedOut) continue;
    if (sent.status != SocketStatus::Bytes) return false;
    bytes = bytes.subspan(sent.bytes);
  }
  return true;
}

size_t SocketStream::ReceiveSome(std::span<uint8_t> buffer) {
  while (!closing_) {
    const SocketResult received = socket_.Receive(buffer);
    if (received.status != SocketStatus::TimedOut) return received.bytes;
  }
  return 0;
}

void SocketStream::Abort() {
  closing_ = true;
  socket_.Abort();
}

}  // namespace cvn::agent
