#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "capture/capture_area.h"
#include "capture/display_system.h"
#include "capture/rect_plan.h"
#include "capture/screen_capturer.h"

namespace cvn::agent {

/// A machine's displays as a test paints them: one canvas for the virtual desktop, a list of monitors on it,
/// and the things that can go wrong. Starts black. Any thread.
class ScriptedScreen final : public DisplaySystem {
 public:
  /// One monitor at the origin.
  ScriptedScreen(int32_t width, int32_t height) { SetMonitors({{0, 0, width, height}}); }
  explicit ScriptedScreen(std::vector<PixelRect> monitors) { SetMonitors(std::move(monitors)); }

  /// Also makes the canvas anew, black, around the monitors. Capturers keep the area they were made with.
  void SetMonitors(std::vector<PixelRect> monitors) EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    desktop_ = monitors.empty() ? PixelRect{} : monitors.front();
    for (const PixelRect& monitor : monitors) {
      desktop_.left = std::min(desktop_.left, monitor.left);
      desktop_.top = std::min(desktop_.top, monitor.top);
      desktop_.right = std::max(desktop_.right, monitor.right);
      desktop_.bottom = std::max(desktop_.bottom, monitor.bottom);
    }
    monitors_ = std::move(monitors);
    canvas_.assign(static_cast<size_t>(desktop_.Width()) * static_cast<size_t>(desktop_.Height()), kBlack);
    paints_.push_back(desktop_);
  }

  /// Fills `area` (virtual-desktop coordinates, clipped) with the colour 0xRRGGBB and tells who waits for it.
  void Fill(const PixelRect& area, uint32_t rgb) EXCLUDES(mutex_) {
    PaintEach(area, [rgb](int32_t, int32_t) { return rgb; });
  }

  /// Fills `area` with `colourAt(x, y)`, called under the screen's lock.
  void PaintEach(const PixelRect& area, const std::function<uint32_t(int32_t x, int32_t y)>& colourAt)
      EXCLUDES(mutex_) {
    std::function<void()> touched;
    {
      MutexLock lock(mutex_);
      const PixelRect inside = Intersection(area, desktop_);
      for (int32_t y = inside.top; y < inside.bottom; ++y)
        for (int32_t x = inside.left; x < inside.right; ++x) canvas_[At(x, y)] = kBlack | colourAt(x, y);
      paints_.push_back(inside);
      touched = touched_;
    }
    if (touched) touched();
  }

  /// While false, every `Capture` returns false.
  void SetCapturable(bool capturable) { capturable_ = capturable; }
  /// While false, no capturer can be made: the error text is "scripted failure".
  void SetCreatable(bool creatable) { creatable_ = creatable; }
  /// Whether capturers say beside the frame which rectangles changed; they do not at first.
  void SetGivesHint(bool gives) { givesHint_ = gives; }
  void SetAttachable(bool attachable) { attachable_ = attachable; }

  int Captures() const { return captures_; }
  int CapturersMade() const { return capturersMade_; }
  int Attaches() const { return attaches_; }
  /// What the last capture was asked to do about the cursor.
  bool CursorShown() const { return cursorShown_; }

  /// Backends of this screen; the screen outlives them and their capturers. Only `fallback` is set.
  CaptureBackends Backends(std::function<void()> screenTouched = {}) EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    touched_ = std::move(screenTouched);
    return {{}, std::bind_front(&ScriptedScreen::MakeCapturer, this)};
  }

  std::vector<PixelRect> Monitors() override EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    return monitors_;
  }
  PixelRect VirtualDesktop() override EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    return desktop_;
  }
  bool AttachToInputDesktop() override {
    ++attaches_;
    return attachable_;
  }
  void DetachFromInputDesktop() override {}

 private:
  class Capturer;
  static constexpr uint32_t kBlack = 0xff000000;

  inline std::unique_ptr<ScreenCapturer> MakeCapturer(int32_t monitorIndex, std::string& error);

  size_t At(int32_t x, int32_t y) const REQUIRES(mutex_) {
    return static_cast<size_t>(y - desktop_.top) * static_cast<size_t>(desktop_.Width()) +
           static_cast<size_t>(x - desktop_.left);
  }
  uint32_t PixelAt(int32_t x, int32_t y) const REQUIRES(mutex_) {
    const bool inside = x >= desktop_.left && x < desktop_.right && y >= desktop_.top && y < desktop_.bottom;
    return inside ? canvas_[At(x, y)] : kBlack;
  }

  mutable Mutex mutex_;
  std::vector<PixelRect> monitors_ GUARDED_BY(mutex_);
  PixelRect desktop_ GUARDED_BY(mutex_);
  std::vector<uint32_t> canvas_ GUARDED_BY(mutex_);
  /// Everything that was ever painted, in order: a capturer remembers how far it has seen.
  std::vector<PixelRect> paints_ GUARDED_BY(mutex_);
  std::function<void()> touched_ GUARDED_BY(mutex_);
  std::atomic<bool> capturable_{true};
  std::atomic<bool> creatable_{true};
  std::atomic<bool> givesHint_{false};
  std::atomic<bool> attachable_{true};
  std::atomic<bool> cursorShown_{false};
  std::atomic<int> captures_{0};
  std::atomic<int> capturersMade_{0};
  std::atomic<int> attaches_{0};
};

