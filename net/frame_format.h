#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "net/channel.h"

namespace cvn::agent {

// A frame on the wire: channel (1 byte, 0..3), payload length (4 bytes, big-endian, 1..8 MiB), payload.

inline constexpr size_t kFrameHeaderBytes = 5;
inline constexpr size_t kMaxFrameBytes = 8388608;

struct FrameHeader {
  Channel channel = Channel::Control;
  uint32_t payloadBytes = 0;
  bool operator==(const FrameHeader&) const = default;
};

/// Whether a payload of this size can travel in a frame.
constexpr bool FitsFrame(size_t payloadBytes) {
  return payloadBytes >= 1 && payloadBytes <= kMaxFrameBytes;
}

std::array<uint8_t, kFrameHeaderBytes> BuildFrameHeader(const FrameHeader& header);

/// Nothing when the channel or the length is out of range.
std::optional<FrameHeader> ParseFrameHeader(std::span<const uint8_t, kFrameHeaderBytes> bytes);

}  // namespace cvn::agent
