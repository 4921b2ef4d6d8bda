#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "capture/capture_area.h"
#include "capture/display_system.h"
#include "capture/kept_frame.h"
#include "capture/screen_capturer.h"

namespace cvn::agent {

/// How one attempt to copy the screen ended.
enum class ScreenCopy { kDone, kNoScreen, kFailed };

/// The drawing surface of the capture area and the screen it is filled from: the system's calls, without any
/// decision.
class ScreenSurface {
 public:
  virtual ~ScreenSurface() = default;
  /// Copies the screen's pixels from (`originX`, `originY`) on, and the cursor onto them when wished. After
  /// `kFailed`, `errorCode` is the system's.
  virtual ScreenCopy CopyScreen(int32_t originX, int32_t originY, bool withCursor, uint32_t& errorCode) = 0;
  virtual void PaintBlack() = 0;
  /// B, G, R, X rows of the capture area without padding, valid for the surface's life.
  virtual std::span<const uint32_t> Pixels() const = 0;
};

/// Captures by copying the whole area each time and comparing it with the previous one.
///
/// It never gives up: while the screen cannot be read it delivers black frames, and says so once in the log.
class GdiScreenCapturer final : public ScreenCapturer {
 public:
  /// `surface` has the size of `area`; `displays` is borrowed and outlives the capturer.
  GdiScreenCapturer(const CaptureArea& area, std::unique_ptr<ScreenSurface> surface, DisplaySystem& displays);

  int32_t OriginX() const override { return area_.originX; }
  int32_t OriginY() const override { return area_.originY; }
  int32_t Width() const override { return area_.width; }
  int32_t Height() const override { return area_.height; }
  int32_t MonitorIndex() const override { return area_.monitorIndex; }
  bool UsesDesktopDuplication() const override { return false; }
  void SetShowCursor(bool show) override { showCursor_ = show; }
  bool Capture(CapturedFrame& frame) override;

 private:
  void DeliverScreen(CapturedFrame& frame);
  void DeliverBlack(CapturedFrame& frame, uint32_t errorCode);

  CaptureArea area_;
  std::unique_ptr<ScreenSurface> surface_;
  DisplaySystem& displays_;
  bool showCursor_ = false;
  bool warned_ = false;
  /// The previous frame, which new ones are compared with unless it was black for want of a screen.
  KeptFrame kept_;
  bool comparable_ = false;
  PixelRect changed_;
};

}  // namespace cvn::agent
