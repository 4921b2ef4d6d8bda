#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace cvn::agent {

/// How large a socket's send buffer should be, for a system that cannot be told to hold little beside what is
/// under way: about 150 ms of what the line was seen to carry, so that neither a change nor an answer stands
/// behind seconds of older tiles.
///
/// The buffer also bounds what may be under way, so on a long line its size decides what is carried.
/// Therefore a smaller one stays only when bytes then pass through it sooner; where they do not, the line is
/// long, and the buffer grows for as long as that carries more.
///
/// One thread. Times are those of any steady clock.
class SendBufferPlan {
 public:
  /// The system had no room.
  void Refused() { refused_ = true; }
  /// The system took some bytes.
  void Took(size_t bytes, int64_t nowMs);
  /// The size to have. Differs from the one before by half or more, and seldom.
  int Bytes() const { return bytes_; }

 private:
  /// How the line is used with the buffer as it is: from one moment at which a full buffer got room to
  /// another, so that what was taken is what the line carried.
  struct Sample {
    int64_t sinceMs;
    int64_t takenBytes;
  };
  /// A size that may have been better than the present one.
  struct Former {
    int bytes;
    int64_t passMs;  // the time that a byte needed through the buffer
  };

  void Follow(int64_t carriedBytes, int64_t elapsedMs, int64_t nowMs);
  /// Whether the last change is all that had to be judged.
  bool JudgeChange(int64_t passMs, int64_t nowMs);
  void Grow(Former from, int64_t nowMs);
  void Change(int bytes, std::optional<Former> former);

  /// Small: what a slow line is given at once cannot be taken back, and a fast one soon shows itself.
  static constexpr int kFirstBytes = 8192;

  int bytes_ = kFirstBytes;
  bool refused_ = false;
  int64_t tookMs_ = 0;
  int64_t mayShrinkMs_ = INT64_MIN;
  int64_t mayGrowMs_ = INT64_MIN;
  std::optional<Sample> sample_;
  std::optional<Former> former_;
};

}  // namespace cvn::agent