/// Delivers its area of a `ScriptedScreen`; what lies outside the canvas is black.
class ScriptedScreen::Capturer final : public ScreenCapturer {
 public:
  Capturer(ScriptedScreen& screen, const CaptureArea& area) : screen_(screen), area_(area) {}

  int32_t OriginX() const override { return area_.originX; }
  int32_t OriginY() const override { return area_.originY; }
  int32_t Width() const override { return area_.width; }
  int32_t Height() const override { return area_.height; }
  int32_t MonitorIndex() const override { return area_.monitorIndex; }
  bool UsesDesktopDuplication() const override { return false; }
  void SetShowCursor(bool show) override { showCursor_ = show; }

  bool Capture(CapturedFrame& frame) override {
    MutexLock lock(screen_.mutex_);
    ++screen_.captures_;
    screen_.cursorShown_ = showCursor_;
    if (!screen_.capturable_) return false;
    const bool first = pixels_.empty();
    CopyArea();
    CollectChanges();
    frame = {.width = static_cast<uint32_t>(area_.width),
             .height = static_cast<uint32_t>(area_.height),
             .pixels = reinterpret_cast<const uint8_t*>(pixels_.data()),
             .byteSize = pixels_.size() * sizeof(uint32_t),
             .unchanged = !first && changed_.empty(),
             .changed = std::nullopt};
    if (screen_.givesHint_ && !first) frame.changed = changed_;
    return true;
  }

 private:
  void CopyArea() REQUIRES(screen_.mutex_) {
    pixels_.clear();
    for (int32_t y = 0; y < area_.height; ++y)
      for (int32_t x = 0; x < area_.width; ++x)
        pixels_.push_back(screen_.PixelAt(area_.originX + x, area_.originY + y));
  }

  /// The paints since the last capture, in frame coordinates.
  void CollectChanges() REQUIRES(screen_.mutex_) {
    changed_.clear();
    for (; seenPaints_ < screen_.paints_.size(); ++seenPaints_) {
      const PixelRect& paint = screen_.paints_[seenPaints_];
      const PixelRect moved = {paint.left - area_.originX, paint.top - area_.originY,
                               paint.right - area_.originX, paint.bottom - area_.originY};
      const PixelRect inFrame = Intersection(moved, {0, 0, area_.width, area_.height});
      if (!inFrame.Empty()) changed_.push_back(inFrame);
    }
  }

  ScriptedScreen& screen_;
  CaptureArea area_;
  bool showCursor_ = false;
  std::vector<uint32_t> pixels_;
  std::vector<PixelRect> changed_;
  size_t seenPaints_ = 0;
};

inline std::unique_ptr<ScreenCapturer> ScriptedScreen::MakeCapturer(int32_t monitorIndex,
                                                                    std::string& error) {
  const std::vector<PixelRect> monitors = OrderedMonitors(*this);
  MutexLock lock(mutex_);
  if (!creatable_) {
    error = "scripted failure";
    return nullptr;
  }
  ++capturersMade_;
  return std::make_unique<Capturer>(*this, ChooseCaptureArea(monitorIndex, monitors, desktop_));
}

}  // namespace cvn::agent
