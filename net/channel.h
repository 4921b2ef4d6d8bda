#pragma once

#include <cstdint>

namespace cvn::agent {

/// A logical channel of the connection, one byte on the wire. 2 and 3 are valid on the wire, have queues of
/// their own and are unused. Lower numbers are written first.
enum class Channel : uint8_t { Control = 0, Tiles = 1 };

inline constexpr int kChannelCount = 4;

}  // namespace cvn::agent
