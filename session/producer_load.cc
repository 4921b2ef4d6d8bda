#include "session/producer_load.h"

namespace cvn::agent {
namespace {

constexpr int64_t kWindowMs = 2'000;

}  // namespace

void ProducerLoad::NoteTurn(int64_t nowMs, bool late) {
  if (firstTurnMs_ < 0) firstTurnMs_ = nowMs;
  recent_.push_back({nowMs, late});
  lateTurns_ += late ? 1 : 0;
  while (nowMs - recent_.front().timeMs >= kWindowMs) {
    lateTurns_ -= recent_.front().late ? 1 : 0;
    recent_.pop_front();
  }
  if (overloaded_) {
    overloaded_ = lateTurns_ > 0;
    return;
  }
  // A first keyframe takes its time: nothing is said before two seconds have been seen.
  overloaded_ = nowMs - firstTurnMs_ >= kWindowMs && lateTurns_ * 2 >= static_cast<int64_t>(recent_.size());
}

}  // namespace cvn::agent
