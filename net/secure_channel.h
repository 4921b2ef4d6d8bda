#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace cvn::agent {

/// The byte stream that frames travel on. One thread may send while another receives; `Abort` may come from
/// any thread.
class SecureChannel {
 public:
  virtual ~SecureChannel() = default;
  /// Writes all bytes or fails.
  virtual bool Send(std::span<const uint8_t> bytes) = 0;
  /// Fills the buffer completely or fails. A receive time-out of the socket is retried unless `Abort` was
  /// called.
  virtual bool ReceiveExactly(std::span<uint8_t> buffer) = 0;
  /// Ends the stream; called after both threads have been joined.
  virtual void Close() = 0;
  /// Makes blocked calls return and later ones fail.
  virtual void Abort() = 0;
  /// Short, for the peer text.
  virtual std::string Describe() const = 0;
};

}  // namespace cvn::agent
