#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "tests/end_to_end/desktop.h"
#include "tests/end_to_end/live_canvas.h"

namespace cvn::end_to_end {

/// Says when something that repeats is due.
class Every {
 public:
  explicit Every(std::chrono::milliseconds period) : period_(period) {}

  bool Due() {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return false;
    next_ = now + period_;
    return true;
  }

 private:
  std::chrono::milliseconds period_;
  std::chrono::steady_clock::time_point next_;
};

/// A text cell of two colours on the desktop that holds a number, so that what a viewer shows of it tells
/// when it was written.
class CounterCell {
 public:
  CounterCell(Desktop& desktop, int x, int y);

  /// Writes the next number.
  void Type();
  bool NewestIsOn(const LiveCanvas& canvas) const { return ShownOn(canvas) == Newest(); }
  /// How long ago what `canvas` shows was overwritten: 0 for the newest number. Nothing while the cell is
  /// being drawn there.
  std::optional<std::chrono::milliseconds> AgeOn(const LiveCanvas& canvas) const;

 private:
  int Newest() const { return static_cast<int>(typedAt_.size()) - 1; }
  std::optional<int> ShownOn(const LiveCanvas& canvas) const;

  Desktop& desktop_;
  int x_;
  int y_;
  Desktop::WindowId window_;
  std::vector<std::chrono::steady_clock::time_point> typedAt_;
};

}  // namespace cvn::end_to_end
