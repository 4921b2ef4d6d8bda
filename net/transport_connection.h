#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "net/channel.h"
#include "net/secure_channel.h"
#include "net/stream_socket.h"
#include "net/tile_transport.h"

namespace cvn::agent {

/// Called on the reader thread with each frame; the bytes are handed over.
using ReceiveHandler = std::function<void(Channel channel, std::vector<uint8_t> bytes)>;

/// One admitted connection: four queues drained lowest channel first by a writer thread, and a reader thread
/// that hands every frame (net/frame_format.h) to a handler.
///
/// Open from admission until the reader or writer gives up or `Close` is called; never opens again.
class TransportConnection {
 public:
  /// Takes both over; `channel` works on `socket`, which is null when the channel needs none. Open from the
  /// start: only an admitted channel gets here.
  TransportConnection(std::unique_ptr<StreamSocket> socket, std::unique_ptr<SecureChannel> channel,
                      std::string peerText);
  /// Closes.
  ~TransportConnection();
  TransportConnection(const TransportConnection&) = delete;
  TransportConnection& operator=(const TransportConnection&) = delete;

  /// Starts the reader, then the writer. Once; does nothing on a closed connection. While the peer lets more
  /// than 4 MiB of control messages wait to be written to it, nothing more is read from it.
  void Start(ReceiveHandler handler);
  /// Queues one message. Empty or over 8 MiB, or not open: dropped without a word. Any thread.
  void Enqueue(Channel channel, std::vector<uint8_t> message);
  /// Stops both threads and closes the socket, within 2 s whatever socket call they are blocked in; what is
  /// still queued is dropped. Idempotent; any thread. From the receive handler the reader itself ends only
  /// when the handler has returned.
  void Close();

  bool IsOpen() const;
  /// False before `Start` and once the reader thread has left its loop.
  bool ReaderRunning() const;
  int64_t QueuedBytes(Channel channel) const;
  uint64_t SentBytes(Channel channel) const;
  const std::string& PeerText() const;

 private:
  struct State;
  // Shared with the threads: the handler may drop the last reference to the connection.
  std::shared_ptr<State> state_;
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
