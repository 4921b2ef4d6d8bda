#pragma once

#include <windows.h>

#include <cstdint>
#include <span>

#include "capture/win/owned_handle.h"

namespace cvn::agent {

/// A 32-bit, top-down bitmap in memory with a device context to draw into it. Empty until created; one thread
/// at a time.
class DibSurface {
 public:
  DibSurface() = default;
  ~DibSurface() { Release(); }
  DibSurface(const DibSurface&) = delete;
  DibSurface& operator=(const DibSurface&) = delete;

  /// Replaces what the surface held; false leaves it empty.
  bool Create(int32_t width, int32_t height);

  HDC Context() const { return context_.Get(); }
  /// B, G, R, X rows without padding. Drawing calls may still be queued: `GdiFlush` before reading.
  std::span<uint32_t> Pixels() const { return pixels_; }

 private:
  void Release();

  OwnedMemoryContext context_;
  OwnedBitmap bitmap_;
  HGDIOBJ displaced_ = nullptr;
  std::span<uint32_t> pixels_;
};

}  // namespace cvn::agent
