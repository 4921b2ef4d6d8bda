#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "tiles/vector_bytes.h"

namespace cvn::agent {

// How long two runs of bytes agree. All of these read up to 32 bytes behind what they are asked about.

/// How many bytes one comparison of vectors sees.
inline constexpr uint32_t kPrefixBytes = 32;

/// How many bytes agree behind the first 32, which do; may run past `limit`. Returning from the loop, not
/// adding in it, lets the processor run ahead of the comparisons.
inline uint32_t LongMatchLength(const uint8_t* a, const uint8_t* b, uint32_t limit) {
  uint32_t length = kPrefixBytes;
  while (length + 64 <= limit && NativeLanes::Same64(a + length, b + length)) length += 64;
  for (; length < limit; length += kPrefixBytes) {
    const unsigned more = NativeLanes::CommonPrefix32(a + length, b + length);
    if (more < kPrefixBytes) return length + more;
  }
  return length;
}

/// How many bytes agree, up to `limit` or a little more.
inline uint32_t MatchLength(const uint8_t* a, const uint8_t* b, uint32_t limit) {
  const unsigned length = NativeLanes::CommonPrefix32(a, b);
  return length < kPrefixBytes ? length : LongMatchLength(a, b, limit);
}

/// A match longer than `length` agrees in all bytes up to there. Of these the filter asks for the last eight,
/// which are the likeliest to differ, or for as many as there are. Which it is no processor foresees, so no
/// branch asks.
class LongerMatchFilter {
 public:
  LongerMatchFilter(const uint8_t* wanted, uint32_t length) {
    const int32_t missing = 7 - static_cast<int32_t>(length);
    const int32_t enough = missing >> 31;
    offset_ = static_cast<uint32_t>(-missing & enough);
    shift_ = static_cast<uint32_t>(missing & ~enough) * 8;
    last_ = LoadEight(wanted + offset_);
  }

  bool Passes(const uint8_t* candidate) const {
    const uint64_t different = LoadEight(candidate + offset_) ^ last_;
    return (std::endian::native == std::endian::little ? different << shift_ : different >> shift_) == 0;
  }

 private:
  static uint64_t LoadEight(const uint8_t* bytes) {
    uint64_t eight = 0;
    std::memcpy(&eight, bytes, sizeof eight);
    return eight;
  }

  uint32_t offset_;
  uint32_t shift_;
  uint64_t last_;
};

}  // namespace cvn::agent
