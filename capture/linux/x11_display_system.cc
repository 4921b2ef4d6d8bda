#include "capture/linux/x11_display_system.h"

#include <xcb/randr.h>

#include <utility>

#include "capture/linux/xcb_connection.h"

namespace cvn::agent {
namespace {

/// Asks the server anew each time: monitors come and go. The lock of the XCB connection makes it usable by
/// any thread.
class X11DisplaySystem final : public DisplaySystem {
 public:
  explicit X11DisplaySystem(std::unique_ptr<XcbConnection> connection)
      : connection_(std::move(connection)), knowsMonitors_(ServerKnowsMonitors()) {}

  std::vector<PixelRect> Monitors() override {
    if (knowsMonitors_) return RandrMonitors();
    const PixelRect root = VirtualDesktop();
    return root.Empty() ? std::vector<PixelRect>{} : std::vector{root};
  }

  PixelRect VirtualDesktop() override {
    const auto root =
        connection_->Await(xcb_get_geometry_reply, xcb_get_geometry(connection_->Get(), connection_->Root()));
    return root ? PixelRect{0, 0, root->width, root->height} : PixelRect{};
  }

  bool AttachToInputDesktop() override { return true; }
  void DetachFromInputDesktop() override {}

 private:
  /// Monitors, as apart from outputs, came with version 1.5.
  bool ServerKnowsMonitors() const {
    if (connection_->Extension(xcb_randr_id) == nullptr) return false;
    const auto version =
        connection_->Await(xcb_randr_query_version_reply, xcb_randr_query_version(connection_->Get(), 1, 5));
    return version && std::pair(version->major_version, version->minor_version) >= std::pair(1u, 5u);
  }

  std::vector<PixelRect> RandrMonitors() const {
    const auto reply = connection_->Await(xcb_randr_get_monitors_reply,
                                          xcb_randr_get_monitors(connection_->Get(), connection_->Root(), 1));
    std::vector<PixelRect> monitors;
    if (!reply) return monitors;
    for (auto it = xcb_randr_get_monitors_monitors_iterator(reply.get()); it.rem > 0;
         xcb_randr_monitor_info_next(&it)) {
      const xcb_randr_monitor_info_t& monitor = *it.data;
      monitors.push_back({monitor.x, monitor.y, monitor.x + monitor.width, monitor.y + monitor.height});
    }
    return monitors;
  }

  std::unique_ptr<XcbConnection> connection_;
  bool knowsMonitors_;
};

}  // namespace

std::unique_ptr<DisplaySystem> CreateX11DisplaySystem(std::string& error, const std::string& displayName) {
  auto connection = XcbConnection::Open(displayName, error);
  if (!connection) return nullptr;
  return std::make_unique<X11DisplaySystem>(std::move(connection));
}

}  // namespace cvn::agent
