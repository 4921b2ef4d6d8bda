#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace cvn::bench {

/// Times several ways of doing the same to the same inputs. They take turns, so that whatever else the
/// machine does meets all of them, but each on another input than the one before, whose branches are still
/// foreseen. Each input counts with its least time, which the rest of the machine disturbs least.
class Rivals {
 public:
  struct Rival {
    std::string name;
    /// Does the work on one input.
    std::function<void(size_t input)> work;
  };

  /// `prepare` is called, untimed, before each piece of work: to bring the input where it would come from.
  Rivals(
      std::vector<Rival> rivals, size_t inputs, std::function<void(size_t input)> prepare = [](size_t) {})
      : rivals_(std::move(rivals)),
        prepare_(std::move(prepare)),
        leastNs_(rivals_.size(), std::vector<int64_t>(inputs, INT64_MAX)) {}

  /// One turn of every rival on every input.
  void Run() {
    const size_t inputs = leastNs_[0].size();
    for (size_t input = 0; input < inputs; ++input)
      for (size_t i = 0; i < rivals_.size(); ++i) Time(i, (input + i * kApart) % inputs);
  }

  size_t Count() const { return rivals_.size(); }
  const std::string& Name(size_t rival) const { return rivals_[rival].name; }
  /// For one input, in the mean over the inputs.
  double MicrosecondsPerInput(size_t rival) const {
    double sum = 0;
    for (const int64_t ns : leastNs_[rival]) sum += static_cast<double>(ns) / 1000;
    return sum / static_cast<double>(leastNs_[rival].size());
  }

 private:
  static constexpr size_t kApart = 71;

  void Time(size_t rival, size_t input) {
    prepare_(input);
    const auto begin = std::chrono::steady_clock::now();
    rivals_[rival].work(input);
    const auto spent = std::chrono::steady_clock::now() - begin;
    int64_t& least = leastNs_[rival][input];
    least = std::min(least, int64_t{std::chrono::nanoseconds(spent).count()});
  }

  std::vector<Rival> rivals_;
  std::function<void(size_t input)> prepare_;
  std::vector<std::vector<int64_t>> leastNs_;
};

}  // namespace cvn::bench
