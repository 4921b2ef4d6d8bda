#include "net/frame_format.h"

#include "base/bytes.h"

namespace cvn::agent {

std::array<uint8_t, kChannelFrameHeaderBytes> BuildChannelFrameHeader(const ChannelFrameHeader& header) {
  const uint32_t length = header.payloadBytes;
  return {static_cast<uint8_t>(header.channel), static_cast<uint8_t>(length >> 24),
          static_cast<uint8_t>(length >> 16), static_cast<uint8_t>(length >> 8),
          static_cast<uint8_t>(length)};
}

std::optional<ChannelFrameHeader> ParseChannelFrameHeader(
    std::span<const uint8_t, kChannelFrameHeaderBytes> bytes) {
  ByteReader reader(bytes);
  const uint8_t channel = reader.U8();
  const uint32_t payloadBytes = reader.U32();
  if (channel >= kChannelCount || !FitsFrame(payloadBytes)) return std::nullopt;
  return ChannelFrameHeader{static_cast<Channel>(channel), payloadBytes};
}

}  // namespace cvn::agent
