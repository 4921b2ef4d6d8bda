#pragma once

#include <sys/uio.h>
#include <xcb/randr.h>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>
#include <xcb/xtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "capture/linux/xcb_connection.h"

namespace cvn::agent {

/// Another client of a test's X server: paints, moves things, and reads the server's own pixels. What it
/// asked for has happened, and everybody was told, when `Sync` returns.
class X11TestClient {
 public:
  explicit X11TestClient(const std::string& displayName) {
    std::string error;
    connection_ = XcbConnection::Open(displayName, error);
    if (!connection_) throw std::runtime_error(error);
    context_ = xcb_generate_id(Get());
    const uint32_t overWindows = XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS;
    xcb_create_gc(Get(), context_, Root(), XCB_GC_SUBWINDOW_MODE, &overWindows);
  }

  xcb_connection_t* Get() const { return connection_->Get(); }
  xcb_window_t Root() const { return connection_->Root(); }

  void Fill(const PixelRect& area, uint32_t rgb) {
    xcb_change_gc(Get(), context_, XCB_GC_FOREGROUND, &rgb);
    const xcb_rectangle_t rect = Rectangle(area);
    xcb_poly_fill_rectangle(Get(), Root(), context_, 1, &rect);
  }

  void Copy(const PixelRect& from, int32_t toX, int32_t toY) {
    const xcb_rectangle_t source = Rectangle(from);
    xcb_copy_area(Get(), Root(), Root(), context_, source.x, source.y, static_cast<int16_t>(toX),
                  static_cast<int16_t>(toY), source.width, source.height);
  }

  xcb_window_t ShowWindow(const PixelRect& area, uint32_t rgb) {
    const xcb_window_t window = xcb_generate_id(Get());
    const xcb_rectangle_t rect = Rectangle(area);
    xcb_create_window(Get(), XCB_COPY_FROM_PARENT, window, Root(), rect.x, rect.y, rect.width, rect.height, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL, &rgb);
    xcb_map_window(Get(), window);
    return window;
  }

  void MoveWindow(xcb_window_t window, int32_t x, int32_t y) {
    const uint32_t position[] = {static_cast<uint32_t>(x), static_cast<uint32_t>(y)};
    xcb_configure_window(Get(), window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, position);
  }

  /// Gives the root window a cursor of 16x16 pixels in one opaque colour, pointing with (`hotX`, `hotY`).
  void SetCursor(uint8_t red, uint8_t green, uint8_t blue, uint16_t hotX, uint16_t hotY) {
    const xcb_pixmap_t mask = xcb_generate_id(Get());
    const xcb_gcontext_t maskContext = xcb_generate_id(Get());
    const xcb_cursor_t cursor = xcb_generate_id(Get());
    const uint32_t set = 1;
    const xcb_rectangle_t all = {0, 0, 16, 16};
    xcb_create_pixmap(Get(), 1, mask, Root(), 16, 16);
    xcb_create_gc(Get(), maskContext, mask, XCB_GC_FOREGROUND, &set);
    xcb_poly_fill_rectangle(Get(), mask, maskContext, 1, &all);
    xcb_create_cursor(Get(), cursor, mask, mask, Full(red), Full(green), Full(blue), 0, 0, 0, hotX, hotY);
    xcb_change_window_attributes(Get(), Root(), XCB_CW_CURSOR, &cursor);
  }

  /// Moves the pointer as a device would.
  void PointTo(int32_t x, int32_t y) {
    xcb_test_fake_input(Get(), XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, Root(), static_cast<int16_t>(x),
                        static_cast<int16_t>(y), 0);
  }

  /// Moves the pointer as a program would.
  void WarpTo(int32_t x, int32_t y) {
    xcb_warp_pointer(Get(), XCB_NONE, Root(), 0, 0, 0, 0, static_cast<int16_t>(x), static_cast<int16_t>(y));
  }

