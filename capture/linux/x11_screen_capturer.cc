#include "capture/linux/x11_screen_capturer.h"

#include <xcb/randr.h>
#include <xcb/xcb.h>

#include <optional>
#include <utility>
#include <vector>

#include "capture/capture_area.h"
#include "capture/cursor_overlay.h"
#include "capture/kept_frame.h"
#include "capture/linux/screen_reader.h"
#include "capture/linux/touch_watch.h"
#include "capture/linux/x11_cursor.h"
#include "capture/linux/x11_damage.h"
#include "capture/linux/xcb_connection.h"
#include "capture/rect_plan.h"

namespace cvn::agent {
namespace {

/// Keeps the picture of its area up to date by reading what was damaged.
class X11ScreenCapturer final : public ScreenCapturer {
 public:
  X11ScreenCapturer(int32_t monitorIndex, DisplaySystem& displays, std::unique_ptr<XcbConnection> connection,
                    std::unique_ptr<ScreenReader> reader, std::function<void()> touched)
      : requestedIndex_(monitorIndex),
        displays_(displays),
        connection_(std::move(connection)),
        reader_(std::move(reader)),
        damage_(*connection_),
        cursor_(*connection_),
        watch_(xcb_get_file_descriptor(connection_->Get()), std::move(touched)) {
    SelectGeometryEvents();
  }

  /// Takes over where the area lies now; once before the first capture. False when there is no screen to ask.
  bool FollowGeometry();

  int32_t OriginX() const override { return area_.originX; }
  int32_t OriginY() const override { return area_.originY; }
  int32_t Width() const override { return area_.width; }
  int32_t Height() const override { return area_.height; }
  int32_t MonitorIndex() const override { return area_.monitorIndex; }
  bool UsesDesktopDuplication() const override { return false; }
  void SetShowCursor(bool show) override { cursor_.Follow(show); }
  bool Capture(CapturedFrame& frame) override;

 private:
  void SelectGeometryEvents();
  bool TakePicture(CapturedFrame& frame);
  bool NoticeAll(xcb_generic_event_t* (*next)(xcb_connection_t*));
  bool IsGeometryEvent(const xcb_generic_event_t& event) const;
  bool UpdatePicture();
  bool ChooseReads();
  bool ReadPixels();
  void Deliver(CapturedFrame& frame);

  /// What was asked for: when that monitor comes back after a change of displays, it is captured again.
  const int32_t requestedIndex_;
  DisplaySystem& displays_;
  std::unique_ptr<XcbConnection> connection_;
  std::unique_ptr<ScreenReader> reader_;
  X11Damage damage_;
  X11Cursor cursor_;
  uint8_t randrFirstEvent_ = 0;

  CaptureArea area_;
  /// The part of the area that lies on the root window, in its coordinates. The rest stays black.
  PixelRect visible_;
  bool geometryStale_ = false;
  /// The next picture is read whole, whatever was damaged.
  bool wholeReadDue_ = true;
  /// Nothing is known of the next picture's difference to the one before.
  bool anew_ = true;

  KeptFrame kept_;
  CursorOverlay overlay_;
  std::optional<X11Cursor::Position> drawnAt_;
  std::vector<PixelRect> reads_;
  std::vector<PixelRect> changed_;

