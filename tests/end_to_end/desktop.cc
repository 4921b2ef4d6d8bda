#include "tests/end_to_end/desktop.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <vector>

namespace cvn::end_to_end {
namespace {

constexpr int kTextWidth = 600;
constexpr int kLineHeight = 16;
constexpr unsigned long kBlack = 0x000000;
constexpr unsigned long kWhite = 0xffffff;

void RunXrandr(const std::string& arguments) {
  if (std::system(("xrandr " + arguments).c_str()) != 0) throw std::runtime_error("xrandr failed");
}

}  // namespace

/// A window's contents are its background pixmap: the server repaints it without our help when it is
/// uncovered.
struct Desktop::State {
  struct Contents {
    Pixmap pixmap;
    int width;
    int height;
  };

  Display* display = XOpenDisplay(nullptr);
  Window root = display != nullptr ? DefaultRootWindow(display) : 0;
  bool resized = false;
  GC gc = nullptr;
  std::map<WindowId, Contents> windows;

  /// What Xlib remembers of the screen's size is not always the present one.
  XWindowAttributes Screen() const {
    XWindowAttributes attributes{};
    XGetWindowAttributes(display, root, &attributes);
    return attributes;
  }

  Contents MakeContents(int width, int height) {
    const Pixmap pixmap =
        XCreatePixmap(display, root, static_cast<unsigned>(width), static_cast<unsigned>(height),
                      static_cast<unsigned>(DefaultDepth(display, 0)));
    XSetForeground(display, gc, kWhite);
    XFillRectangle(display, pixmap, gc, 0, 0, static_cast<unsigned>(width), static_cast<unsigned>(height));
    return {pixmap, width, height};
  }

  WindowId OpenWindow(int x, int y, int width, int height) {
    const Contents contents = MakeContents(width, height);
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.background_pixmap = contents.pixmap;
    const Window window =
        XCreateWindow(display, root, x, y, static_cast<unsigned>(width), static_cast<unsigned>(height), 0,
                      CopyFromParent, InputOutput, nullptr, CWOverrideRedirect | CWBackPixmap, &attributes);
    XMapRaised(display, window);
    XSync(display, False);
    windows[window] = contents;
    return window;
  }

  void Show(WindowId window, const Contents& contents) {
    XSetWindowBackgroundPixmap(display, window, contents.pixmap);
    XClearWindow(display, window);
    XSync(display, False);
  }

  void PutPixels(const Contents& contents, const std::function<uint32_t(int x, int y)>& color) {
    std::vector<uint32_t> pixels;
    for (int y = 0; y < contents.height; ++y) {
      for (int x = 0; x < contents.width; ++x) pixels.push_back(color(x, y));
    }
    XImage* image = XCreateImage(
        display, DefaultVisual(display, 0), 24, ZPixmap, 0, reinterpret_cast<char*>(pixels.data()),
        static_cast<unsigned>(contents.width), static_cast<unsigned>(contents.height), 32, 0);
    XPutImage(display, contents.pixmap, gc, image, 0, 0, 0, 0, static_cast<unsigned>(contents.width),
              static_cast<unsigned>(contents.height));
    image->data = nullptr;  // the vector's
    XDestroyImage(image);
  }
};

Desktop::Desktop() : state_(std::make_unique<State>()) {
  if (state_->display == nullptr) throw std::runtime_error("no X display");
  state_->gc = XCreateGC(state_->display, state_->root, 0, nullptr);
  XSetFont(state_->display, state_->gc, XLoadFont(state_->display, "fixed"));
  PaintBackground(0);
}

Desktop::~Desktop() {
  if (state_->resized) RunXrandr("--fb 1920x1080 --output screen --mode 1920x1080");
  XFreeGC(state_->display, state_->gc);
  XCloseDisplay(state_->display);
}

Desktop::WindowId Desktop::OpenTextWindow(int x, int y, int lines) {
  const WindowId window = state_->OpenWindow(x, y, kTextWidth, lines * kLineHeight);
  for (int line = 0; line < lines; ++line) {
    TypeText(window, line, "line " + std::to_string(line) + " of a window of text: the quick brown fox");
  }
  return window;
}

void Desktop::TypeText(WindowId window, int line, const std::string& text) {
  const State::Contents& contents = state_->windows.at(window);
  const int top = line * kLineHeight;
  XSetForeground(state_->display, state_->gc, kWhite);
  XFillRectangle(state_->display, contents.pixmap, state_->gc, 0, top, kTextWidth, kLineHeight);
  XSetForeground(state_->display, state_->gc, kBlack);
  XDrawString(state_->display, contents.pixmap, state_->gc, 4, top + kLineHeight - 4, text.c_str(),
              static_cast<int>(text.size()));
  state_->Show(window, contents);
}

void Desktop::Move(WindowId window, int x, int y) {
  XMoveWindow(state_->display, window, x, y);
  XSync(state_->display, False);
}

Desktop::WindowId Desktop::OpenNoiseWindow(int x, int y, int width, int height) {
  const WindowId window = state_->OpenWindow(x, y, width, height);
  PaintNoise(window, 1);
  return window;
}

void Desktop::PaintNoise(WindowId window, uint32_t seed) {
  std::minstd_rand random(seed);
  const State::Contents& contents = state_->windows.at(window);
  state_->PutPixels(contents, [&](int, int) { return static_cast<uint32_t>(random() & 0xffffff); });
  state_->Show(window, contents);
}

Desktop::WindowId Desktop::OpenPictureWindow(int x, int y, const Picture& picture) {
  const WindowId window = state_->OpenWindow(x, y, picture.width, picture.height);
  Paint(window, picture);
  return window;
}

void Desktop::Paint(WindowId window, const Picture& picture) {
  const State::Contents& contents = state_->windows.at(window);
  state_->PutPixels(contents, [&picture](int x, int y) { return picture.At(x, y); });
  state_->Show(window, contents);
}

void Desktop::PaintBackground(uint32_t seed) {
  const XWindowAttributes screen = state_->Screen();
  const State::Contents contents = state_->MakeContents(screen.width, screen.height);
  state_->PutPixels(contents, [seed](int x, int y) {
    const auto red = static_cast<uint32_t>(x) / 8 + seed * 31;
    const auto green = static_cast<uint32_t>(y) / 4 + seed * 17;
    return (red & 0xff) << 16 | (green & 0xff) << 8 | (seed & 0xff);
  });
  state_->Show(state_->root, contents);
  XFreePixmap(state_->display, contents.pixmap);
}

void Desktop::Resize(int width, int height) {
  state_->resized = true;
  RunXrandr("--output screen --off --fb " + std::to_string(width) + "x" + std::to_string(height));
}

Picture Desktop::Screen() const {
  const XWindowAttributes screen = state_->Screen();
  Picture picture{screen.width, screen.height, {}};
  XImage* image = XGetImage(state_->display, state_->root, 0, 0, static_cast<unsigned>(picture.width),
                            static_cast<unsigned>(picture.height), AllPlanes, ZPixmap);
  for (int y = 0; y < picture.height; ++y) {
    const auto* row =
        reinterpret_cast<const uint32_t*>(image->data + static_cast<ptrdiff_t>(y) * image->bytes_per_line);
    for (int x = 0; x < picture.width; ++x) picture.pixels.push_back(row[x] & 0xffffff);
  }
  XDestroyImage(image);
  return picture;
}

}  // namespace cvn::end_to_end
