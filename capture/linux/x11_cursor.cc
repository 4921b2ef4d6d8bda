#include "capture/linux/x11_cursor.h"

#include <xcb/xfixes.h>
#include <xcb/xinput.h>

namespace cvn::agent {

X11Cursor::X11Cursor(XcbConnection& connection) : connection_(connection) {
  const auto* fixes = connection_.Extension(xcb_xfixes_id);
  if (fixes == nullptr) return;
  firstEvent_ = fixes->first_event;
  available_ = connection_.Await(xcb_xfixes_query_version_reply,
                                 xcb_xfixes_query_version(connection_.Get(), 2, 0)) != nullptr;
  // From version 2.1 on raw motion also arrives while another client has grabbed the pointer.
  sendsMotion_ = connection_.Extension(xcb_input_id) != nullptr &&
                 connection_.Await(xcb_input_xi_query_version_reply,
                                   xcb_input_xi_query_version(connection_.Get(), 2, 1)) != nullptr;
}

void X11Cursor::Follow(bool follow) {
  if (!available_ || follow == followed_) return;
  followed_ = follow;
  imageStale_ = follow;
  SelectEvents(follow);
  xcb_flush(connection_.Get());
}

/// Motion only wakes whoever waits for it: positions are asked for, since a pointer can also be moved by a
/// client, without raw events.
void X11Cursor::SelectEvents(bool select) {
  xcb_xfixes_select_cursor_input(connection_.Get(), connection_.Root(),
                                 select ? XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR : 0);
  if (!sendsMotion_) return;
  const uint32_t motion = XCB_INPUT_XI_EVENT_MASK_RAW_MOTION;
  struct {
    xcb_input_event_mask_t head;
    uint32_t mask;
  } const wanted = {.head = {.deviceid = XCB_INPUT_DEVICE_ALL_MASTER, .mask_len = 1},
                    .mask = select ? motion : 0};
  xcb_input_xi_select_events(connection_.Get(), connection_.Root(), 1, &wanted.head);
}

void X11Cursor::Notice(const xcb_generic_event_t& event) {
  if (followed_ && (event.response_type & 0x7f) == firstEvent_ + XCB_XFIXES_CURSOR_NOTIFY) imageStale_ = true;
}

std::optional<X11Cursor::Position> X11Cursor::Where() const {
  if (!followed_) return std::nullopt;
  const auto pointer =
      connection_.Await(xcb_query_pointer_reply, xcb_query_pointer(connection_.Get(), connection_.Root()));
  if (!pointer || !pointer->same_screen) return std::nullopt;
  return Position{pointer->root_x, pointer->root_y};
}

std::optional<CursorImage> X11Cursor::NewImage() {
  if (!followed_ || !imageStale_) return std::nullopt;
  const auto reply =
      connection_.Await(xcb_xfixes_get_cursor_image_reply, xcb_xfixes_get_cursor_image(connection_.Get()));
  if (!reply) return std::nullopt;
  imageStale_ = false;
  CursorImage image = {
      .width = reply->width, .height = reply->height, .hotX = reply->xhot, .hotY = reply->yhot, .pixels = {}};
  const uint32_t* pixels = xcb_xfixes_get_cursor_image_cursor_image(reply.get());
  image.pixels.assign(pixels, pixels + xcb_xfixes_get_cursor_image_cursor_image_length(reply.get()));
  return image;
}

}  // namespace cvn::agent
