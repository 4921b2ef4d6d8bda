#pragma once

#include <chrono>

#include "base/stop_signal.h"

namespace cvn::agent {

/// Waits until `condition()` holds, looking every millisecond; false when it still does not after 10 s. For
/// what another thread is about to do and nothing announces.
template <typename Condition>
bool Eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  StopSignal never;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    never.WaitFor(std::chrono::milliseconds(1));
  }
  return true;
}

/// How long `work` takes.
template <typename Work>
double SecondsFor(Work work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace cvn::agent
