#include "session/rate_ladder.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace cvn::agent {
namespace {

constexpr std::array<StreamRate, 12> kRungs = {{{32'000, 60},
                                                {24'000, 60},
                                                {16'000, 60},
                                                {12'000, 30},
                                                {8'000, 30},
                                                {6'000, 30},
                                                {4'000, 24},
                                                {2'500, 20},
                                                {1'800, 15},
                                                {1'000, 12},
                                                {600, 10},
                                                {300, 8}}};
static_assert(kRungs[3] == kStartingRate);
constexpr int kWorstRung = static_cast<int>(kRungs.size()) - 1;

constexpr int kReportsPerStepUp = 2;
constexpr int kReportsPerSlowStepUp = 20;
constexpr int kReportsPerStepDown = 2;
constexpr int kFastHits = 2;
constexpr int kOverloadCooldownReports = 5;
constexpr int kCeilingReports = 60;

const StreamRate& RateOf(int rung) {
  return kRungs[static_cast<size_t>(rung)];
}

int FirstRungWithin(int64_t kbps) {
  int rung = 0;
  while (rung < kWorstRung && RateOf(rung).kbps > kbps) ++rung;
  return rung;
}

bool IsGood(const LadderReport& report) {
  return report.lossPermille < 80 && report.rttMs < 800;
}

bool IsGreat(const LadderReport& report) {
  return report.lossPermille < 30 && report.rttMs < 450;
}

/// Nothing else is worth a step up.
bool IsCleanMeasurement(const LadderReport& report) {
  return report.receiveKbps >= 1 && report.rttMs >= 1 && report.lossPermille <= 10 && report.rttMs < 250;
}

}  // namespace

StreamRate RateLadder::Rate() const {
  return RateOf(rung_);
}

void RateLadder::Step(const LadderReport& report) {
  if (report.preset != preset_) return ChangePreset(report.preset);
  if (report.congestedKbps >= 1 && FollowCongestion(report.congestedKbps)) return;
  if (report.producerOverloaded) return FollowOverload();
  AgeOverloadCeiling();
  Judge(report);
}

void RateLadder::ChangePreset(QualityPreset preset) {
  preset_ = preset;
  ClearCounters();
  steppedDown_ = false;
  rung_ = std::max(rung_, BestRung(preset));
}

bool RateLadder::FollowCongestion(int64_t congestedKbps) {
  const int target = FirstRungWithin(congestedKbps);
  if (target < rung_) return false;
  if (target > rung_) steppedDown_ = true;
  rung_ = target;
  ClearCounters();
  return true;
}

void RateLadder::FollowOverload() {
  if (overloadCooldown_ < 1) {
    MoveWorse();
    overloadCeiling_ = rung_;
    overloadCooldown_ = kOverloadCooldownReports;
  } else {
    --overloadCooldown_;
  }
  ceilingAge_ = 0;
  ClearCounters();
}

void RateLadder::AgeOverloadCeiling() {
  overloadCooldown_ = 0;
  if (overloadCeiling_ < 0 || ++ceilingAge_ < kCeilingReports) return;
  overloadCeiling_ = -1;
  ceilingAge_ = 0;
}

void RateLadder::Judge(const LadderReport& report) {
  const bool good = IsGood(report);
  if (good && IsGreat(report)) {
    badCount_ = 0;
    CountTowardsBetter(report);
    return;
  }
  if (good && ++badCount_ < kReportsPerStepDown) return;
  MoveWorse();
  steppedDown_ = true;
  ClearCounters();
}

void RateLadder::CountTowardsBetter(const LadderReport& report) {
  if (!IsCleanMeasurement(report)) {
    upCount_ = 0;
    fastHits_ = 0;
    return;
  }
  if (rung_ <= std::max(overloadCeiling_, BestRung(preset_))) return;
  const bool fast = report.receiveKbps >= RateOf(rung_ - 1).kbps * 3 / 2;
  fastHits_ = fast ? fastHits_ + 1 : 0;
  const bool slow = steppedDown_ && fastHits_ < kFastHits;
  if (++upCount_ < (slow ? kReportsPerSlowStepUp : kReportsPerStepUp)) return;
  upCount_ = 0;
  --rung_;
}

void RateLadder::MoveWorse() {
  rung_ = std::min(rung_ + 1, kWorstRung);
}

void RateLadder::ClearCounters() {
  upCount_ = 0;
  badCount_ = 0;
  fastHits_ = 0;
}

}  // namespace cvn::agent
