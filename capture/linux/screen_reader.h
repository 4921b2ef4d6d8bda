#pragma once

#include <xcb/shm.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/geometry.h"
#include "capture/linux/xcb_connection.h"
#include "capture/pixel_layout.h"

namespace cvn::agent {

/// Memory that the X server writes pictures into.
class SharedPicture {
 public:
  explicit SharedPicture(XcbConnection& connection) : connection_(connection) {}
  ~SharedPicture() { Release(); }
  SharedPicture(const SharedPicture&) = delete;
  SharedPicture& operator=(const SharedPicture&) = delete;

  /// Room for that many pixels; false when the server cannot reach this machine's memory.
  bool Reserve(size_t pixels);
  xcb_shm_seg_t Segment() const { return segment_; }
  std::span<uint32_t> Pixels() const { return {pixels_, capacityPixels_}; }

 private:
  bool AttachServer(int memoryId);
  void Release();

  XcbConnection& connection_;
  xcb_shm_seg_t segment_ = 0;
  uint32_t* pixels_ = nullptr;
  size_t capacityPixels_ = 0;
};

/// Reads rectangles of the root window as B, G, R, X pixels, through shared memory or, when the server
/// refuses that (it runs elsewhere), through the connection. One thread at a time.
class ScreenReader {
 public:
  /// Receives the rows of a rectangle without padding.
  using TakePixels = std::function<void(const PixelRect& area, std::span<const uint32_t> pixels)>;

  /// Null with `error` set when the screen's pixels are of a kind that cannot be delivered.
  static std::unique_ptr<ScreenReader> Create(XcbConnection& connection, std::string& error);

  /// Hands each of `areas` to `take` in order, all asked for at once. False when the server did not deliver
  /// them all: a rectangle outside the root window, or the server is gone.
  bool Read(std::span<const PixelRect> areas, const TakePixels& take);

 private:
  ScreenReader(XcbConnection& connection, const PixelLayout& layout);

  bool ReadShared(std::span<const PixelRect> areas, const TakePixels& take);
  bool ReadPlain(std::span<const PixelRect> areas, const TakePixels& take);

  XcbConnection& connection_;
  PixelLayout layout_;
  bool sharesMemory_;
  SharedPicture picture_;
  std::vector<xcb_shm_get_image_cookie_t> sharedRequests_;
  std::vector<xcb_get_image_cookie_t> plainRequests_;
};

}  // namespace cvn::agent
