#include "agent/host_process.h"

#include <cstdio>
#include <optional>

#include "base/utf.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

namespace cvn::agent {
namespace {

void UseBinaryMode(std::FILE* stream) {
  const int number = _fileno(stream);
  if (number >= 0) _setmode(number, _O_BINARY);
}

/// The console as the log needs it: UTF-8 text, and no quick-edit mode, in which a mouse selection blocks
/// every thread that writes. Put back at the end, since the console stays with the person's shell.
class ConsoleModes {
 public:
  ConsoleModes() {
    DWORD mode = 0;
    if (GetConsoleMode(input_, &mode)) {
      inputMode_ = mode;
      SetConsoleMode(input_, (mode & ~DWORD{ENABLE_QUICK_EDIT_MODE}) | ENABLE_EXTENDED_FLAGS);
    }
    SetConsoleOutputCP(CP_UTF8);
  }
  ~ConsoleModes() {
    if (inputMode_) SetConsoleMode(input_, *inputMode_);
    if (outputCodePage_ != 0) SetConsoleOutputCP(outputCodePage_);
  }
  ConsoleModes(const ConsoleModes&) = delete;
  ConsoleModes& operator=(const ConsoleModes&) = delete;

 private:
  HANDLE input_ = GetStdHandle(STD_INPUT_HANDLE);
  std::optional<DWORD> inputMode_;
  UINT outputCodePage_ = GetConsoleOutputCP();
};

/// The system calls the handler on a thread of its own and gives it nothing but the event's number.
StopSignal* stopOfProcess = nullptr;

BOOL WINAPI EndProcess(DWORD event) {
  stopOfProcess->Set();
  // After these two the process goes on and ends by itself; after the others (closed console, log-off,
  // shutdown) the system kills it as soon as the handler returns.
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) StopSignal().WaitFor(std::chrono::seconds(10));
  return TRUE;
}

class WinProcess final : public HostProcess {
 public:
  explicit WinProcess(StopSignal& stop) {
    stopOfProcess = &stop;
    SetConsoleCtrlHandler(nullptr, FALSE);  // a parent may have switched Ctrl+C off for its children
    SetConsoleCtrlHandler(EndProcess, TRUE);
  }
  ~WinProcess() override { SetConsoleCtrlHandler(EndProcess, FALSE); }

  std::vector<std::string> Utf8Arguments(int, const char* const*) const override {
    int count = 0;
    const std::unique_ptr<LPWSTR, decltype(&LocalFree)> wide(CommandLineToArgvW(GetCommandLineW(), &count),
                                                             LocalFree);
    std::vector<std::string> arguments;
    for (int i = 1; wide != nullptr && i < count; ++i) arguments.push_back(Utf8FromWide(wide.get()[i]));
    return arguments;
  }

 private:
  ConsoleModes consoleModes_;
};

}  // namespace

std::unique_ptr<HostProcess> PrepareHostProcess(StopSignal& stop) {
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  UseBinaryMode(stdout);
  UseBinaryMode(stderr);
  return std::make_unique<WinProcess>(stop);
}

}  // namespace cvn::agent