  /// Last, so that its thread ends first.
  TouchWatch watch_;
};

void X11ScreenCapturer::SelectGeometryEvents() {
  xcb_connection_t* connection = connection_->Get();
  // A new monitor list without a new size arrives as a root window configured to what it was.
  const uint32_t structure = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
  xcb_change_window_attributes(connection, connection_->Root(), XCB_CW_EVENT_MASK, &structure);
  const auto* randr = connection_->Extension(xcb_randr_id);
  if (randr == nullptr) return;
  randrFirstEvent_ = randr->first_event;
  connection_->Await(xcb_randr_query_version_reply, xcb_randr_query_version(connection, 1, 5));
  xcb_randr_select_input(connection, connection_->Root(),
                         XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE);
}

bool X11ScreenCapturer::FollowGeometry() {
  const PixelRect root = displays_.VirtualDesktop();
  if (root.Empty()) return false;
  const CaptureArea area = ChooseCaptureArea(requestedIndex_, OrderedMonitors(displays_), root);
  const PixelRect visible =
      Intersection({area.originX, area.originY, area.originX + area.width, area.originY + area.height}, root);
  geometryStale_ = false;
  // A server may put another picture in place when it changes modes, without calling that damage.
  wholeReadDue_ = true;
  if (area == area_ && visible == visible_) return true;
  area_ = area;
  visible_ = visible;
  kept_.Resize(area.width, area.height);
  overlay_.Forget();
  drawnAt_.reset();
  anew_ = true;
  return true;
}

bool X11ScreenCapturer::Capture(CapturedFrame& frame) {
  watch_.Pause();
  const bool taken = TakePicture(frame);
  // What came in between two replies stands in XCB's own queue, where the watch cannot see it. A dead
  // connection is not watched any more: it would be "touched" for ever.
  const bool touched = NoticeAll(xcb_poll_for_queued_event);
  if (connection_->Alive()) watch_.Resume(touched);
  return taken;
}

bool X11ScreenCapturer::TakePicture(CapturedFrame& frame) {
  NoticeAll(xcb_poll_for_event);
  // A second time because the screen may have become smaller before its event could be read.
  for (int attempt = 0; attempt < 2 && connection_->Alive(); ++attempt) {
    if (geometryStale_ && !FollowGeometry()) return false;
    if (UpdatePicture()) {
      Deliver(frame);
      return true;
    }
    geometryStale_ = true;
    anew_ = true;  // What was taken from the damage and not read is lost.
  }
  return false;
}

/// True when there was any event.
bool X11ScreenCapturer::NoticeAll(xcb_generic_event_t* (*next)(xcb_connection_t*)) {
  bool any = false;
  while (const auto event = XcbOwned<xcb_generic_event_t>(next(connection_->Get()))) {
    any = true;
    cursor_.Notice(*event);
    if (!damage_.Notice(*event)) geometryStale_ = geometryStale_ || IsGeometryEvent(*event);
  }
  return any;
}

bool X11ScreenCapturer::IsGeometryEvent(const xcb_generic_event_t& event) const {
  const int type = event.response_type & 0x7f;
  if (type == XCB_CONFIGURE_NOTIFY) return true;
  return randrFirstEvent_ != 0 && (type == randrFirstEvent_ + XCB_RANDR_SCREEN_CHANGE_NOTIFY ||
                                   type == randrFirstEvent_ + XCB_RANDR_NOTIFY);
}

/// Brings the kept picture up to date and lists what that changed. After false it is to be read anew.
bool X11ScreenCapturer::UpdatePicture() {
  changed_.clear();
  std::optional<CursorImage> image = cursor_.NewImage();
  const std::optional<X11Cursor::Position> at = cursor_.Where();
  const bool cursorChanges = image || at != drawnAt_;
  if (!ChooseReads()) return false;
  if (reads_.empty() && !cursorChanges) return true;

  const PixelRect leaves = overlay_.Covered();
  overlay_.Lift(kept_);
  const bool complete = ReadPixels();
  if (image) overlay_.SetImage(*std::move(image));
  if (at) overlay_.Draw(kept_, at->x - area_.originX, at->y - area_.originY);
  drawnAt_ = at;
  if (!cursorChanges) return complete;
  for (const PixelRect& touched : {leaves, overlay_.Covered()})
    if (!touched.Empty()) changed_.push_back(touched);
  return complete;
}

/// False when the server does not say what was damaged.
bool X11ScreenCapturer::ChooseReads() {
  reads_.clear();
  if (damage_.Any() && !damage_.Take(reads_)) return false;
  if (std::exchange(wholeReadDue_, false) || anew_) reads_.assign(1, visible_);
  PlanReads(reads_, visible_);
  return true;
}

bool X11ScreenCapturer::ReadPixels() {
  return reader_->Read(reads_, [this](const PixelRect& area, std::span<const uint32_t> pixels) {
    const PixelRect inFrame = {area.left - area_.originX, area.top - area_.originY,
                               area.right - area_.originX, area.bottom - area_.originY};
    const PixelRect rows = kept_.Absorb(inFrame, pixels, static_cast<size_t>(area.Width()));
    if (!rows.Empty()) changed_.push_back(rows);
  });
}

void X11ScreenCapturer::Deliver(CapturedFrame& frame) {
  frame = {};
  kept_.Describe(frame);
  if (!std::exchange(anew_, false)) {
    frame.unchanged = changed_.empty();
    frame.changed = changed_;
  }
}

}  // namespace

CaptureBackends CreateX11CaptureBackends(DisplaySystem& displays, std::function<void()> screenTouched,
                                         const std::string& displayName) {
  return {.duplication = {},
          .fallback = [&displays, screenTouched = std::move(screenTouched), displayName](
                          int32_t monitorIndex, std::string& error) -> std::unique_ptr<ScreenCapturer> {
            auto connection = XcbConnection::Open(displayName, error);
            if (!connection) return nullptr;
            auto reader = ScreenReader::Create(*connection, error);
            if (!reader) return nullptr;
            auto capturer = std::make_unique<X11ScreenCapturer>(monitorIndex, displays, std::move(connection),
                                                                std::move(reader), screenTouched);
            if (capturer->FollowGeometry()) return capturer;
            error = "the X server does not say how large its screen is";
            return nullptr;
          }};
}

}  // namespace cvn::agent
