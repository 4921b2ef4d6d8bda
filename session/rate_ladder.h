#pragma once

#include <cstdint>

#include "session/quality_preset.h"
#include "session/stream_rate.h"

namespace cvn::agent {

/// What is known about the line and the machine when the viewer reports.
struct LadderReport {
  int receiveKbps = 0;
  /// 0..1000.
  int lossPermille = 0;
  /// Not negative.
  int rttMs = 0;
  QualityPreset preset = QualityPreset::kHigh;
  /// The machine cannot keep up with its own frame rate.
  bool producerOverloaded = false;
  /// How much the connection drains while it is behind, 0 while it is not.
  int64_t congestedKbps = 0;
};

/// Follows the viewer's reports up and down twelve rungs of bitrate and frame rate: down at once when the
/// line is behind or loses much, up only after a row of clean measurements. Pure; one report in, one rung
/// out.
class RateLadder {
 public:
  void Step(const LadderReport& report);

  /// 0, the best, to 11.
  int Rung() const { return rung_; }
  StreamRate Rate() const;

 private:
  void ChangePreset(QualityPreset preset);
  /// False when the line would carry a better rung than the present one.
  bool FollowCongestion(int64_t congestedKbps);
  void FollowOverload();
  void AgeOverloadCeiling();
  void Judge(const LadderReport& report);
  void CountTowardsBetter(const LadderReport& report);
  void MoveWorse();
  void ClearCounters();

  QualityPreset preset_ = QualityPreset::kHigh;
  int rung_ = 3;
  int upCount_ = 0;
  int badCount_ = 0;
  /// Reports in a row that received at least one and a half times the next better rung.
  int fastHits_ = 0;
  /// Has ever stepped down under this preset: steps up are slow from then on.
  bool steppedDown_ = false;
  /// No better rung than this one for a while, since the machine was overloaded there; negative when unset.
  int overloadCeiling_ = -1;
  int ceilingAge_ = 0;
  int overloadCooldown_ = 0;
};

}  // namespace cvn::agent
