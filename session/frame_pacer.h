#pragma once

#include <cstdint>

namespace cvn::agent {

/// Why a turn may be due before its time.
struct TurnReasons {
  /// The supporter did something that the screen is about to answer.
  bool supporterActed = false;
  /// The screen says that it has changed.
  bool screenTouched = false;
};

/// Decides when the capture loop takes its next turn. Times are monotonic nanoseconds; one thread at a time.
///
/// Turns follow the frame rate, or 8 a second while the screen rests. The first change after a rest goes out
/// at once: a touched screen is due as soon as a frame interval has passed since the last frame that was
/// sent, and what the supporter does ends idle pacing. Frames are never sent faster than the frame rate, and
/// a touch adds at most one turn between two regular ones.
class FramePacer {
 public:
  explicit FramePacer(int framesPerSecond) { SetFrameRate(framesPerSecond); }

  /// From the next turn on.
  void SetFrameRate(int framesPerSecond) { frameIntervalNs_ = 1'000'000'000 / framesPerSecond; }

  int64_t DueNs(const TurnReasons& reasons) const;

  /// A turn starts now, for these reasons.
  void BeginTurn(int64_t nowNs, const TurnReasons& reasons);
  /// The turn has sent a frame.
  void NoteSent() { lastAnswerNs_ = turnNs_; }

  struct Pace {
    /// The work has used up the interval: the next turn starts at once.
    bool late = false;
    bool idle = false;
  };
  /// The turn's work is done. `resting`: nothing has changed for a while and nothing waits to be sent.
  Pace FinishTurn(int64_t nowNs, bool resting);

 private:
  /// Long before any time that a clock gives, and still safe to subtract.
  static constexpr int64_t kNeverNs = INT64_MIN / 4;

  int64_t frameIntervalNs_ = 0;
  int64_t turnNs_ = kNeverNs;
  int64_t dueNs_ = kNeverNs;
  /// The last turn that sent a frame, or that looked in vain at a touched screen.
  int64_t lastAnswerNs_ = kNeverNs;
  int64_t lastActedNs_ = kNeverNs;
};

}  // namespace cvn::agent
