#include "capture/win/cursor_painter.h"

#include <map>
#include <optional>

#include "base/mutex.h"
#include "capture/win/owned_handle.h"

namespace cvn::agent {
namespace {

/// The pixel of each cursor that points. Asking the system creates two bitmaps each time, and programs use
/// few cursors, so nothing is ever forgotten. Any thread.
class HotspotCache {
 public:
  POINT Of(HCURSOR cursor) EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    const auto known = hotspots_.find(cursor);
    return known != hotspots_.end() ? known->second : hotspots_.emplace(cursor, Ask(cursor)).first->second;
  }

 private:
  /// (0, 0) when the system does not tell.
  static POINT Ask(HCURSOR cursor) {
    ICONINFO info = {};
    if (!GetIconInfo(cursor, &info)) return {0, 0};
    const OwnedBitmap mask(info.hbmMask);
    const OwnedBitmap color(info.hbmColor);
    return {static_cast<LONG>(info.xHotspot), static_cast<LONG>(info.yHotspot)};
  }

  Mutex mutex_;
  std::map<HCURSOR, POINT> hotspots_ GUARDED_BY(mutex_);
};

HotspotCache& Hotspots() {
  static HotspotCache cache;
  return cache;
}

std::optional<CURSORINFO> ShowingCursor() {
  CURSORINFO info = {};
  info.cbSize = sizeof(info);
  // Exactly: a suppressed cursor (touch, pen) carries another flag.
  if (!GetCursorInfo(&info) || info.flags != CURSOR_SHOWING || info.hCursor == nullptr) return std::nullopt;
  return info;
}

}  // namespace

void DrawCursor(HDC context, int32_t originX, int32_t originY) {
  const auto cursor = ShowingCursor();
  if (!cursor) return;
  const POINT hotspot = Hotspots().Of(cursor->hCursor);
  DrawIconEx(context, cursor->ptScreenPos.x - hotspot.x - originX,
             cursor->ptScreenPos.y - hotspot.y - originY, cursor->hCursor, 0, 0, 0, nullptr, DI_NORMAL);
}

}  // namespace cvn::agent
