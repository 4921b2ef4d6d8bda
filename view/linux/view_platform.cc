#include "view/view_platform.h"

#include <atomic>
#include <csignal>
#include <initializer_list>
#include <thread>

#include "net/linux/posix_socket.h"
#include "tiles/linux/turbo_image_codec.h"

#include <pthread.h>

namespace cvn::view {
namespace {

sigset_t SignalSet(std::initializer_list<int> numbers) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : numbers) sigaddset(&signals, number);
  return signals;
}

}  // namespace

std::unique_ptr<agent::SocketSystem> CreateHostSockets() {
  return agent::CreatePosixSocketSystem();
}

std::unique_ptr<TileImageCodec> CreateHostImageCodec() {
  return agent::CreateTurboImageCodec();
}

/// Threads inherit the mask with which they are made, so the signals wait for the watching thread.
struct InterruptWatch::State {
  void Watch() {
    if (!WaitFor(SignalSet({SIGINT, SIGTERM, SIGUSR1}))) return;
    stop->Set();
    // From here on this thread takes the interrupting ones in the usual way.
    const sigset_t interrupting = SignalSet({SIGINT, SIGTERM});
    pthread_sigmask(SIG_UNBLOCK, &interrupting, nullptr);
    WaitFor(SignalSet({SIGUSR1}));
  }

  /// False when the watch has ended.
  bool WaitFor(const sigset_t& signals) const {
    int number = SIGUSR1;
    while (number == SIGUSR1 && !ended) sigwait(&signals, &number);
    return !ended;
  }

  agent::StopSignal* stop = nullptr;
  sigset_t maskBefore{};
  std::atomic<bool> ended = false;
  std::thread thread;
};

InterruptWatch::InterruptWatch(agent::StopSignal& stop) : state_(std::make_unique<State>()) {
  state_->stop = &stop;
  const sigset_t watched = SignalSet({SIGINT, SIGTERM, SIGUSR1});
  pthread_sigmask(SIG_BLOCK, &watched, &state_->maskBefore);
  state_->thread = std::thread([state = state_.get()] { state->Watch(); });
}

InterruptWatch::~InterruptWatch() {
  state_->ended = true;
  // Wakes the watching thread; nobody else uses this signal.
  pthread_kill(state_->thread.native_handle(), SIGUSR1);
  state_->thread.join();
  pthread_sigmask(SIG_SETMASK, &state_->maskBefore, nullptr);
}

}  // namespace cvn::view
