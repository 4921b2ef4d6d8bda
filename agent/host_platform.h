#pragma once

#include <functional>
#include <memory>
#include <string>

#include "capture/display_system.h"
#include "capture/screen_capturer.h"
#include "net/socket_system.h"
#include "tiles/tile_image_codec.h"

namespace cvn::agent {

/// Makes the host's own kind of everything that the agent works with. It keeps nothing: what it made outlives
/// it, and nobody below the commands knows it.
class HostPlatform {
 public:
  virtual ~HostPlatform() = default;
  /// Null with `error` set when the host's sockets cannot be used.
  virtual std::unique_ptr<SocketSystem> CreateSocketSystem(std::string& error) = 0;
  /// Null with `error` set when there are no displays to capture.
  virtual std::unique_ptr<DisplaySystem> CreateDisplaySystem(std::string& error) = 0;
  /// `displays` is borrowed by every capturer; `screenTouched` may be called from any thread while one lives.
  virtual CaptureBackends CreateCaptureBackends(DisplaySystem& displays,
                                                std::function<void()> screenTouched) = 0;
  /// What people call the backends' `fallback`.
  virtual const char* FallbackCaptureName() const = 0;
  /// Null, with the reason logged, when the host has none: everything then travels losslessly. Used and
  /// destroyed on the thread that made it.
  virtual std::unique_ptr<TileImageCodec> CreateImageCodec() = 0;
  /// Where the device identity is kept unless the command line says otherwise.
  virtual std::wstring DefaultDataDirectory() = 0;
};

/// This host's.
std::unique_ptr<HostPlatform> CreateHostPlatform();

}  // namespace cvn::agent
