#include "session/improvement_plan.h"

#include <algorithm>

namespace cvn::agent {
namespace {

constexpr int64_t kRestMs = 200;
/// A square tile whose pixels cannot be made smaller, and what is sent around it.
constexpr int64_t kLargestTileBytes = 16'500;

}  // namespace

void ImprovementPlan::NoteFrame(const EncodedFrame& frame, int64_t nowMs) {
  if (frame.tiles.empty()) return;
  lastChangeMs_ = nowMs;
  if (frame.keyframe) coarseLeft_ = false;
  coarseLeft_ = coarseLeft_ || frame.coarse;
  lossyLeft_ = lossyLeft_ || frame.losslessTiles < frame.encodedTiles;
}

void ImprovementPlan::NoteImprovement(Step step, const EncodedFrame& frame) {
  if (step == Step::kCoarseResend) coarseLeft_ = !frame.tiles.empty();
  if (step == Step::kRefine) lossyLeft_ = !frame.tiles.empty();
}

ImprovementPlan::Step ImprovementPlan::Next(int64_t nowMs) const {
  if (nowMs - lastChangeMs_ < kRestMs) return Step::kNothing;
  if (coarseLeft_) return Step::kCoarseResend;
  return lossyLeft_ ? Step::kRefine : Step::kNothing;
}

std::optional<int64_t> ImprovementPlan::PassBytes(uint64_t backlogBytes, uint64_t allowedBytes) {
  const int64_t roomBytes = static_cast<int64_t>(allowedBytes) - static_cast<int64_t>(backlogBytes);
  if (backlogBytes > 0 && roomBytes < kLargestTileBytes) return std::nullopt;
  // The tile that reaches the limit still has room. On a slow line that leaves one tile a pass.
  return std::max<int64_t>(roomBytes - kLargestTileBytes, 1);
}

}  // namespace cvn::agent
