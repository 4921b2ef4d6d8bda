#include "capture/win/gdi_screen_capturer.h"

#include <windows.h>

#include <string>
#include <utility>

#include "capture/capture_area.h"
#include "capture/gdi_screen_capturer.h"
#include "capture/win/cursor_painter.h"
#include "capture/win/dib_surface.h"
#include "capture/win/owned_handle.h"

namespace cvn::agent {
namespace {

/// With layered windows, which a plain copy leaves out.
constexpr DWORD kCopyScreen = SRCCOPY | CAPTUREBLT;
static_assert(kCopyScreen == 0x40CC0020);

class GdiSurface final : public ScreenSurface {
 public:
  bool Create(int32_t width, int32_t height) {
    width_ = width;
    height_ = height;
    return surface_.Create(width, height);
  }

  ScreenCopy CopyScreen(int32_t originX, int32_t originY, bool withCursor, uint32_t& errorCode) override {
    const OwnedScreenContext screen = OpenScreenContext();
    if (!screen) return ScreenCopy::kNoScreen;
    if (!BitBlt(surface_.Context(), 0, 0, width_, height_, screen.Get(), originX, originY, kCopyScreen)) {
      errorCode = GetLastError();
      return ScreenCopy::kFailed;
    }
    if (withCursor) DrawCursor(surface_.Context(), originX, originY);
    GdiFlush();
    return ScreenCopy::kDone;
  }

  void PaintBlack() override {
    PatBlt(surface_.Context(), 0, 0, width_, height_, BLACKNESS);
    GdiFlush();
  }

  std::span<const uint32_t> Pixels() const override { return surface_.Pixels(); }

 private:
  int32_t width_ = 0;
  int32_t height_ = 0;
  DibSurface surface_;
};

std::unique_ptr<ScreenCapturer> CreateGdiScreenCapturer(DisplaySystem& displays, int32_t monitorIndex,
                                                        std::string& error) {
  const CaptureArea area =
      ChooseCaptureArea(monitorIndex, OrderedMonitors(displays), displays.VirtualDesktop());
  auto surface = std::make_unique<GdiSurface>();
  if (!surface->Create(area.width, area.height)) {
    error = "could not create the capture buffer";
    return nullptr;
  }
  return std::make_unique<GdiScreenCapturer>(area, std::move(surface), displays);
}

}  // namespace

CaptureBackends CreateWinCaptureBackends(DisplaySystem& displays, std::function<void()>) {
  return {.duplication = {}, .fallback = [&displays](int32_t monitorIndex, std::string& error) {
            return CreateGdiScreenCapturer(displays, monitorIndex, error);
          }};
}

}  // namespace cvn::agent
