#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace cvn::agent {

/// Reads big-endian integers from a borrowed byte view, front to back.
///
/// A read past the end yields 0 or an empty span, leaves the reader failed for good, and never touches memory
/// outside the view; callers read a whole header and ask `Ok()` once. One thread at a time.
class ByteReader {
 public:
  explicit ByteReader(std::span<const uint8_t> bytes) : rest_(bytes) {}

  uint8_t U8() { return static_cast<uint8_t>(BigEndian(1)); }
  uint16_t U16() { return static_cast<uint16_t>(BigEndian(2)); }
  uint32_t U32() { return static_cast<uint32_t>(BigEndian(4)); }

  /// The next `count` bytes, still borrowed from the view.
  std::span<const uint8_t> Bytes(size_t count) {
    if (count > rest_.size()) {
      ok_ = false;
      rest_ = {};
      return {};
    }
    const auto taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }

  /// Everything that has not been read yet.
  std::span<const uint8_t> Rest() const { return rest_; }
  bool AtEnd() const { return rest_.empty(); }
  bool Ok() const { return ok_; }

 private:
  uint64_t BigEndian(size_t count) {
    uint64_t value = 0;
    for (const uint8_t byte : Bytes(count)) value = value << 8 | byte;
    return value;
  }

  std::span<const uint8_t> rest_;
  bool ok_ = true;
};

/// Appends big-endian integers and byte runs to a vector that it owns until `Take`.
class ByteWriter {
 public:
  ByteWriter() = default;
  /// Reserves room so that a message of known size is built with one allocation.
  explicit ByteWriter(size_t expectedBytes) { bytes_.reserve(expectedBytes); }

  ByteWriter& U8(uint8_t value) { return BigEndian(value, 1); }
  ByteWriter& U16(uint16_t value) { return BigEndian(value, 2); }
  ByteWriter& U32(uint32_t value) { return BigEndian(value, 4); }
  ByteWriter& Bytes(std::span<const uint8_t> run) {
    bytes_.insert(bytes_.end(), run.begin(), run.end());
    return *this;
  }

  std::vector<uint8_t> Take() { return std::move(bytes_); }

 private:
  ByteWriter& BigEndian(uint64_t value, int count) {
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8)
      bytes_.push_back(static_cast<uint8_t>(value >> shift));
    return *this;
  }

  std::vector<uint8_t> bytes_;
};

}  // namespace cvn::agent
