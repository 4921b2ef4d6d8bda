#pragma once

#include <cstdint>

namespace cvn::agent {

/// What a transport says about itself at one moment.
struct DrainSample {
  int64_t nowMs = 0;
  /// Accepted and not yet written to the socket.
  uint64_t backlogBytes = 0;
  /// Written to the socket so far.
  uint64_t drainedBytes = 0;
};

/// Estimates how fast a connection drains, and from that how many bytes may wait on it: about 150 ms worth,
/// so that what the viewer sees is never much older than that.
///
/// The estimate moves at most every 250 ms, and only while the connection had something to drain: an idle
/// link says nothing about its speed. One thread at a time.
class DrainMeter {
 public:
  /// Takes a sample and returns how large the backlog may become, 8192 to 65536 bytes.
  uint64_t AllowedBacklog(const DrainSample& sample);

  /// The estimate as of the last sample.
  double BytesPerSecond() const { return bytesPerSecond_; }

 private:
  bool ContinuesInterval(const DrainSample& sample) const;
  void FinishInterval(const DrainSample& sample);

  double bytesPerSecond_ = 1'000'000;
  /// Negative until the first sample.
  int64_t startMs_ = -1;
  uint64_t startDrainedBytes_ = 0;
  bool startHadBacklog_ = false;
};

}  // namespace cvn::agent
