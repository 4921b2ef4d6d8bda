#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "capture/capture_area.h"
#include "capture/win/dib_surface.h"
#include "capture/win/gdi_screen_capturer.h"
#include "capture/win/input_desktop.h"
#include "capture/win/win_display_system.h"
#include "testing/eventually.h"

namespace cvn::agent {
namespace {

constexpr PixelRect kWindow = {100, 80, 300, 200};

/// A window in front of everything else that shows coloured rectangles.
class ColoredWindow {
 public:
  explicit ColoredWindow(COLORREF color)
      : window_(CreateWindowExW(WS_EX_TOPMOST | WS_EX_TOOLWINDOW, L"STATIC", L"", WS_POPUP | WS_VISIBLE,
                                kWindow.left, kWindow.top, kWindow.Width(), kWindow.Height(), nullptr,
                                nullptr, nullptr, nullptr)) {
    Add({0, 0, kWindow.Width(), kWindow.Height()}, color);
  }
  ~ColoredWindow() { DestroyWindow(window_); }
  ColoredWindow(const ColoredWindow&) = delete;
  ColoredWindow& operator=(const ColoredWindow&) = delete;

  /// `area` is in the window's coordinates.
  void Add(const PixelRect& area, COLORREF color) {
    paints_.emplace_back(RECT{area.left, area.top, area.right, area.bottom}, color);
  }

  void Paint() const {
    // First what the system wants of the window, or it would be painted over.
    for (MSG message; PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE);) DispatchMessageW(&message);
    HDC context = GetDC(window_);
    for (const auto& [rect, color] : paints_) {
      HBRUSH brush = CreateSolidBrush(color);
      FillRect(context, &rect, brush);
      DeleteObject(brush);
    }
    ReleaseDC(window_, context);
    GdiFlush();
  }

 private:
  HWND window_;
  std::vector<std::pair<RECT, COLORREF>> paints_;
};

struct WinCapture : testing::Test {
  /// On a thread without windows, since only such a one can be attached to another desktop.
  bool Capture() {
    bool captured = false;
    std::thread([&] {
      captured = capturer->Capture(frame);
      displays->DetachFromInputDesktop();
    }).join();
    return captured;
  }

  /// Paints and captures until the screen shows that many pixels of that value in the window: a window takes
  /// its time to the screen, and the system may clear it then.
  testing::AssertionResult Shows(const ColoredWindow& window, int count, uint32_t value) {
    int64_t found = -1;
    const bool shown = Eventually([&] {
      window.Paint();
      if (!Capture()) return false;
      found = Count(kWindow, value);
      return found == count;
    });
    return shown ? testing::AssertionSuccess() : testing::AssertionFailure() << found << " such pixels";
  }

  /// How many pixels of `area` (frame coordinates) have that value.
  int64_t Count(const PixelRect& area, uint32_t value) const {
    int64_t count = 0;
    for (int32_t y = area.top; y < area.bottom; ++y) {
      std::vector<uint32_t> row(frame.width);
      std::memcpy(row.data(), frame.pixels + static_cast<size_t>(y) * row.size() * 4, row.size() * 4);
      count += std::count(row.begin() + area.left, row.begin() + area.right, value);
    }
    return count;
  }

