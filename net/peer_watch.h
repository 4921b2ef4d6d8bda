#pragma once

#include <cstdint>

namespace cvn::agent {

/// What the system knows about the other end of a connection.
struct PeerSigns {
  /// Something was sent to it, or asked of it, that it has not acknowledged.
  bool owesAnswer = false;
  int64_t sinceHeardMs = 0;
};

/// Tells a line that was cut from a peer that is only slow to read: the one leaves every acknowledgement out,
/// the other keeps its window shut for as long as it likes but answers whenever it is asked. The system's own
/// limit on unsent data does not tell them apart: it ended peers that read 4 KB/s.
///
/// One direction of one connection; one thread.
class PeerWatch {
 public:
  /// To be told of each wait slice (net/socket_tuning.h) in which nothing moved. True once the peer has owed
  /// an answer for 20 s without a sign of life.
  bool IsLost(const PeerSigns& signs);

 private:
  int64_t silentMs_ = 0;
};

}  // namespace cvn::agent
