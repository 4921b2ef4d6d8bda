#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace cvn::end_to_end {

/// A TCP port of 127.0.0.1 that nobody listens on at the moment.
uint16_t FreePort();

/// Whether somebody listens on `port` of 127.0.0.1; nobody is connected to for it.
bool SomebodyListens(uint16_t port);

/// A TCP socket of 127.0.0.1, closed when destroyed.
class LocalSocket {
 public:
  /// Listens; `Accept` waits for one connection and goes on as that connection.
  static LocalSocket Listening(uint16_t port);
  /// `receiveBufferBytes` of 0 leaves the system's size.
  static std::optional<LocalSocket> Connected(uint16_t port, int receiveBufferBytes = 0);

  ~LocalSocket();
  LocalSocket(LocalSocket&& other) noexcept;
  LocalSocket& operator=(LocalSocket&& other) noexcept;

  bool Accept(std::chrono::milliseconds patience);
  bool Readable(std::chrono::milliseconds patience) const;
  /// What is there now, at least one byte unless the other side has closed (then 0).
  size_t Receive(std::span<uint8_t> buffer) const;
  bool SendAll(std::span<const uint8_t> bytes) const;

 private:
  explicit LocalSocket(int descriptor) : descriptor_(descriptor) {}

  int descriptor_ = -1;
};

}  // namespace cvn::end_to_end
