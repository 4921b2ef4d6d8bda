#pragma once

#include <algorithm>
#include <cstdint>

namespace cvn::agent {

/// What the capture loop did since the last statistics line. One thread at a time.
class CaptureStatistics {
 public:
  explicit CaptureStatistics(int64_t nowMs) : startMs_(nowMs) {}

  void AddCapture(int64_t durationNs) { capture_.Add(durationNs); }
  /// How long the sender took to encode and admit a frame, or to find that there was nothing to send.
  void AddAdmission(int64_t durationNs) { admit_.Add(durationNs); }
  void CountEncoded() { ++encoded_; }
  void CountUnchanged() { ++unchanged_; }
  void CountLate() { ++late_; }
  void CountIdlePaced() { ++idlePaced_; }

  /// Once 30 s have passed since the last line, logs one and starts over.
  void LogWhenDue(int64_t nowMs);

 private:
  struct Durations {
    int64_t count = 0;
    int64_t totalNs = 0;
    int64_t longestNs = 0;

    void Add(int64_t ns) {
      ++count;
      totalNs += ns;
      longestNs = std::max(longestNs, ns);
    }
    double AverageMs() const;
    double LongestMs() const;
  };

  void LogLine(int64_t elapsedMs) const;

  int64_t startMs_;
  Durations capture_;
  Durations admit_;
  int encoded_ = 0;
  int unchanged_ = 0;
  int late_ = 0;
  int idlePaced_ = 0;
};

}  // namespace cvn::agent
