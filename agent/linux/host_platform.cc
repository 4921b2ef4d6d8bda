#include "agent/host_platform.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "agent/linux/state_directory.h"
#include "base/utf.h"
#include "capture/linux/x11_display_system.h"
#include "capture/linux/x11_screen_capturer.h"
#include "net/linux/posix_socket.h"
#include "tiles/linux/turbo_image_codec.h"

namespace cvn::agent {
namespace {

std::string_view Variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

/// Services of the system itself are started without $HOME.
std::string_view HomeDirectory() {
  if (const auto home = Variable("HOME"); !home.empty()) return home;
  const passwd* user = getpwuid(getuid());
  return user != nullptr ? user->pw_dir : "";
}

class LinuxPlatform final : public HostPlatform {
 public:
  std::unique_ptr<SocketSystem> CreateSocketSystem(std::string&) override {
    return CreatePosixSocketSystem();
  }
  std::unique_ptr<DisplaySystem> CreateDisplaySystem(std::string& error) override {
    return CreateX11DisplaySystem(error);
  }
  CaptureBackends CreateCaptureBackends(DisplaySystem& displays,
                                        std::function<void()> screenTouched) override {
    return CreateX11CaptureBackends(displays, std::move(screenTouched));
  }
  const char* FallbackCaptureName() const override { return "X11"; }
  std::unique_ptr<TileImageCodec> CreateImageCodec() override { return CreateTurboImageCodec(); }
  std::wstring DefaultDataDirectory() override {
    return WideFromUtf8(StateDirectory(Variable("XDG_STATE_HOME"), HomeDirectory()));
  }
};

}  // namespace

std::unique_ptr<HostPlatform> CreateHostPlatform() {
  return std::make_unique<LinuxPlatform>();
}

}  // namespace cvn::agent
