#pragma once

#include <cstdint>

#include "base/clock.h"
#include "net/tile_transport.h"
#include "session/quality_preset.h"
#include "session/quality_reports.h"
#include "session/rate_ladder.h"
#include "session/stream_rate.h"
#include "session/tile_stream_sender.h"

namespace cvn::agent {

/// Turns the viewer's reports into the rate that the stream aims at and into what its tiles may cost, and
/// says so in the log. Capture thread only.
class QualityControl {
 public:
  /// What the supporter chose last.
  struct Choice {
    QualityPreset preset = QualityPreset::kHigh;
    bool grayscale = false;
    int32_t viewportWidth = 0;
    int32_t viewportHeight = 0;
    bool operator==(const Choice&) const = default;
  };

  /// Everything is borrowed. `relayed`: the line is a relay that must not be filled.
  QualityControl(const Clock& clock, const TileTransport& transport, TileStreamSender& sender, bool relayed)
      : clock_(clock), transport_(transport), sender_(sender), relayed_(relayed) {}

  /// Every frame has to be read and compared whole, which costs the machine more than the line.
  void SetFullFrameCapture(bool fullFrame) { fullFrameCapture_ = fullFrame; }

  /// Moves the ladder, applies the new values to the sender, and asks it for a repaint when the preset or the
  /// grayscale choice has changed.
  void Apply(const QualityReport& report, bool producerOverloaded);

  StreamRate Target() const;
  const Choice& Chosen() const { return chosen_; }

 private:
  int64_t CongestedKbps() const;

  const Clock& clock_;
  const TileTransport& transport_;
  TileStreamSender& sender_;
  const bool relayed_;
  bool fullFrameCapture_ = false;
  RateLadder ladder_;
  Choice chosen_;
};

}  // namespace cvn::agent
