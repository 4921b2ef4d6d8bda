#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "net/channel.h"

namespace cvn::agent {

// A frame on the wire: channel (1 byte, 0..3), payload length (4 bytes, big-endian, 1..8 MiB), payload.

inline constexpr size_t kChannelFrameHeaderBytes = 5;
inline constexpr size_t kMaxFrameBytes = 8388608;

struct ChannelFrameHeader {
  Channel channel = Channel::Control;
  uint32_t payloadBytes = 0;
  bool operator==(const ChannelFrameHeader&) const = default;
};

/// Whether a payload of this size can travel in a frame.
constexpr bool FitsFrame(size_t payloadBytes) {
  return payloadBytes >= 1 && payloadBytes <= kMaxFrameBytes;
}

std::array<uint8_t, kChannelFrameHeaderBytes> BuildChannelFrameHeader(const ChannelFrameHeader& header);

/// Nothing when the channel or the length is out of range.
std::optional<ChannelFrameHeader> ParseChannelFrameHeader(
    std::span<const uint8_t, kChannelFrameHeaderBytes> bytes);

}  // namespace cvn::agent
