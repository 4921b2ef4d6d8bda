#include "net/plaintext_channel.h"

#include <algorithm>

namespace cvn::agent {

bool PlaintextChannel::ReceiveExactly(std::span<uint8_t> wanted) {
  if (stream_.IsClosing()) return false;
  wanted = wanted.subspan(TakeReceived(wanted));
  while (!wanted.empty()) {
    const bool direct = wanted.size() >= buffer_.size();
    const size_t bytes = stream_.ReceiveSome(direct ? wanted : std::span<uint8_t>(buffer_));
    if (bytes == 0) return false;
    if (!direct) received_ = std::span<const uint8_t>(buffer_).first(bytes);
    wanted = wanted.subspan(direct ? bytes : TakeReceived(wanted));
  }
  return true;
}

size_t PlaintextChannel::TakeReceived(std::span<uint8_t> wanted) {
  const size_t bytes = std::min(wanted.size(), received_.size());
  std::copy_n(received_.begin(), bytes, wanted.begin());
  received_ = received_.subspan(bytes);
  return bytes;
}

}  // namespace cvn::agent
