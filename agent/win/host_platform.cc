#include "agent/host_platform.h"

#include <utility>

#include "capture/win/gdi_screen_capturer.h"
#include "capture/win/win_display_system.h"
#include "net/win/winsock_socket.h"
#include "tiles/win/wic_image_codec.h"

namespace cvn::agent {
namespace {

class WinPlatform final : public HostPlatform {
 public:
  std::unique_ptr<SocketSystem> CreateSocketSystem(std::string& error) override {
    return CreateWinsockSocketSystem(error);
  }
  std::unique_ptr<DisplaySystem> CreateDisplaySystem(std::string&) override {
    return CreateWinDisplaySystem();
  }
  CaptureBackends CreateCaptureBackends(DisplaySystem& displays,
                                        std::function<void()> screenTouched) override {
    return CreateWinCaptureBackends(displays, std::move(screenTouched));
  }
  const char* FallbackCaptureName() const override { return "GDI BitBlt"; }
  std::unique_ptr<TileImageCodec> CreateImageCodec() override { return CreateWicImageCodec(); }
  std::wstring DefaultDataDirectory() override { return L"C:/ProgramData/Corvinet"; }
};

}  // namespace

std::unique_ptr<HostPlatform> CreateHostPlatform() {
  return std::make_unique<WinPlatform>();
}

}  // namespace cvn::agent
