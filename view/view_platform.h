#pragma once

#include <memory>

#include "base/stop_signal.h"
#include "net/socket_system.h"
#include "tiles/tile_image_codec.h"

namespace cvn::view {

/// The host's TCP sockets.
std::unique_ptr<agent::SocketSystem> CreateHostSockets();

/// The host's decoder of photographic tiles. Null, and one line logged, when there is none.
std::unique_ptr<TileImageCodec> CreateHostImageCodec();

/// While it lives, Ctrl+C and a polite request to terminate set a stop signal instead of ending the process.
/// The second of them ends it all the same. Made before the process has other threads, and destroyed after
/// them.
class InterruptWatch {
 public:
  /// `stop` is borrowed.
  explicit InterruptWatch(agent::StopSignal& stop);
  ~InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace cvn::view
