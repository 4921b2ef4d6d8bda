#include <utility>

#include "net/transport_connection.h"

namespace cvn::agent {

ChannelTransport::ChannelTransport(std::shared_ptr<TransportConnection> connection, Channel channel,
                                   std::string protocol)
    : connection_(std::move(connection)), channel_(channel), protocol_(std::move(protocol)) {}

bool ChannelTransport::IsOpen() const {
  return connection_->IsOpen();
}
int64_t ChannelTransport::QueuedBytes() const {
  return connection_->QueuedBytes(channel_);
}
std::string ChannelTransport::Protocol() const {
  return protocol_;
}
uint64_t ChannelTransport::SentBytes() const {
  return connection_->SentBytes(channel_);
}
void ChannelTransport::Send(std::vector<uint8_t> message) {
  connection_->Enqueue(channel_, std::move(message));
}

}  // namespace cvn::agent
