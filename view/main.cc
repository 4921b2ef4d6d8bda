#include <iostream>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/stop_signal.h"
#include "view/run_view.h"
#include "view/view_platform.h"

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
  cvn::agent::StopSignal stop;
  const cvn::view::InterruptWatch watch(stop);
  const auto sockets = cvn::view::CreateHostSockets();
  const auto codec = cvn::view::CreateHostImageCodec();
  if (!codec) {
    std::cerr << "cvn-view: no photographs can be decoded on this machine\n";
    return cvn::view::kViewFailed;
  }
  const cvn::agent::SystemClock clock;
  return cvn::view::RunView(words, {*sockets, *codec, clock, stop, std::cout, std::cerr});
}
