#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "tests/end_to_end/local_socket.h"

namespace cvn::end_to_end {

/// One frame as it stands on the wire.
struct WireFrame {
  int channel = 0;
  std::vector<uint8_t> payload;

  /// The type of the tile message inside the envelope, of the message itself when there is none.
  int TileType() const;
  /// Of an enveloped frame header: whether it begins a keyframe.
  bool BeginsKeyframe() const;
};

/// A viewer that counts and shows nothing: it takes the plaintext stream apart by itself, so that a fault of
/// the product's own framing cannot hide itself.
class WireClient {
 public:
  explicit WireClient(LocalSocket socket) : socket_(std::move(socket)) {}

  /// The next frame; nothing when none begins within `patience`, or when the agent has closed.
  std::optional<WireFrame> Next(std::chrono::milliseconds patience);
  void SendControl(std::string_view json);
  void SendRaw(const std::vector<uint8_t>& bytes) { socket_.SendAll(bytes); }
  bool AgentClosed() const { return closed_; }

 private:
  bool Fill(size_t byteCount);

  LocalSocket socket_;
  std::vector<uint8_t> buffer_;
  bool closed_ = false;
};

}  // namespace cvn::end_to_end
