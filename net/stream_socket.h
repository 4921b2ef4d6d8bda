#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace cvn::agent {

/// What one call on a socket did.
enum class SocketStatus {
  Bytes,     // some bytes moved
  TimedOut,  // none within a wait slice; nothing is wrong, ask again
  Closed,    // the peer has finished sending, or `Abort` was called
  Failed
};

struct SocketResult {
  SocketStatus status = SocketStatus::Failed;
  size_t bytes = 0;  // more than 0 for `Bytes`, else 0
};

/// One connected TCP socket, tuned for a session. One thread may send while another receives; `Abort` may
/// come from any thread. No call blocks longer than a wait slice. Destroying it closes it; nobody may be in a
/// call then.
class StreamSocket {
 public:
  virtual ~StreamSocket() = default;
  /// Receives at least one byte into a buffer that is not empty.
  virtual SocketResult Receive(std::span<uint8_t> buffer) = 0;
  /// Sends a first part of `bytes`, which are not empty. Never raises a signal.
  virtual SocketResult Send(std::span<const uint8_t> bytes) = 0;
  /// Shuts both directions down and ends calls that are waiting; later ones say `Closed` or `Failed`.
  virtual void Abort() = 0;
  /// "address:port" of the peer, without brackets; "unknown" when the system does not tell.
  virtual std::string PeerText() const = 0;
};

}  // namespace cvn::agent
