#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "base/clock.h"
#include "base/mutex.h"
#include "control/control_message.h"
#include "view/picture_size.h"

namespace cvn::view {

/// How sharp the supporter wants the picture.
struct QualityWishes {
  /// Absent leaves the agent's choice.
  std::optional<std::string> preset;
  bool gray = false;
};

/// Measures the line and tells the agent how it is doing, so that the agent sends what the line can carry.
///
/// The receive rate is what the tile channel brought since the last look, a second ago. The round trip is the
/// time until the agent answers a selection of the monitor that it shows already, which changes nothing
/// there. A line at rest is left in peace: no probe, and a report every 10 s only. Any thread; nothing is
/// sent under a lock.
class LineReporter {
 public:
  /// Called on whichever thread finds something to send.
  using SendControl = std::function<void(const agent::ControlMessage&)>;

  /// `clock` is borrowed.
  LineReporter(const agent::Clock& clock, QualityWishes wishes, SendControl send);

  /// Reports at once, before anything has been measured: the agent learns what is wished for.
  void Begin() EXCLUDES(mutex_);

  /// The tile channel brought a message of `byteCount`; `size` is the picture's.
  void NoteTiles(size_t byteCount, PictureSize size) EXCLUDES(mutex_);

  /// The agent said that it shows `monitor`, and that is the one to be shown: an answer to a probe, or the
  /// first time.
  void NoteMonitor(int32_t monitor) EXCLUDES(mutex_);

  /// Reports and probes when it is time; to be called every few milliseconds.
  void Tick() EXCLUDES(mutex_);

 private:
  std::optional<agent::ControlMessage> DueReport(int64_t nowNs) REQUIRES(mutex_);
  std::optional<agent::ControlMessage> DueProbe(int64_t nowNs) REQUIRES(mutex_);
  agent::ControlMessage Report(int64_t kbps, int64_t nowNs) const REQUIRES(mutex_);
  int64_t RoundTripNs(int64_t nowNs) const REQUIRES(mutex_);

  const agent::Clock& clock_;
  const QualityWishes wishes_;
  const SendControl send_;

  agent::Mutex mutex_;
  PictureSize size_ GUARDED_BY(mutex_);
  int64_t bytes_ GUARDED_BY(mutex_) = 0;
  int64_t measuredFromNs_ GUARDED_BY(mutex_) = 0;
  int64_t lastReportNs_ GUARDED_BY(mutex_) = 0;
  bool probeDue_ GUARDED_BY(mutex_) = false;
  /// When the probe under way was sent. There is never a second one, so that an answer belongs to it.
  std::optional<int64_t> probeSentNs_ GUARDED_BY(mutex_);
  /// Absent until the agent has said it.
  std::optional<int32_t> monitor_ GUARDED_BY(mutex_);
  /// The last one measured; 0 before.
  int64_t roundTripNs_ GUARDED_BY(mutex_) = 0;
};

}  // namespace cvn::view
