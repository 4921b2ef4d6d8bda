#include "session/quality_control.h"

#include <algorithm>
#include <utility>

#include "base/log.h"

namespace cvn::agent {
namespace {

/// How long a dropped frame counts as congestion.
constexpr int64_t kCongestionMs = 3'000;

LadderReport ForLadder(const QualityReport& report) {
  LadderReport forLadder;
  forLadder.receiveKbps = report.receiveKbps;
  forLadder.lossPermille = std::clamp(report.lossPermille, 0, 1'000);
  forLadder.rttMs = std::max(report.rttMs, 0);
  forLadder.preset = report.preset;
  return forLadder;
}

void LogReport(const LadderReport& report, const StreamRate& target, bool open, bool grayscale) {
  Log().Info(
      "[quality] receive=%d kbps loss=%.1f%% rtt=%d ms preset=%s active=%s; target=%d kbps/%d fps%s%s%s%s",
      report.receiveKbps, report.lossPermille / 10.0, report.rttMs, PresetName(report.preset),
      open ? "tiles" : "no tile channel", target.kbps, target.framesPerSecond, grayscale ? " grayscale" : "",
      "", report.congestedKbps >= 1 ? " (link congested)" : "",
      report.producerOverloaded ? " (producer overloaded)" : "");
}

void LogValues(const QualityValues& values, bool webp) {
  Log().Info("[quality] tileQ=%d paletteColors<=%d losslessBudget=%dbpp codec=%s", values.tileQuality,
             values.paletteColors, values.losslessBudget, webp ? "webp" : "jpeg");
}

}  // namespace

StreamRate QualityControl::Target() const {
  StreamRate target = ladder_.Rate();
  if (relayed_) target = Capped(target, kRelayedCap);
  if (fullFrameCapture_) target = Capped(target, kFullFrameCap);
  return target;
}

void QualityControl::Apply(const QualityReport& report, bool producerOverloaded) {
  LadderReport forLadder = ForLadder(report);
  forLadder.producerOverloaded = producerOverloaded;
  forLadder.congestedKbps = CongestedKbps();
  ladder_.Step(forLadder);

  const StreamRate target = Target();
  const QualityValues values = ValuesFor(report.preset, target.kbps);
  const Choice before =
      std::exchange(chosen_, {report.preset, report.grayscale, report.viewportWidth, report.viewportHeight});
  sender_.SetQuality(values.tileQuality, values.paletteColors, values.losslessBudget);
  sender_.SetProducerOverloaded(producerOverloaded);
  sender_.SetGrayscale(report.grayscale);
  const bool open = transport_.IsOpen();
  const bool looksOther = report.preset != before.preset || report.grayscale != before.grayscale;
  if (looksOther && open) sender_.RequestRepaint();
  LogReport(forLadder, target, open, report.grayscale);
  if (open) LogValues(values, sender_.PrefersWebp());
}

int64_t QualityControl::CongestedKbps() const {
  const int64_t droppedMs = sender_.LastDropMs();
  const bool recent = droppedMs >= 0 && clock_.NowMs() - droppedMs <= kCongestionMs;
  return recent ? sender_.MeasuredKbps() : 0;
}

}  // namespace cvn::agent
