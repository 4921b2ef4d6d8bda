#pragma once

#include <iosfwd>
#include <span>
#include <string>

#include "base/clock.h"
#include "base/stop_signal.h"
#include "net/socket_system.h"
#include "tiles/tile_image_codec.h"

namespace cvn::view {

/// What the program runs on; everything is borrowed.
struct ViewHost {
  agent::SocketSystem& sockets;
  TileImageCodec& codec;
  const agent::Clock& clock;
  /// Set by Ctrl+C: ends the session in good order.
  agent::StopSignal& stop;
  std::ostream& out;
  std::ostream& err;
};

inline constexpr int kViewOk = 0;
inline constexpr int kViewFailed = 1;
inline constexpr int kViewUsage = 2;

/// The whole program. `words` are the arguments without the program's name, in UTF-8. Returns the exit code:
/// `kViewOk` only when a full picture arrived and was stored where it was wished for. A picture that is full
/// is stored even when the session failed later.
int RunView(std::span<const std::string> words, const ViewHost& host);

}  // namespace cvn::view
