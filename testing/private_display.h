#pragma once

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace cvn::agent {

/// An X server (Xvfb) of a test's own, on a display number that was free: no access control, no TCP, started
/// by the constructor and ended by the destructor, or by the end of the thread that started it.
///
/// The constructor throws std::runtime_error when there is no Xvfb or it does not come up.
class PrivateDisplay {
 public:
  /// `screen` is WIDTHxHEIGHTxDEPTH; the size is also the largest that the screen can be given later.
  explicit PrivateDisplay(std::string screen = "1024x768x24", std::vector<std::string> moreArguments = {}) {
    std::vector<std::string> arguments = {
        "Xvfb", "-displayfd", "1", "-screen", "0", std::move(screen), "-nolisten", "tcp", "-noreset", "-ac"};
    arguments.insert(arguments.end(), moreArguments.begin(), moreArguments.end());
    number_ = Start(arguments);
  }

  ~PrivateDisplay() { Kill(); }
  PrivateDisplay(const PrivateDisplay&) = delete;
  PrivateDisplay& operator=(const PrivateDisplay&) = delete;

  /// What belongs into DISPLAY.
  std::string Name() const { return ":" + number_; }

  /// Ends the server at once, as a crash would.
  void Kill() {
    if (server_ <= 0) return;
    kill(server_, SIGKILL);
    waitpid(server_, nullptr, 0);
    server_ = -1;
  }

 private:
  /// Returns the display number that the server wrote to its standard output.
  std::string Start(const std::vector<std::string>& arguments) {
    std::vector<char*> raw(arguments.size() + 1, nullptr);
    std::transform(arguments.begin(), arguments.end(), raw.begin(),
                   [](const std::string& argument) { return const_cast<char*>(argument.c_str()); });
    std::array<int, 2> numberPipe = {};
    if (pipe2(numberPipe.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe for Xvfb");
    server_ = fork();
    if (server_ == 0) BecomeServer(raw.data(), numberPipe[1]);
    close(numberPipe[1]);
    std::string number = ReadLine(numberPipe[0]);
    close(numberPipe[0]);
    if (number.empty()) {
      Kill();
      throw std::runtime_error("Xvfb did not start (is it installed? on Debian: apt-get install xvfb)");
    }
    return number;
  }

  [[noreturn]] static void BecomeServer(char** arguments, int numberPipe) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(numberPipe, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    execvp(arguments[0], arguments);
    _exit(127);
  }

  static std::string ReadLine(int descriptor) {
    std::string line;
    char byte = 0;
    while (read(descriptor, &byte, 1) == 1 && byte != '\n') line += byte;
    return line;
  }

  pid_t server_ = -1;
  std::string number_;
};

}  // namespace cvn::agent
