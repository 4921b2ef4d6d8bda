#include <iostream>

#include "agent/host_platform.h"
#include "agent/host_process.h"
#include "agent/run_agent.h"
#include "base/clock.h"
#include "base/stop_signal.h"

int main(int argc, char** argv) {
  using namespace cvn::agent;
  StopSignal stop;
  const auto process = PrepareHostProcess(stop);
  const auto platform = CreateHostPlatform();
  const SystemClock clock;
  return RunAgent(process->Utf8Arguments(argc, argv), {*platform, clock, stop, std::cout, std::cerr});
}
