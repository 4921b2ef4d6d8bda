#pragma once

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "base/geometry.h"

namespace cvn::agent {

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};

/// A reply, event or error of the X server.
template <typename T>
using XcbOwned = std::unique_ptr<T, FreeMemory>;

/// A connection to an X server and the screen it names.
///
/// XCB rather than Xlib: errors come back to the call that caused them, without handlers that the whole
/// process shares, and a server that goes away fails the calls instead of ending the process. Any thread.
class XcbConnection {
 public:
  /// `displayName` empty means $DISPLAY. Null with `error` set when nobody answers there.
  static std::unique_ptr<XcbConnection> Open(const std::string& displayName, std::string& error);

  ~XcbConnection() { xcb_disconnect(connection_); }
  XcbConnection(const XcbConnection&) = delete;
  XcbConnection& operator=(const XcbConnection&) = delete;

  xcb_connection_t* Get() const { return connection_; }
  const xcb_screen_t& Screen() const { return *screen_; }
  xcb_window_t Root() const { return screen_->root; }
  /// False for good once the server is gone.
  bool Alive() const { return xcb_connection_has_error(connection_) == 0; }
  /// The server's description of an extension; null when it has none of that name.
  const xcb_query_extension_reply_t* Extension(xcb_extension_t& extension) const;
  /// The reply to `request`, made just before; null on failure.
  template <typename Reply, typename Cookie>
  XcbOwned<Reply> Await(Reply* (*reply)(xcb_connection_t*, Cookie, xcb_generic_error_t**),
                        Cookie request) const {
    return XcbOwned<Reply>(reply(connection_, request, nullptr));
  }

 private:
  XcbConnection(xcb_connection_t* connection, const xcb_screen_t* screen)
      : connection_(connection), screen_(screen) {}

  xcb_connection_t* connection_;
  const xcb_screen_t* screen_;
};

}  // namespace cvn::agent
