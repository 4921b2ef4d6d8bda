#include "capture/linux/xcb_connection.h"

namespace cvn::agent {
namespace {

const xcb_screen_t* ScreenNumber(xcb_connection_t* connection, int number) {
  xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
  while (screens.rem > 0 && number-- > 0) xcb_screen_next(&screens);
  return screens.rem > 0 ? screens.data : nullptr;
}

std::string ConnectFailure(int code, const std::string& displayName) {
  if (code == XCB_CONN_CLOSED_PARSE_ERR && displayName.empty())
    return "no X server: DISPLAY is not set or names none";
  const std::string server = displayName.empty() ? "the X server" : "the X server \"" + displayName + "\"";
  switch (code) {
    case XCB_CONN_CLOSED_PARSE_ERR:
      return "\"" + displayName + "\" is not the name of an X display";
    case XCB_CONN_CLOSED_INVALID_SCREEN:
      return server + " has no such screen";
    default:
      return "could not connect to " + server;
  }
}

}  // namespace

std::unique_ptr<XcbConnection> XcbConnection::Open(const std::string& displayName, std::string& error) {
  int screenNumber = 0;
  xcb_connection_t* connection =
      xcb_connect(displayName.empty() ? nullptr : displayName.c_str(), &screenNumber);
  int failure = xcb_connection_has_error(connection);
  const xcb_screen_t* screen = failure == 0 ? ScreenNumber(connection, screenNumber) : nullptr;
  if (failure == 0 && screen == nullptr) failure = XCB_CONN_CLOSED_INVALID_SCREEN;
  if (failure != 0) {
    error = ConnectFailure(failure, displayName);
    xcb_disconnect(connection);
    return nullptr;
  }
  return std::unique_ptr<XcbConnection>(new XcbConnection(connection, screen));
}

const xcb_query_extension_reply_t* XcbConnection::Extension(xcb_extension_t& extension) const {
  const xcb_query_extension_reply_t* data = xcb_get_extension_data(connection_, &extension);
  return data != nullptr && data->present ? data : nullptr;
}

}  // namespace cvn::agent
