#include "agent/host_process.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace cvn::agent {
namespace {

/// A standard stream that was closed by whoever started the process would be the number of the next file or
/// socket, and the log would be written into that.
void OccupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(stream, F_GETFD) == -1) (void)open("/dev/null", O_RDWR);
}

/// Turns the signals that ask a process to end into `stop`. They are blocked in every thread and taken by one
/// that waits for them, since a signal handler could not lock what `stop` locks. The first one asks; another
/// one ends a process that cannot answer, because the X server or the terminal it logs to stands still.
class EndingSignals {
 public:
  explicit EndingSignals(StopSignal& stop) : stop_(stop) {
    sigemptyset(&signals_);
    Include(SIGINT);
    Include(SIGTERM);
    if (!IsIgnored(SIGHUP)) Include(SIGHUP);  // nohup wants the process to outlive its terminal
    sigset_t watched = signals_;
    sigaddset(&watched, kWakeSignal);
    pthread_sigmask(SIG_BLOCK, &watched, nullptr);
    waiter_ = std::thread([this] { Wait(); });
  }
  ~EndingSignals() {
    ending_ = true;
    pthread_kill(waiter_.native_handle(), kWakeSignal);
    waiter_.join();
  }
  EndingSignals(const EndingSignals&) = delete;
  EndingSignals& operator=(const EndingSignals&) = delete;

 private:
  static bool IsIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
  }

  void Include(int signal) {
    // A shell starts background programs with the interrupt ignored.
    ::signal(signal, SIG_DFL);
    sigaddset(&signals_, signal);
  }

  void Wait() {
    sigset_t first = signals_;
    sigaddset(&first, kWakeSignal);
    WaitFor(first);
    if (ending_) return;
    stop_.Set();
    pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
    sigset_t wake;
    sigemptyset(&wake);
    sigaddset(&wake, kWakeSignal);
    WaitFor(wake);
  }

  /// Returns with `ending_` set, or with a signal that is not the wake signal.
  void WaitFor(const sigset_t& signals) const {
    int signal = kWakeSignal;
    while (!ending_ && signal == kWakeSignal) sigwait(&signals, &signal);
  }

  /// Ends the waiting thread; nobody else uses it.
  static constexpr int kWakeSignal = SIGUSR1;

  StopSignal& stop_;
  sigset_t signals_{};
  std::atomic<bool> ending_ = false;
  std::thread waiter_;
};

class LinuxProcess final : public HostProcess {
 public:
  explicit LinuxProcess(StopSignal& stop) : endingSignals_(stop) {}

  std::vector<std::string> Utf8Arguments(int argc, const char* const* argv) const override {
    return argc > 0 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
  }

 private:
  EndingSignals endingSignals_;
};

}  // namespace

std::unique_ptr<HostProcess> PrepareHostProcess(StopSignal& stop) {
  OccupyStandardStreams();
  signal(SIGPIPE, SIG_IGN);  // whoever read the log may have gone
  return std::make_unique<LinuxProcess>(stop);
}

}  // namespace cvn::agent
