#include "capture/gdi_screen_capturer.h"

#include <utility>

#include "base/log.h"

namespace cvn::agent {

GdiScreenCapturer::GdiScreenCapturer(const CaptureArea& area, std::unique_ptr<ScreenSurface> surface,
                                     DisplaySystem& displays)
    : area_(area), surface_(std::move(surface)), displays_(displays) {
  kept_.Resize(area.width, area.height);
}

bool GdiScreenCapturer::Capture(CapturedFrame& frame) {
  displays_.AttachToInputDesktop();
  uint32_t errorCode = 0;
  switch (surface_->CopyScreen(area_.originX, area_.originY, showCursor_, errorCode)) {
    case ScreenCopy::kNoScreen:
      return false;
    case ScreenCopy::kDone:
      DeliverScreen(frame);
      return true;
    case ScreenCopy::kFailed:
      DeliverBlack(frame, errorCode);
      return true;
  }
  return false;
}

void GdiScreenCapturer::DeliverScreen(CapturedFrame& frame) {
  changed_ = kept_.Absorb(kept_.Bounds(), surface_->Pixels(), static_cast<size_t>(area_.width));
  frame = {};
  kept_.Describe(frame);
  frame.unchanged = comparable_ && changed_.Empty();
  if (comparable_) frame.changed = std::span(&changed_, changed_.Empty() ? 0 : 1);
  comparable_ = true;
}

void GdiScreenCapturer::DeliverBlack(CapturedFrame& frame, uint32_t errorCode) {
  comparable_ = false;
  // Deliberate: never armed again, so that a screen that comes and goes cannot fill the log.
  if (!std::exchange(warned_, true))
    Log().Warn("[capture] GDI BitBlt failed (Win32 error %lu); black frames until it recovers",
               static_cast<unsigned long>(errorCode));
  surface_->PaintBlack();
  kept_.Absorb(kept_.Bounds(), surface_->Pixels(), static_cast<size_t>(area_.width));
  frame = {};
  kept_.Describe(frame);
}

}  // namespace cvn::agent
