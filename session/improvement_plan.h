#pragma once

#include <cstdint>
#include <optional>

#include "tiles/encoded_frame.h"

namespace cvn::agent {

/// Decides how a resting picture becomes exact: once nothing has changed for 200 ms, first the tiles of
/// coarse frames are sent again, then every lossy tile is sent exactly, in passes that a new change never
/// waits long for. A change costs its own answer and another 200 ms, not what was improved before it.
///
/// One thread at a time.
class ImprovementPlan {
 public:
  enum class Step { kNothing, kCoarseResend, kRefine };

  /// A frame with what has changed was coded.
  void NoteFrame(const EncodedFrame& frame, int64_t nowMs);
  /// `Next`'s step was coded. A frame without tiles says that the step is done.
  void NoteImprovement(Step step, const EncodedFrame& frame);
  /// There may be lossy tiles that nobody knows of.
  void LookAgain() { lossyLeft_ = true; }

  bool Finished() const { return !coarseLeft_ && !lossyLeft_; }
  Step Next(int64_t nowMs) const;

  /// The payload after which a pass shall end, when `backlogBytes` of `allowedBytes` wait on the connection.
  /// No value when there is no room: a pass has at least one tile, which may be as large as its pixels.
  static std::optional<int64_t> PassBytes(uint64_t backlogBytes, uint64_t allowedBytes);

 private:
  int64_t lastChangeMs_ = 0;
  bool coarseLeft_ = false;
  bool lossyLeft_ = false;
};

}  // namespace cvn::agent
