#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cvn::agent {

/// One channel of a connection as its sender sees it. Any thread.
class TileTransport {
 public:
  virtual ~TileTransport() = default;
  virtual bool IsOpen() const = 0;
  /// Bytes accepted by `Send` and not yet written to the socket: the backlog.
  virtual int64_t QueuedBytes() const = 0;
  virtual std::string Protocol() const = 0;
  /// Bytes written to the socket so far; never goes backwards.
  virtual uint64_t SentBytes() const = 0;
  /// Queues one message; silently dropped when the connection is closed, or when it is empty or over 8 MiB.
  virtual void Send(std::vector<uint8_t> message) = 0;
};

}  // namespace cvn::agent
