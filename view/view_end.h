#pragma once

#include <cstdint>
#include <optional>

namespace cvn::view {

/// Why a session of the viewer ends.
enum class ViewEnd {
  kGoesOn,
  /// Something that was received cannot be shown, or a wish cannot be met.
  kFailed,
  kInterrupted,
  kDisconnected,
  kTimeIsUp,
  /// The picture is ready and has rested.
  kIdle,
  /// A session that waits for rest has received nothing for so long that there is nothing to wait for.
  kSilence,
};

/// How long a ready picture must rest: longer than the agent's own wait before it improves a resting screen
/// (200 ms) together with the slowest rate at which it looks (every 125 ms).
inline constexpr int64_t kIdleNs = 500'000'000;
inline constexpr int64_t kSilenceNs = 30'000'000'000;

/// When the person at the viewer wants it to end by itself.
struct ViewLimits {
  std::optional<int64_t> durationNs;
  bool untilIdle = false;
};

/// How a session stands. Times are the clock's nanoseconds.
struct ViewSituation {
  bool failed = false;
  bool interrupted = false;
  bool disconnected = false;
  /// A full picture of what was asked for is there.
  bool pictureReady = false;
  /// A frame has begun and is not complete.
  bool frameInTheMaking = false;
  int64_t startNs = 0;
  /// When the picture last changed, or something was asked of the agent that may change it.
  int64_t lastChangeNs = 0;
  int64_t lastArrivalNs = 0;
};

ViewEnd DecideEnd(const ViewLimits& limits, const ViewSituation& situation, int64_t nowNs);

/// "the time was up": how the end reads in a sentence.
const char* EndText(ViewEnd end);

}  // namespace cvn::view
