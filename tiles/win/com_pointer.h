#pragma once

#include <utility>

namespace cvn::agent {

/// Owns one reference to a COM object.
template <typename Interface>
class ComPointer {
 public:
  ComPointer() = default;
  ~ComPointer() { Reset(); }
  ComPointer(ComPointer&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ComPointer& operator=(ComPointer&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  explicit operator bool() const { return object_ != nullptr; }
  Interface* operator->() const { return object_; }
  Interface* Get() const { return object_; }

  /// For a call that hands out a reference; what was owned before is released.
  Interface** Receive() {
    Reset();
    return &object_;
  }

 private:
  void Reset() {
    if (Interface* const object = std::exchange(object_, nullptr)) object->Release();
  }

  Interface* object_ = nullptr;
};

}  // namespace cvn::agent
