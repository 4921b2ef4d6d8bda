#include "capture/win/win_display_system.h"

#include <windows.h>

#include <mutex>

#include "capture/win/input_desktop.h"

namespace cvn::agent {
namespace {

/// Without this the system would lie to the process about sizes and positions on scaled displays. The newest
/// way is looked up, since not every Windows 10 has it.
void EnsureDpiAwareness() {
  static std::once_flag once;
  std::call_once(once, [] {
    using SetContext = BOOL(WINAPI*)(HANDLE);
    const auto perMonitorAwareV2 = reinterpret_cast<HANDLE>(static_cast<INT_PTR>(-4));
    const HMODULE user32 = GetModuleHandleW(L"user32.dll");
    const FARPROC found =
        user32 != nullptr ? GetProcAddress(user32, "SetProcessDpiAwarenessContext") : nullptr;
    const auto setContext = reinterpret_cast<SetContext>(reinterpret_cast<void*>(found));
    if (setContext == nullptr || !setContext(perMonitorAwareV2)) SetProcessDPIAware();
  });
}

BOOL CALLBACK AppendMonitor(HMONITOR monitor, HDC, RECT*, LPARAM list) {
  MONITORINFO info = {};
  info.cbSize = sizeof(info);
  if (GetMonitorInfoW(monitor, &info)) {
    const RECT& r = info.rcMonitor;
    reinterpret_cast<std::vector<PixelRect>*>(list)->push_back({r.left, r.top, r.right, r.bottom});
  }
  return TRUE;
}

class WinDisplaySystem final : public DisplaySystem {
 public:
  std::vector<PixelRect> Monitors() override {
    std::vector<PixelRect> monitors;
    EnumDisplayMonitors(nullptr, nullptr, AppendMonitor, reinterpret_cast<LPARAM>(&monitors));
    return monitors;
  }

  PixelRect VirtualDesktop() override {
    const int left = GetSystemMetrics(SM_XVIRTUALSCREEN);
    const int top = GetSystemMetrics(SM_YVIRTUALSCREEN);
    return {left, top, left + GetSystemMetrics(SM_CXVIRTUALSCREEN),
            top + GetSystemMetrics(SM_CYVIRTUALSCREEN)};
  }

  bool AttachToInputDesktop() override { return agent::AttachToInputDesktop(); }
  void DetachFromInputDesktop() override { agent::DetachFromInputDesktop(); }
};

}  // namespace

std::unique_ptr<DisplaySystem> CreateWinDisplaySystem() {
  EnsureDpiAwareness();
  return std::make_unique<WinDisplaySystem>();
}

}  // namespace cvn::agent
