#include "view/canvas_memory.h"

#include <new>

#include "view/text.h"

namespace cvn::view {

std::span<uint8_t> PrivateCanvasMemory::Renew(PictureSize size, const CanvasProgress&,
                                              std::string& error) try {
  pixels_ = {};
  pixels_.resize(static_cast<size_t>(size.Pixels()) * 4);
  return pixels_;
} catch (const std::bad_alloc&) {
  error = FormatText("no memory for a picture of %dx%d", size.width, size.height);
  return {};
}

void PrivateCanvasMemory::Publish(const CanvasProgress&) {}

}  // namespace cvn::view
