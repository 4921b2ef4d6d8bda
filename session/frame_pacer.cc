#include "session/frame_pacer.h"

#include <algorithm>

namespace cvn::agent {
namespace {

constexpr int64_t kIdleIntervalNs = 125'000'000;
/// How long after the supporter's last act its effects are looked for at the full frame rate.
constexpr int64_t kAttentionNs = 1'000'000'000;

}  // namespace

int64_t FramePacer::DueNs(const TurnReasons& reasons) const {
  int64_t dueNs = dueNs_;
  if (reasons.supporterActed) dueNs = std::min(dueNs, turnNs_ + frameIntervalNs_);
  if (reasons.screenTouched) dueNs = std::min(dueNs, lastAnswerNs_ + frameIntervalNs_);
  return dueNs;
}

void FramePacer::BeginTurn(int64_t nowNs, const TurnReasons& reasons) {
  turnNs_ = nowNs;
  if (reasons.supporterActed) lastActedNs_ = nowNs;
  if (reasons.screenTouched) lastAnswerNs_ = nowNs;
}

FramePacer::Pace FramePacer::FinishTurn(int64_t nowNs, bool resting) {
  const bool idle = resting && turnNs_ - lastActedNs_ >= kAttentionNs && frameIntervalNs_ < kIdleIntervalNs;
  dueNs_ = turnNs_ + (idle ? kIdleIntervalNs : frameIntervalNs_);
  return {.late = nowNs >= dueNs_, .idle = idle};
}

}  // namespace cvn::agent
