#include "net/peer_watch.h"

#include "net/socket_tuning.h"

namespace cvn::agent {

bool PeerWatch::IsLost(const PeerSigns& signs) {
  const int64_t withThisSliceMs = silentMs_ + kWaitSliceMs;
  const bool silent = signs.owesAnswer && signs.sinceHeardMs >= withThisSliceMs;
  silentMs_ = silent ? withThisSliceMs : 0;
  return silentMs_ >= kUnansweredLimitMs;
}

}  // namespace cvn::agent
