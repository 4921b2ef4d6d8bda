#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "base/geometry.h"

namespace cvn::agent {

/// One captured picture of the screen. The pixels are borrowed from the capturer and stay valid until its
/// next capture or its destruction.
struct CapturedFrame {
  uint32_t width = 0;
  uint32_t height = 0;
  /// First byte of the top row: B, G, R, 255 for each pixel, rows top-down, stride exactly `width * 4`.
  const uint8_t* pixels = nullptr;
  /// `width * height * 4`.
  uint64_t byteSize = 0;
  /// True when the capturer knows that the pixels equal those of its previous successful capture.
  bool unchanged = false;
  /// A hint: every pixel that differs from the capturer's previous successful capture lies in one of these
  /// rectangles (frame coordinates, inside the frame). Absent when the capturer does not know. Borrowed like
  /// the pixels.
  std::optional<std::span<const PixelRect>> changed;
};

/// Captures one monitor or the whole virtual desktop. Used by one thread at a time.
class ScreenCapturer {
 public:
  virtual ~ScreenCapturer() = default;
  /// Left and top edge of the captured area in virtual-desktop pixels.
  virtual int32_t OriginX() const = 0;
  virtual int32_t OriginY() const = 0;
  virtual int32_t Width() const = 0;
  virtual int32_t Height() const = 0;
  /// Position in the ordered monitor list, or -1 for all displays.
  virtual int32_t MonitorIndex() const = 0;
  virtual bool UsesDesktopDuplication() const = 0;
  /// Whether later captures draw the mouse cursor into the picture.
  virtual void SetShowCursor(bool show) = 0;
  /// True when `frame` now describes a frame; false, with `frame` untouched, when none could be produced this
  /// time.
  virtual bool Capture(CapturedFrame& frame) = 0;
};

/// Makes a capturer for a monitor index (any index that is not in the list means all displays); null with
/// `error` set when it cannot.
using CapturerFactory =
    std::function<std::unique_ptr<ScreenCapturer>(int32_t monitorIndex, std::string& error)>;

/// The ways of capturing that a host offers. `duplication` is empty on a host that has no such thing;
/// `fallback` is always there.
struct CaptureBackends {
  CapturerFactory duplication;
  CapturerFactory fallback;
};

}  // namespace cvn::agent
