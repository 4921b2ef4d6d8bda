#include "capture/win/input_desktop.h"

#include <windows.h>

#include <utility>

#include "capture/win/owned_handle.h"

namespace cvn::agent {
namespace {

constexpr DWORD kCaptureAccess = DESKTOP_READOBJECTS | DESKTOP_WRITEOBJECTS | DESKTOP_SWITCHDESKTOP;
static_assert(kCaptureAccess == 0x181);

/// The desktop a thread had before its first attach (the system's, not ours to close) and the one it was
/// attached to last.
struct ThreadDesktops {
  HDESK home = nullptr;
  OwnedDesktop attached;
};

thread_local ThreadDesktops desktops;

}  // namespace

bool AttachToInputDesktop() {
  OwnedDesktop input(OpenInputDesktop(0, FALSE, kCaptureAccess));
  if (!input) return false;
  if (desktops.home == nullptr) desktops.home = GetThreadDesktop(GetCurrentThreadId());
  if (!SetThreadDesktop(input.Get())) return false;
  // The swap leaves the former desktop in `input`, which closes it: only now is it out of use.
  desktops.attached = std::move(input);
  return true;
}

void DetachFromInputDesktop() {
  if (desktops.home != nullptr) SetThreadDesktop(desktops.home);
  desktops.attached = OwnedDesktop();
  desktops.home = nullptr;
}

}  // namespace cvn::agent
