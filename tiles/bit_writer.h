#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <span>

namespace cvn::agent {

/// Appends bits to borrowed memory, the first bit of a value lowest, as deflate packs them. Each `Put` stores
/// eight bytes, so that much room must stand behind the last byte written.
class BitWriter {
 public:
  explicit BitWriter(uint8_t* begin) : next_(begin) {}

  /// `count` is at most 56, and the bits above it are clear.
  void Put(uint64_t bits, unsigned count) {
    pending_ |= bits << pendingBits_;
    pendingBits_ += count;
    Store(pending_);
    next_ += pendingBits_ >> 3;
    pending_ >>= pendingBits_ & ~7U;
    pendingBits_ &= 7;
  }

  void AlignToByte() {
    if (pendingBits_ > 0) Put(0, 8 - pendingBits_);
  }

  /// On a byte boundary only.
  void PutBytes(std::span<const uint8_t> bytes) { next_ = std::copy(bytes.begin(), bytes.end(), next_); }

  /// The byte that the next bits go into.
  uint8_t* Next() const { return next_; }

 private:
  void Store(uint64_t bits) {
    if constexpr (std::endian::native == std::endian::little) {
      std::memcpy(next_, &bits, sizeof bits);
    } else {
      for (int i = 0; i < 8; ++i) next_[i] = static_cast<uint8_t>(bits >> (8 * i));
    }
  }

  uint8_t* next_;
  uint64_t pending_ = 0;
  unsigned pendingBits_ = 0;
};

}  // namespace cvn::agent
