#include "capture/linux/x11_damage.h"

#include <cstddef>
#include <limits>

namespace cvn::agent {
namespace {

constexpr int32_t kFarthest = std::numeric_limits<uint16_t>::max();
/// A region in more pieces than this is taken as its bounding box.
constexpr int kMaxPieces = 4096;

PixelRect ToPixelRect(const xcb_rectangle_t& r) {
  return {r.x, r.y, r.x + r.width, r.y + r.height};
}

}  // namespace

X11Damage::X11Damage(XcbConnection& connection) : connection_(connection) {
  const auto* damage = connection_.Extension(xcb_damage_id);
  if (damage == nullptr || connection_.Extension(xcb_xfixes_id) == nullptr) return;
  firstEvent_ = damage->first_event;
  Create();
}

void X11Damage::Create() {
  xcb_connection_t* connection = connection_.Get();
  // A client has to tell its versions before anything else is granted.
  const auto fixesRequest = xcb_xfixes_query_version(connection, 2, 0);
  const auto damageRequest = xcb_damage_query_version(connection, 1, 1);
  const auto fixes = connection_.Await(xcb_xfixes_query_version_reply, fixesRequest);
  const auto damage = connection_.Await(xcb_damage_query_version_reply, damageRequest);
  if (!fixes || !damage) return;
  damage_ = xcb_generate_id(connection);
  taken_ = xcb_generate_id(connection);
  xcb_damage_create(connection, damage_, connection_.Root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
  xcb_xfixes_create_region(connection, taken_, 0, nullptr);
}

bool X11Damage::Notice(const xcb_generic_event_t& event) {
  if (damage_ == 0 || (event.response_type & 0x7f) != firstEvent_ + XCB_DAMAGE_NOTIFY) return false;
  any_ = true;
  return true;
}

bool X11Damage::Take(std::vector<PixelRect>& rects) {
  if (damage_ == 0) {
    rects.push_back({0, 0, kFarthest, kFarthest});
    return true;
  }
  any_ = false;
  xcb_damage_subtract(connection_.Get(), damage_, XCB_NONE, taken_);
  const auto reply =
      connection_.Await(xcb_xfixes_fetch_region_reply, xcb_xfixes_fetch_region(connection_.Get(), taken_));
  if (!reply) return false;
  const int pieces = xcb_xfixes_fetch_region_rectangles_length(reply.get());
  if (pieces > kMaxPieces) {
    rects.push_back(ToPixelRect(reply->extents));
    return true;
  }
  const xcb_rectangle_t* first = xcb_xfixes_fetch_region_rectangles(reply.get());
  for (int i = 0; i < pieces; ++i) rects.push_back(ToPixelRect(first[i]));
  return true;
}

}  // namespace cvn::agent
