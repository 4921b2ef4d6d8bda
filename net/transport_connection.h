#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "net/channel.h"
#include "net/secure_channel.h"
#include "net/tile_transport.h"

namespace cvn::agent {

class StreamSocket;

inline constexpr size_t kMaxFrameBytes = 8388608;

/// Called on the reader thread with each frame; the bytes are handed over.
using ReceiveHandler = std::function<void(Channel channel, std::vector<uint8_t> bytes)>;

/// One admitted connection: four queues drained lowest channel first by a writer thread, and a reader thread
/// that hands every frame to a handler. Frame on the wire: channel (1 byte), payload length (4,
/// big-endian, 1..8 MiB), payload.
///
/// Open from admission until the reader or writer gives up or `Close` is called; never opens again.
class TransportConnection {
 public:
  /// Takes both over; `channel` works on `socket`. Open from the start: only an admitted channel gets here.
  TransportConnection(std::unique_ptr<StreamSocket> socket, std::unique_ptr<SecureChannel> channel,
                      std::string peerText);
  /// Closes.
  ~TransportConnection();
  TransportConnection(const TransportConnection&) = delete;
  TransportConnection& operator=(const TransportConnection&) = delete;

  /// Starts the reader, then the writer. Once.
  void Start(ReceiveHandler handler);
  /// Queues one message. Empty or over 8 MiB, or not open: dropped without a word. Any thread.
  void Enqueue(Channel channel, std::vector<uint8_t> message);
  /// Stops both threads and closes the socket, within 2 s whatever they are blocked in. Idempotent; any
  /// thread, the receive handler included.
  void Close();

  bool IsOpen() const;
  /// False before `Start` and once the reader thread has left its loop.
  bool ReaderRunning() const;
  int64_t QueuedBytes(Channel channel) const;
  uint64_t SentBytes(Channel channel) const;
  const std::string& PeerText() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// A `TileTransport` over one channel of a shared connection.
class ChannelTransport final : public TileTransport {
 public:
  ChannelTransport(std::shared_ptr<TransportConnection> connection, Channel channel, std::string protocol);

  bool IsOpen() const override;
  int64_t QueuedBytes() const override;
  std::string Protocol() const override;
  uint64_t SentBytes() const override;
  void Send(std::vector<uint8_t> message) override;

 private:
  std::shared_ptr<TransportConnection> connection_;
  Channel channel_;
  std::string protocol_;
};

}  // namespace cvn::agent