  std::unique_ptr<DisplaySystem> displays = CreateWinDisplaySystem();
  CaptureBackends backends = CreateWinCaptureBackends(*displays, {});
  std::string error;
  std::unique_ptr<ScreenCapturer> capturer = backends.fallback(0, error);
  CapturedFrame frame;
};

TEST_F(WinCapture, DeliversWhatWindowsShow) {
  ASSERT_TRUE(capturer) << error;
  const int pixels = kWindow.Width() * kWindow.Height();
  ColoredWindow window(RGB(0x11, 0x77, 0xcc));
  ASSERT_TRUE(Shows(window, pixels, 0xff1177cc));
  EXPECT_TRUE(Eventually([&] { return Capture() && frame.unchanged; }));
  EXPECT_EQ(Count(kWindow, 0xff1177cc), pixels);

  window.Add({10, 20, 13, 24}, RGB(1, 2, 3));
  ASSERT_TRUE(Shows(window, 3 * 4, 0xff010203));
  EXPECT_FALSE(frame.unchanged);
  EXPECT_EQ(Count({110, 100, 113, 104}, 0xff010203), 3 * 4);
}

TEST_F(WinCapture, CapturesAllDisplaysForAnUnknownMonitor) {
  const std::vector<PixelRect> monitors = OrderedMonitors(*displays);
  ASSERT_FALSE(monitors.empty());
  EXPECT_EQ(capturer->MonitorIndex(), 0);
  EXPECT_EQ(capturer->Width(), monitors.front().Width() & ~1);

  capturer = backends.fallback(static_cast<int32_t>(monitors.size()), error);
  ASSERT_TRUE(capturer) << error;
  EXPECT_EQ(capturer->MonitorIndex(), -1);
  EXPECT_EQ(capturer->Width(), displays->VirtualDesktop().Width() & ~1);
  EXPECT_TRUE(Capture());
}

/// A 32x32 cursor of solid green, pointing with (10, 20).
HCURSOR GreenCursor() {
  DibSurface colors;
  EXPECT_TRUE(colors.Create(32, 32));
  for (uint32_t& pixel : colors.Pixels()) pixel = 0xff00ff00;
  const std::vector<uint8_t> opaque(32 * 32 / 8, 0);
  OwnedBitmap mask(CreateBitmap(32, 32, 1, 1, opaque.data()));
  ICONINFO info = {};
  info.fIcon = FALSE;
  info.xHotspot = 10;
  info.yHotspot = 20;
  info.hbmMask = mask.Get();
  info.hbmColor = static_cast<HBITMAP>(GetCurrentObject(colors.Context(), OBJ_BITMAP));
  return CreateIconIndirect(&info);
}

TEST_F(WinCapture, DrawsTheCursorAtItsHotspotWhenWished) {
  ColoredWindow window(RGB(0x40, 0x40, 0x40));
  const HCURSOR cursor = GreenCursor();
  ASSERT_NE(cursor, nullptr);
  SetCursorPos(200, 150);
  SetCursor(cursor);
  CURSORINFO shown = {};
  shown.cbSize = sizeof(shown);
  ASSERT_TRUE(GetCursorInfo(&shown));
  ASSERT_EQ(shown.hCursor, cursor);

  ASSERT_TRUE(Shows(window, kWindow.Width() * kWindow.Height(), 0xff404040));
  capturer->SetShowCursor(true);
  ASSERT_TRUE(Capture());
  EXPECT_FALSE(frame.unchanged);
  EXPECT_EQ(Count({190, 130, 222, 162}, 0xff00ff00), 32 * 32);
  SetCursorPos(210, 150);
  ASSERT_TRUE(Capture());
  EXPECT_EQ(Count({200, 130, 232, 162}, 0xff00ff00), 32 * 32);
  EXPECT_EQ(Count(kWindow, 0xff00ff00), 32 * 32);

  SetCursor(nullptr);
  ASSERT_TRUE(Capture());
  EXPECT_EQ(Count(kWindow, 0xff00ff00), 0) << "a program may hide it";
  DestroyCursor(cursor);
}

TEST(InputDesktop, IsAttachedPerThreadAndGivenBack) {
  std::thread([] {
    const HDESK home = GetThreadDesktop(GetCurrentThreadId());
    DetachFromInputDesktop();
    EXPECT_EQ(GetThreadDesktop(GetCurrentThreadId()), home) << "nothing to give back yet";
    ASSERT_TRUE(AttachToInputDesktop());
    const HDESK first = GetThreadDesktop(GetCurrentThreadId());
    EXPECT_NE(first, home);
    ASSERT_TRUE(AttachToInputDesktop());
    EXPECT_NE(GetThreadDesktop(GetCurrentThreadId()), home);
    DetachFromInputDesktop();
    EXPECT_EQ(GetThreadDesktop(GetCurrentThreadId()), home);
    DWORD flags = 0;
    EXPECT_FALSE(GetHandleInformation(first, &flags)) << "left open";
  }).join();
}

TEST(DibSurface, GivesItsHandlesBackHoweverItEnds) {
  std::vector<HGDIOBJ> handles;
  {
    DibSurface surface;
    for (const int32_t width : {64, 32}) {
      ASSERT_TRUE(surface.Create(width, 32));
      EXPECT_EQ(surface.Pixels().size(), static_cast<size_t>(width) * 32);
      handles = {surface.Context(), GetCurrentObject(surface.Context(), OBJ_BITMAP)};
      for (const HGDIOBJ handle : handles) EXPECT_NE(GetObjectType(handle), 0u);
      if (width == 32) continue;
      EXPECT_FALSE(surface.Create(0, 32)) << "no bitmap of that size";
      for (const HGDIOBJ handle : handles) EXPECT_EQ(GetObjectType(handle), 0u);
    }
  }
  for (const HGDIOBJ handle : handles) EXPECT_EQ(GetObjectType(handle), 0u);
}

}  // namespace
}  // namespace cvn::agent