  /// Written out, since `xcb_randr_set_monitor` of libxcb 1.15 sends a malformed request.
  void SetMonitor(const char* name, const PixelRect& area) {
    struct {
      uint8_t majorOpcode = 0;
      uint8_t minorOpcode = 0;
      uint16_t length = 0;
      uint32_t window = 0;
      xcb_randr_monitor_info_t monitor = {};
    } request;
    const xcb_rectangle_t rect = Rectangle(area);
    request.window = Root();
    request.monitor.name = Atom(name);
    request.monitor.x = rect.x;
    request.monitor.y = rect.y;
    request.monitor.width = rect.width;
    request.monitor.height = rect.height;
    const xcb_protocol_request_t kind = {
        .count = 1, .ext = &xcb_randr_id, .opcode = XCB_RANDR_SET_MONITOR, .isvoid = 1};
    iovec parts[3] = {};  // XCB uses the two in front.
    parts[2] = {.iov_base = &request, .iov_len = sizeof(request)};
    xcb_send_request(Get(), 0, &parts[2], &kind);
    Sync();
  }

  void DeleteMonitor(const char* name) {
    xcb_randr_delete_monitor(Get(), Root(), Atom(name));
    Sync();
  }

  /// Switches the only output off, without which the screen would have to stay at least as large as it.
  void SwitchOutputOff() {
    const auto resources = connection_->Await(xcb_randr_get_screen_resources_current_reply,
                                              xcb_randr_get_screen_resources_current(Get(), Root()));
    const xcb_randr_crtc_t crtc = *xcb_randr_get_screen_resources_current_crtcs(resources.get());
    connection_->Await(xcb_randr_set_crtc_config_reply,
                       xcb_randr_set_crtc_config(Get(), crtc, XCB_CURRENT_TIME, XCB_CURRENT_TIME, 0, 0, 0,
                                                 XCB_RANDR_ROTATION_ROTATE_0, 0, nullptr));
  }

  void ResizeScreen(uint16_t width, uint16_t height) {
    xcb_randr_set_screen_size(Get(), Root(), width, height, width / 4u, height / 4u);
    Sync();
  }

  /// Twice: the events that the first round caused are on their way to everybody before the second one is
  /// read.
  void Sync() const {
    for (int round = 0; round < 2; ++round)
      connection_->Await(xcb_get_input_focus_reply, xcb_get_input_focus(Get()));
  }

  /// The server's pixels of `area`, opaque.
  std::vector<uint32_t> Pixels(const PixelRect& area) const {
    const xcb_rectangle_t r = Rectangle(area);
    const auto reply = connection_->Await(
        xcb_get_image_reply,
        xcb_get_image(Get(), XCB_IMAGE_FORMAT_Z_PIXMAP, Root(), r.x, r.y, r.width, r.height, ~0u));
    if (!reply) throw std::runtime_error("the server does not deliver its pixels");
    const auto* first = reinterpret_cast<const uint32_t*>(xcb_get_image_data(reply.get()));
    std::vector<uint32_t> pixels(first, first + r.width * r.height);
    for (uint32_t& pixel : pixels) pixel |= 0xff000000;
    return pixels;
  }

 private:
  static xcb_rectangle_t Rectangle(const PixelRect& area) {
    return {static_cast<int16_t>(area.left), static_cast<int16_t>(area.top),
            static_cast<uint16_t>(area.Width()), static_cast<uint16_t>(area.Height())};
  }
  static uint16_t Full(uint8_t color) { return static_cast<uint16_t>(color * 0x101); }

  xcb_atom_t Atom(const std::string& name) const {
    return connection_
        ->Await(xcb_intern_atom_reply,
                xcb_intern_atom(Get(), 0, static_cast<uint16_t>(name.size()), name.c_str()))
        ->atom;
  }

  std::unique_ptr<XcbConnection> connection_;
  xcb_gcontext_t context_ = 0;
};

}  // namespace cvn::agent
