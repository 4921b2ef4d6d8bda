#pragma once

#include <cstdint>
#include <deque>

namespace cvn::agent {

/// Whether the machine keeps up with its own frame rate. Overloaded: at least half of the turns of the last
/// two seconds were late; until two seconds have passed without a late turn. One thread at a time.
class ProducerLoad {
 public:
  void NoteTurn(int64_t nowMs, bool late);
  bool Overloaded() const { return overloaded_; }

 private:
  struct Turn {
    int64_t timeMs;
    bool late;
  };

  std::deque<Turn> recent_;
  int64_t firstTurnMs_ = -1;
  int64_t lateTurns_ = 0;
  bool overloaded_ = false;
};

}  // namespace cvn::agent
