#include "net/send_buffer_plan.h"

#include <algorithm>
#include <utility>

#include "net/socket_tuning.h"

namespace cvn::agent {
namespace {

constexpr int kLeastBytes = 8192;
constexpr int64_t kWantedPassMs = 150;
constexpr int64_t kSampleMs = 100;
/// After such a pause the line may have rested as well, and what was taken says nothing about it.
constexpr int64_t kRestMs = 30;
/// How long a size that was tried in vain is not tried again.
constexpr int64_t kRetryMs = 10000;

bool IsClearlyMore(int64_t value, int64_t than) {
  return value * 4 > than * 5;
}

}  // namespace

void SendBufferPlan::Took(size_t bytes, int64_t nowMs) {
  const bool gotRoom = std::exchange(refused_, false);
  const bool rested = !gotRoom && nowMs - tookMs_ > kRestMs;
  tookMs_ = nowMs;
  if (rested) sample_.reset();
  if (gotRoom && sample_ && nowMs - sample_->sinceMs >= kSampleMs) {
    const Sample whole = *sample_;
    sample_.reset();
    Follow(whole.takenBytes, nowMs - whole.sinceMs, nowMs);
    return;
  }
  if (gotRoom && !sample_) sample_ = Sample{nowMs, 0};
  if (sample_) sample_->takenBytes += static_cast<int64_t>(bytes);
}

void SendBufferPlan::Follow(int64_t carriedBytes, int64_t elapsedMs, int64_t nowMs) {
  const int64_t passMs = bytes_ * elapsedMs / carriedBytes;
  if (former_ && JudgeChange(passMs, nowMs)) return;
  const int wanted = static_cast<int>(
      std::clamp<int64_t>(carriedBytes * kWantedPassMs / elapsedMs, kLeastBytes, kSocketBufferBytes));
  if (wanted >= 2 * bytes_) return Change(wanted, std::nullopt);
  if (2 * wanted <= bytes_ && nowMs >= mayShrinkMs_) return Change(wanted, Former{bytes_, passMs});
  if (nowMs >= mayGrowMs_) Grow({bytes_, passMs}, nowMs);
}

bool SendBufferPlan::JudgeChange(int64_t passMs, int64_t nowMs) {
  const Former former = *former_;
  former_.reset();
  const bool grew = bytes_ > former.bytes;
  const bool slower = IsClearlyMore(passMs, former.passMs);
  const bool quicker = IsClearlyMore(former.passMs, passMs);
  const bool sizeDecides = !slower && (grew || !quicker);
  if (sizeDecides) {
    mayShrinkMs_ = nowMs + kRetryMs;
    Grow({std::max(bytes_, former.bytes), passMs}, nowMs);
    return true;
  }
  mayGrowMs_ = nowMs + kRetryMs;
  if (grew) Change(former.bytes, std::nullopt);
  return grew;
}

void SendBufferPlan::Grow(Former from, int64_t nowMs) {
  mayGrowMs_ = nowMs + kRetryMs;
  const int larger = std::min(from.bytes * 3 / 2, kSocketBufferBytes);
  Change(larger, larger > from.bytes ? std::optional(from) : std::nullopt);
}

void SendBufferPlan::Change(int bytes, std::optional<Former> former) {
  bytes_ = bytes;
  former_ = former;
}

}  // namespace cvn::agent
