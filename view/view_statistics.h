#pragma once

#include <array>
#include <cstdint>

#include "tiles/encoded_frame.h"

namespace cvn::view {

/// Tiles of one coding.
struct CodingStatistics {
  int64_t tiles = 0;
  int64_t payloadBytes = 0;
};

/// What has been received, for the summary.
struct ViewStatistics {
  int64_t frames = 0;  // complete ones
  int64_t keyframes = 0;
  int64_t heartbeats = 0;
  /// By the number of the coding; 0 is none.
  std::array<CodingStatistics, 5> codings{};
  int64_t messageBytes = 0;  // of the tile channel, headers and envelopes included
  int64_t messages = 0;

  const CodingStatistics& Of(agent::TileCoding coding) const { return codings[static_cast<size_t>(coding)]; }
};

/// When a picture came how far, on the clock; 0 for what has not happened. Exactness is judged when a frame
/// is complete.
struct PictureTimes {
  int64_t firstFullNs = 0;
  int64_t firstExactNs = 0;
  /// When the picture last turned exact.
  int64_t lastExactNs = 0;
  int64_t lastLossyTileNs = 0;
  int64_t lastTileNs = 0;
};

}  // namespace cvn::view
