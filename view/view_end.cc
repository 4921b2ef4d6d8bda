#include "view/view_end.h"

#include <algorithm>

namespace cvn::view {

ViewEnd DecideEnd(const ViewLimits& limits, const ViewSituation& situation, int64_t nowNs) {
  if (situation.failed) return ViewEnd::kFailed;
  if (situation.interrupted) return ViewEnd::kInterrupted;
  if (situation.disconnected) return ViewEnd::kDisconnected;
  if (limits.durationNs && nowNs - situation.startNs >= *limits.durationNs) return ViewEnd::kTimeIsUp;
  if (!limits.untilIdle) return ViewEnd::kGoesOn;

  // On a slow line the pieces of one frame may come further apart than a screen has to rest.
  const bool canRest = situation.pictureReady && !situation.frameInTheMaking;
  if (canRest && nowNs - situation.lastChangeNs >= kIdleNs) return ViewEnd::kIdle;
  const int64_t lastSignNs = std::max(situation.startNs, situation.lastArrivalNs);
  return nowNs - lastSignNs >= kSilenceNs ? ViewEnd::kSilence : ViewEnd::kGoesOn;
}

const char* EndText(ViewEnd end) {
  switch (end) {
    case ViewEnd::kGoesOn:
      return "the session goes on";
    case ViewEnd::kFailed:
      return "the session failed";
    case ViewEnd::kInterrupted:
      return "the viewer was interrupted";
    case ViewEnd::kDisconnected:
      return "the agent closed the connection";
    case ViewEnd::kTimeIsUp:
      return "the time was up";
    case ViewEnd::kIdle:
      return "the screen rested";
    case ViewEnd::kSilence:
      return "nothing arrived for 30 seconds";
  }
  return "";
}

}  // namespace cvn::view
