#include "tests/end_to_end/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

namespace cvn::end_to_end {
namespace {

constexpr milliseconds kPollInterval{5};

std::string ReadWhole(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void RedirectTo(const std::string& path, int descriptor) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  dup2(file, descriptor);
  close(file);
}

[[noreturn]] void BecomeProgram(const std::vector<std::string>& command, const std::string& directory) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  RedirectTo("/dev/null", STDIN_FILENO);
  RedirectTo(directory + "/output", STDOUT_FILENO);
  RedirectTo(directory + "/errors", STDERR_FILENO);
  std::vector<char*> arguments;
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  _exit(127);
}

}  // namespace

bool WaitUntil(milliseconds patience, const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPollInterval);
  }
  return true;
}

ChildProcess::ChildProcess(const std::vector<std::string>& command) : pid_(fork()) {
  if (pid_ == 0) BecomeProgram(command, directory_.Path());
}

ChildProcess::~ChildProcess() {
  if (Running()) Signal(SIGKILL);
  WaitForExit(seconds(10));
  // A reader of a failed test's log wants to know what the programs had to say.
  if (::testing::Test::HasFailure()) std::fprintf(stderr, "%s%s", Output().c_str(), Errors().c_str());
}

std::string ChildProcess::Output() const {
  return ReadWhole(directory_.Path() / "output");
}

std::string ChildProcess::Errors() const {
  return ReadWhole(directory_.Path() / "errors");
}

bool ChildProcess::Running() {
  int status = 0;
  if (exitCode_ || waitpid(pid_, &status, WNOHANG) != pid_) return !exitCode_;
  exitCode_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  return false;
}

std::optional<int> ChildProcess::WaitForExit(milliseconds patience) {
  WaitUntil(patience, [this] { return !Running(); });
  return exitCode_;
}

void ChildProcess::Signal(int number) {
  if (Running()) kill(pid_, number);
}

int64_t ChildProcess::ResidentBytes() const {
  std::istringstream fields(ReadWhole("/proc/" + std::to_string(pid_) + "/statm"));
  int64_t total = 0;
  int64_t resident = 0;
  fields >> total >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

milliseconds ChildProcess::CpuTime() const {
  const std::string stat = ReadWhole("/proc/" + std::to_string(pid_) + "/stat");
  std::istringstream fields(stat.substr(stat.rfind(')') + 2));
  std::string skipped;
  for (int field = 3; field < 14; ++field) fields >> skipped;  // proc(5): 14 is utime, 15 is stime
  int64_t user = 0;
  int64_t system = 0;
  fields >> user >> system;
  return milliseconds((user + system) * 1000 / sysconf(_SC_CLK_TCK));
}

}  // namespace cvn::end_to_end
