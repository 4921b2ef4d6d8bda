#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "capture/linux/x11_display_system.h"
#include "capture/linux/x11_screen_capturer.h"
#include "testing/linux/x11_test_client.h"
#include "testing/private_display.h"

// What the tests of X11 capture work with.

namespace cvn::agent {

inline constexpr PixelRect kScreen = {0, 0, 640, 480};

/// A private screen of 640x480, a client that paints on it and a capturer of it.
struct CapturedScreen {
  explicit CapturedScreen(std::vector<std::string> serverArguments = {}, int32_t monitor = 0)
      : server("640x480x24", std::move(serverArguments)) {
    std::string error;
    displays = CreateX11DisplaySystem(error, server.Name());
    if (displays) Recreate(monitor);
  }

  void Recreate(int32_t monitor) {
    capturer.reset();
    std::string error;
    capturer = CreateX11CaptureBackends(
                   *displays, [this] { ++touches; }, server.Name())
                   .fallback(monitor, error);
    if (!capturer) throw std::runtime_error(error);
  }

  PixelRect Area() const {
    return {capturer->OriginX(), capturer->OriginY(), capturer->OriginX() + capturer->Width(),
            capturer->OriginY() + capturer->Height()};
  }

  bool Capture() {
    client.Sync();
    return capturer->Capture(frame);
  }

  std::vector<uint32_t> FramePixels() const {
    std::vector<uint32_t> pixels(frame.byteSize / 4);
    std::memcpy(pixels.data(), frame.pixels, frame.byteSize);
    return pixels;
  }

  /// Captures and compares the frame with the server's own pixels of that area.
  testing::AssertionResult ShowsTheServersPixels() {
    if (!Capture()) return testing::AssertionFailure() << "no frame";
    const PixelRect area = Area();
    if (frame.width != static_cast<uint32_t>(area.Width()) ||
        frame.byteSize != frame.width * frame.height * 4)
      return testing::AssertionFailure() << "the frame is " << frame.width << "x" << frame.height;
    const std::vector<uint32_t> expected = client.Pixels(area);
    const std::vector<uint32_t> got = FramePixels();
    if (got == expected) return testing::AssertionSuccess();
    const auto differs = std::ranges::mismatch(expected, got).in1 - expected.begin();
    return testing::AssertionFailure()
           << "pixel (" << differs % area.Width() << "," << differs / area.Width() << ") is " << std::hex
           << got[static_cast<size_t>(differs)] << ", not " << expected[static_cast<size_t>(differs)];
  }

  /// The pixels that `frame.changed` covers.
  int64_t ChangedPixels() const {
    int64_t pixels = 0;
    for (const PixelRect& rect : *frame.changed) pixels += int64_t{rect.Width()} * rect.Height();
    return pixels;
  }

  PrivateDisplay server;
  X11TestClient client{server.Name()};
  std::unique_ptr<DisplaySystem> displays;
  std::atomic<int> touches = 0;
  std::unique_ptr<ScreenCapturer> capturer;
  CapturedFrame frame;
};

/// Paints like a desktop: fills, scrolls, windows that come, move and go.
class RandomPainter {
 public:
  RandomPainter(X11TestClient& client, uint32_t seed) : client_(client), random_(seed) {}

  void Paint() {
    switch (random_() % 6) {
      case 0:
        windows_.push_back(client_.ShowWindow(Rect(), random_() & 0xffffff));
        break;
      case 1:
        if (!windows_.empty())
          client_.MoveWindow(windows_[random_() % windows_.size()], UpTo(640) - 20, UpTo(480) - 20);
        break;
      case 2:
        client_.Copy(Rect(), UpTo(640), UpTo(480));
        break;
      case 3:
        if (windows_.size() > 5) {
          xcb_destroy_window(client_.Get(), windows_.front());
          windows_.erase(windows_.begin());
        }
        break;
      default:
        client_.Fill(Rect(), random_() & 0xffffff);
    }
  }

  int32_t UpTo(int32_t most) { return static_cast<int32_t>(random_() % static_cast<uint32_t>(most)); }

 private:
  PixelRect Rect() {
    const int32_t left = UpTo(630), top = UpTo(470);
    return {left, top, left + 1 + UpTo(random_() % 4 == 0 ? 400 : 40),
            top + 1 + UpTo(random_() % 4 == 0 ? 300 : 20)};
  }

  X11TestClient& client_;
  std::mt19937 random_;
  std::vector<xcb_window_t> windows_;
};

/// Whether everything that differs between two frames lies inside the hint.
inline bool HintCovers(const std::vector<uint32_t>& before, const std::vector<uint32_t>& after,
                       const CapturedFrame& frame) {
  if (!frame.changed) return true;
  std::vector<uint32_t> rest = after;
  for (const PixelRect& rect : *frame.changed)
    for (int32_t y = rect.top; y < rect.bottom; ++y) {
      const int64_t first = int64_t{y} * frame.width + rect.left;
      std::copy_n(before.begin() + first, rect.Width(), rest.begin() + first);
    }
  return rest == before;
}

}  // namespace cvn::agent
