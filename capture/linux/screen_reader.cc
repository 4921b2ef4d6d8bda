#include "capture/linux/screen_reader.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <optional>
#include <utility>

namespace cvn::agent {
namespace {

constexpr uint32_t kAllPlanes = ~0u;

size_t PixelCount(const PixelRect& area) {
  return static_cast<size_t>(area.Width()) * static_cast<size_t>(area.Height());
}

int16_t Coordinate(int32_t value) {
  return static_cast<int16_t>(value);
}
uint16_t Extent(int32_t value) {
  return static_cast<uint16_t>(value);
}

uint8_t BitsPerPixel(const xcb_setup_t* setup, uint8_t depth) {
  for (auto it = xcb_setup_pixmap_formats_iterator(setup); it.rem > 0; xcb_format_next(&it))
    if (it.data->depth == depth) return it.data->bits_per_pixel;
  return 0;
}

const xcb_visualtype_t* RootVisual(const xcb_screen_t& screen) {
  for (auto depths = xcb_screen_allowed_depths_iterator(&screen); depths.rem > 0; xcb_depth_next(&depths))
    for (auto it = xcb_depth_visuals_iterator(depths.data); it.rem > 0; xcb_visualtype_next(&it))
      if (it.data->visual_id == screen.root_visual) return it.data;
  return nullptr;
}

std::optional<PixelLayout> RootLayout(const XcbConnection& connection) {
  const xcb_setup_t* setup = xcb_get_setup(connection.Get());
  const uint8_t depth = connection.Screen().root_depth;
  const xcb_visualtype_t* visual = RootVisual(connection.Screen());
  if (visual == nullptr || (depth != 24 && depth != 32) || BitsPerPixel(setup, depth) != 32)
    return std::nullopt;
  return PixelLayout::From({.red = visual->red_mask,
                            .green = visual->green_mask,
                            .blue = visual->blue_mask,
                            .mostSignificantFirst = setup->image_byte_order == XCB_IMAGE_ORDER_MSB_FIRST});
}

}  // namespace

bool SharedPicture::Reserve(size_t pixels) {
  if (pixels <= capacityPixels_) return true;
  Release();
  const int memoryId = shmget(IPC_PRIVATE, pixels * sizeof(uint32_t), IPC_CREAT | 0600);
  if (memoryId < 0) return false;
  void* memory = shmat(memoryId, nullptr, 0);
  const bool mapped = memory != reinterpret_cast<void*>(-1);
  const bool attached = mapped && AttachServer(memoryId);
  // Marked for removal at once: it goes with its last user, however this process ends.
  shmctl(memoryId, IPC_RMID, nullptr);
  if (!attached) {
    if (mapped) shmdt(memory);
    return false;
  }
  pixels_ = static_cast<uint32_t*>(memory);
  capacityPixels_ = pixels;
  return true;
}

bool SharedPicture::AttachServer(int memoryId) {
  const xcb_shm_seg_t segment = xcb_generate_id(connection_.Get());
  const XcbOwned<xcb_generic_error_t> failure(xcb_request_check(
      connection_.Get(),
      xcb_shm_attach_checked(connection_.Get(), segment, static_cast<uint32_t>(memoryId), 0)));
  if (failure || !connection_.Alive()) return false;
  segment_ = segment;
  return true;
}

void SharedPicture::Release() {
  if (pixels_ == nullptr) return;
  xcb_shm_detach(connection_.Get(), segment_);
  shmdt(pixels_);
  pixels_ = nullptr;
  capacityPixels_ = 0;
}

std::unique_ptr<ScreenReader> ScreenReader::Create(XcbConnection& connection, std::string& error) {
  const auto layout = RootLayout(connection);
  if (!layout) {
    error = "the X screen's pixels (depth " + std::to_string(connection.Screen().root_depth) +
            ") cannot be captured: 32 bits with one byte for each color are needed";
    return nullptr;
  }
  return std::unique_ptr<ScreenReader>(new ScreenReader(connection, *layout));
}

ScreenReader::ScreenReader(XcbConnection& connection, const PixelLayout& layout)
    : connection_(connection),
      layout_(layout),
      sharesMemory_(connection.Extension(xcb_shm_id) != nullptr),
      picture_(connection) {}

bool ScreenReader::Read(std::span<const PixelRect> areas, const TakePixels& take) {
  size_t pixels = 0;
  for (const PixelRect& area : areas) pixels += PixelCount(area);
  sharesMemory_ = sharesMemory_ && picture_.Reserve(pixels);
  return sharesMemory_ ? ReadShared(areas, take) : ReadPlain(areas, take);
}

bool ScreenReader::ReadShared(std::span<const PixelRect> areas, const TakePixels& take) {
  sharedRequests_.clear();
  size_t offset = 0;
  for (const PixelRect& area : areas) {
    sharedRequests_.push_back(
        xcb_shm_get_image(connection_.Get(), connection_.Root(), Coordinate(area.left), Coordinate(area.top),
                          Extent(area.Width()), Extent(area.Height()), kAllPlanes, XCB_IMAGE_FORMAT_Z_PIXMAP,
                          picture_.Segment(), static_cast<uint32_t>(offset * sizeof(uint32_t))));
    offset += PixelCount(area);
  }
  bool complete = true;
  offset = 0;
  for (size_t i = 0; i < areas.size(); ++i) {
    const auto pixels = picture_.Pixels().subspan(offset, PixelCount(areas[i]));
    offset += pixels.size();
    const auto reply = connection_.Await(xcb_shm_get_image_reply, sharedRequests_[i]);
    complete = complete && reply;
    if (!reply) continue;
    if (!layout_.IsBgrx()) layout_.ToBgrx(pixels);
    take(areas[i], pixels);
  }
  return complete;
}

bool ScreenReader::ReadPlain(std::span<const PixelRect> areas, const TakePixels& take) {
  plainRequests_.clear();
  for (const PixelRect& area : areas)
    plainRequests_.push_back(xcb_get_image(connection_.Get(), XCB_IMAGE_FORMAT_Z_PIXMAP, connection_.Root(),
                                           Coordinate(area.left), Coordinate(area.top), Extent(area.Width()),
                                           Extent(area.Height()), kAllPlanes));
  bool complete = true;
  for (size_t i = 0; i < areas.size(); ++i) {
    const auto reply = connection_.Await(xcb_get_image_reply, plainRequests_[i]);
    const size_t needed = PixelCount(areas[i]);
    const bool whole =
        reply && static_cast<size_t>(xcb_get_image_data_length(reply.get())) >= needed * sizeof(uint32_t);
    complete = complete && whole;
    if (!whole) continue;
    // The data follows a header of 32 bytes in memory of malloc's alignment.
    const std::span pixels(reinterpret_cast<uint32_t*>(xcb_get_image_data(reply.get())), needed);
    if (!layout_.IsBgrx()) layout_.ToBgrx(pixels);
    take(areas[i], pixels);
  }
  return complete;
}

}  // namespace cvn::agent
