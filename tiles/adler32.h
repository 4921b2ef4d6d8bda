#pragma once

#include <cstdint>
#include <span>

namespace cvn::agent {

/// The checksum that ends a zlib stream (RFC 1950), by the widest instructions this processor has.
uint32_t Adler32(std::span<const uint8_t> bytes);

/// The same by plain arithmetic, for processors without them.
uint32_t PlainAdler32(std::span<const uint8_t> bytes);

}  // namespace cvn::agent
