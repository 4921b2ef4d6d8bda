#pragma once

#include <cstdint>

namespace cvn::view {

/// What has been received, for the summary.
struct ViewStatistics {
  int64_t frames = 0;  // complete ones
  int64_t keyframes = 0;
  int64_t heartbeats = 0;
  int64_t paletteTiles = 0;
  int64_t losslessTiles = 0;
  int64_t payloadBytes = 0;  // of all tiles
  int64_t messageBytes = 0;  // of the tile channel, headers and envelopes included
  int64_t messages = 0;
};

}  // namespace cvn::view
