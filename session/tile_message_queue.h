#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "net/tile_transport.h"
#include "tiles/tile_message.h"

namespace cvn::agent {

/// Which picture a message belongs to: the keyframe counter (0 before the first) and the frame's size in
/// pixels.
struct StreamEpoch {
  uint32_t keyframes = 0;
  int width = 0;
  int height = 0;
};

/// The messages of one frame on their way to the transport: wrapped and split as the connection's protocol
/// asks, then handed over in bounded bites. One thread at a time.
class TileMessageQueue {
 public:
  /// `transport` is borrowed.
  explicit TileMessageQueue(TileTransport& transport) : transport_(transport) {}

  /// Appends `message`, in fragments when it is too long for the protocol. Throws std::out_of_range as
  /// `Fragment` and `Envelope` do; what was appended before stays.
  void Add(std::vector<uint8_t> message, const StreamEpoch& epoch);

  /// Hands messages to the transport while its backlog stays within `allowedBytes`, at most 65536 bytes in
  /// all. With an empty backlog any one message may go, however large. Returns the bytes handed over.
  int64_t Pump(uint64_t allowedBytes);

  bool Empty() const { return pending_.empty(); }

 private:
  void AddWrapped(std::vector<uint8_t> message, const StreamEpoch& epoch);
  bool MayGo(size_t messageBytes, uint64_t allowedBytes) const;

  TileTransport& transport_;
  std::deque<std::vector<uint8_t>> pending_;
  uint32_t nextFragmentGroup_ = 0;
  bool fragmentationLogged_ = false;
};

}  // namespace cvn::agent
