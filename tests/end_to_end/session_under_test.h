#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "testing/private_display.h"
#include "testing/temporary_directory.h"
#include "tests/end_to_end/child_process.h"
#include "tests/end_to_end/desktop.h"
#include "tests/end_to_end/live_canvas.h"
#include "tests/end_to_end/wire_client.h"

namespace cvn::end_to_end {

/// The programs that this test executable was built to try: the native agent, or the Windows one under Wine.
std::vector<std::string> AgentCommand(const std::vector<std::string>& arguments);
std::vector<std::string> ViewerCommand(uint16_t port, const std::vector<std::string>& arguments);
bool AgentRunsUnderWine();
/// Sanitizers cost time and memory that say nothing of the product.
bool BuiltWithSanitizers();

/// How long something may take before the test gives up on it: far longer than it does, for a busy machine.
inline constexpr milliseconds kPatience{30000};

/// A private display of 1920x1080 for the whole test executable, and per test a desktop on it, an agent that
/// serves it and, when asked for, a viewer.
class SessionTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite();

  /// Starts an agent and returns when it listens. One at a time.
  void ServeDesktop(const std::vector<std::string>& moreArguments = {});
  /// Starts a viewer on `port` (that of the agent when absent) that shows its picture in the canvas.
  void ConnectViewer(std::optional<uint16_t> port = std::nullopt);
  /// Connects a client of the test's own instead of a viewer.
  WireClient ConnectClient();

  /// Whether the viewer comes to show exactly what the X server shows.
  ::testing::AssertionResult ViewerShowsTheScreen();
  /// The agent's exit code once it has ended by itself.
  std::optional<int> AgentExitCode() { return agent_->WaitForExit(kPatience); }
  bool AgentLogs(const std::string& text);

  agent::TemporaryDirectory directory_;
  Desktop desktop_;
  uint16_t port_ = FreePort();
  std::unique_ptr<ChildProcess> agent_;
  std::unique_ptr<ChildProcess> viewer_;
  LiveCanvas canvas_{directory_.Path() / "canvas"};
};

}  // namespace cvn::end_to_end
