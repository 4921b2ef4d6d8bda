#include "session/tile_message_queue.h"

#include <utility>

#include "base/log.h"

namespace cvn::agent {
namespace {

constexpr size_t kMostPumpedBytes = 65'536;

}  // namespace

void TileMessageQueue::Add(std::vector<uint8_t> message, const StreamEpoch& epoch) {
  if (!NeedsFragments(transport_.Protocol(), message.size())) {
    AddWrapped(std::move(message), epoch);
    return;
  }
  auto fragments = Fragment(message, nextFragmentGroup_++);
  if (!fragmentationLogged_) {
    fragmentationLogged_ = true;
    Log().Info("[tiles] v3 fragmentation active: %zu B message split into %zu fragments of at most %d B",
               message.size(), fragments.size(), static_cast<int>(kMaxV3MessageBytes));
  }
  for (auto& fragment : fragments) AddWrapped(std::move(fragment), epoch);
}

int64_t TileMessageQueue::Pump(uint64_t allowedBytes) {
  size_t sentBytes = 0;
  while (!pending_.empty() && sentBytes < kMostPumpedBytes) {
    const size_t messageBytes = pending_.front().size();
    if (!MayGo(messageBytes, allowedBytes)) break;
    if (sentBytes > 0 && sentBytes + messageBytes > kMostPumpedBytes) break;
    transport_.Send(std::move(pending_.front()));
    pending_.pop_front();
    sentBytes += messageBytes;
  }
  return static_cast<int64_t>(sentBytes);
}

void TileMessageQueue::AddWrapped(std::vector<uint8_t> message, const StreamEpoch& epoch) {
  pending_.push_back(
      Envelope(transport_.Protocol(), epoch.keyframes, epoch.width, epoch.height, std::move(message)));
}

bool TileMessageQueue::MayGo(size_t messageBytes, uint64_t allowedBytes) const {
  const auto backlogBytes = static_cast<uint64_t>(transport_.QueuedBytes());
  if (backlogBytes == 0) return true;
  return backlogBytes < allowedBytes && messageBytes <= allowedBytes - backlogBytes;
}

}  // namespace cvn::agent
