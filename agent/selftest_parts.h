#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "base/clock.h"
#include "capture/display_system.h"
#include "capture/screen_capturer.h"
#include "tiles/tile_image_codec.h"

namespace cvn::agent {

/// What the self-test tests: the host's own parts, or a test's. Everything borrowed outlives it.
struct SelftestParts {
  DisplaySystem& displays;
  CaptureBackends backends;
  /// What people call `backends.fallback`.
  const char* fallbackName;
  /// Null: this machine has none.
  TileImageCodec* codec;
  const Clock& clock;
  /// Lets the screen go on for so long.
  std::function<void(std::chrono::milliseconds)> wait;
  /// As on the command line.
  int32_t monitor = -1;
  int32_t strips = 0;
};

/// Milliseconds since `startNs` of that clock.
inline double MillisecondsSince(const Clock& clock, int64_t startNs) {
  return static_cast<double>(clock.NowNs() - startNs) / 1e6;
}

}  // namespace cvn::agent
