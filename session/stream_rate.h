#pragma once

#include <algorithm>

namespace cvn::agent {

/// What the stream aims at.
struct StreamRate {
  int kbps = 0;
  int framesPerSecond = 0;
  bool operator==(const StreamRate&) const = default;
};

/// Until the viewer has reported what it receives.
inline constexpr StreamRate kStartingRate = {.kbps = 12'000, .framesPerSecond = 30};

/// A relay that must not be filled.
inline constexpr StreamRate kRelayedCap = {.kbps = 1'800, .framesPerSecond = 30};

/// A machine that has to read its whole screen for every frame.
inline constexpr StreamRate kFullFrameCap = {.kbps = 12'000, .framesPerSecond = 30};

constexpr StreamRate Capped(const StreamRate& rate, const StreamRate& cap) {
  return {.kbps = std::min(rate.kbps, cap.kbps),
          .framesPerSecond = std::min(rate.framesPerSecond, cap.framesPerSecond)};
}

}  // namespace cvn::agent
