#include "capture/win/dib_surface.h"

#include <utility>

namespace cvn::agent {
namespace {

BITMAPINFO TopDownInfo(int32_t width, int32_t height) {
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = -height;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  info.bmiHeader.biCompression = BI_RGB;
  info.bmiHeader.biSizeImage = static_cast<DWORD>(width) * static_cast<DWORD>(height) * 4;
  return info;
}

}  // namespace

bool DibSurface::Create(int32_t width, int32_t height) {
  Release();
  const OwnedScreenContext screen = OpenScreenContext();
  if (!screen) return false;
  OwnedMemoryContext context(CreateCompatibleDC(screen.Get()));
  const BITMAPINFO info = TopDownInfo(width, height);
  void* bits = nullptr;
  OwnedBitmap bitmap(CreateDIBSection(context.Get(), &info, DIB_RGB_COLORS, &bits, nullptr, 0));
  if (!context || !bitmap || bits == nullptr) return false;

  displaced_ = SelectObject(context.Get(), bitmap.Get());
  context_ = std::move(context);
  bitmap_ = std::move(bitmap);
  pixels_ = {static_cast<uint32_t*>(bits), static_cast<size_t>(width) * static_cast<size_t>(height)};
  return true;
}

/// A bitmap that is still selected cannot be deleted, so the displaced one goes back first.
void DibSurface::Release() {
  if (displaced_ != nullptr) SelectObject(context_.Get(), std::exchange(displaced_, nullptr));
  bitmap_ = OwnedBitmap();
  context_ = OwnedMemoryContext();
  pixels_ = {};
}

}  // namespace cvn::agent
