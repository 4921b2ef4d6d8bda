#pragma once

#include <windows.h>

#include <utility>

namespace cvn::agent {

/// Owns a handle that `Release` gives back; move-only, null when empty.
template <typename Handle, auto Release>
class OwnedHandle {
 public:
  OwnedHandle() = default;
  explicit OwnedHandle(Handle handle) : handle_(handle) {}
  OwnedHandle(OwnedHandle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  OwnedHandle& operator=(OwnedHandle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~OwnedHandle() {
    if (handle_ != nullptr) Release(handle_);
  }

  Handle Get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }

 private:
  Handle handle_ = nullptr;
};

using OwnedDesktop = OwnedHandle<HDESK, CloseDesktop>;
using OwnedMemoryContext = OwnedHandle<HDC, DeleteDC>;
using OwnedBitmap = OwnedHandle<HBITMAP, DeleteObject>;

inline void ReleaseScreenContext(HDC context) {
  ReleaseDC(GetDesktopWindow(), context);
}
/// The device context of the whole virtual desktop.
using OwnedScreenContext = OwnedHandle<HDC, ReleaseScreenContext>;
inline OwnedScreenContext OpenScreenContext() {
  return OwnedScreenContext(GetWindowDC(GetDesktopWindow()));
}

}  // namespace cvn::agent
