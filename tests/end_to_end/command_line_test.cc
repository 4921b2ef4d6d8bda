#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "tests/end_to_end/session_under_test.h"

namespace cvn::end_to_end {
namespace {

const std::string kUsage =
    "\n\n  cvn-agent serve [--port N] [--monitor N] [--view-only] [--relayed]\n"
    "                  [--strips N] [--log PATH]\n"
    "  cvn-agent device-id [--data-dir PATH]\n"
    "  cvn-agent selftest [--monitor N] [--strips N]\n";

class CommandLineTest : public SessionTest {
 protected:
  std::optional<int> RunAgent(const std::vector<std::string>& arguments) {
    agent_ = std::make_unique<ChildProcess>(AgentCommand(arguments));
    return AgentExitCode();
  }

  /// The log without its time stamps.
  static std::string Unstamped(const std::string& log) {
    static const std::regex stamp(R"((^|\n)\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )");
    return std::regex_replace(log, stamp, "$1");
  }
};

TEST_F(CommandLineTest, UsageErrorsExitWithTwoAndNameAnUnknownOption) {
  const struct {
    std::vector<std::string> arguments;
    std::string before;  // of the usage text, on the standard error stream
  } rows[] = {
      {{"status"}, ""},
      {{"--port", "0"}, ""},
      {{"serve", "--port"}, ""},
      {{"serve", "--port", "80x"}, ""},
      {{"serve", "--b\u00f6gus"}, "unknown option: --b\u00f6gus\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.arguments.back());
    EXPECT_EQ(RunAgent(row.arguments), 2);
    EXPECT_EQ(agent_->Output(), "");
    const std::string errors = agent_->Errors();
    EXPECT_EQ(errors.find(row.before + "Corvinet agent ("), 0u) << errors;
    ASSERT_GE(errors.size(), kUsage.size());
    EXPECT_EQ(errors.substr(errors.size() - kUsage.size()), kUsage);
  }
}

TEST_F(CommandLineTest, NeverFallsBackToPlaintext) {
  EXPECT_EQ(RunAgent({"serve", "--port", std::to_string(port_)}), 1);
  EXPECT_EQ(Unstamped(agent_->Output()).find("WRN [agent] no device identity, so no TLS: "), 0u)
      << agent_->Output();
}

TEST_F(CommandLineTest, SaysThatThePortIsTaken) {
  ServeDesktop();
  ChildProcess second(AgentCommand({"serve", "--insecure-plaintext", "--port", std::to_string(port_)}));
  EXPECT_EQ(second.WaitForExit(kPatience), 1);
  EXPECT_NE(second.Output().find("WRN [agent] could not accept a session: bind failed (WSA "),
            std::string::npos)
      << second.Output();
}

TEST_F(CommandLineTest, LogsASessionInOrderOnBothSinks) {
  const std::filesystem::path file = directory_.Path() / "\u0436\u0443\u0440\u043d\u0430\u043b" / "agent.log";
  ServeDesktop({"--log", file});
  ConnectViewer();
  ASSERT_TRUE(ViewerShowsTheScreen());
  viewer_->Signal(SIGINT);
  EXPECT_EQ(viewer_->WaitForExit(kPatience), 0);
  EXPECT_EQ(AgentExitCode(), 0);

  const std::string log = Unstamped(agent_->Output());
  const std::regex order(
      "WRN \\[agent\\] --insecure-plaintext: no TLS and no token\\. Loopback testing only\\.\n"
      "INF \\[agent\\] listening on 127\\.0\\.0\\.1 port " +
      std::to_string(port_) +
      " for one supporter\n"
      "INF \\[transport\\] accepted a connection from 127\\.0\\.0\\.1:\\d+\n"
      "INF \\[agent\\] session from 127\\.0\\.0\\.1:\\d+.*\n"
      "(.*\n)*INF \\[session\\] capture monitor=-1 bounds=\\(0,0\\) 1920x1080 virtual=\\(0,0\\) 1920x1080\n"
      "(.*\n)*INF \\[session\\] first tile frame \\d+ bytes after \\d+ captured frames\n"
      "(.*\n)*INF \\[agent\\] session ended\n(.*\n)*");
  EXPECT_TRUE(std::regex_match(log, order)) << log;
  EXPECT_EQ(log.find('\r'), std::string::npos);

  std::ifstream stream(file, std::ios::binary);
  std::ostringstream written;
  written << stream.rdbuf();
  EXPECT_EQ(written.str(), agent_->Output());
}

TEST_F(CommandLineTest, EndsASessionWhoseViewerBreaksTheFraming) {
  ServeDesktop();
  WireClient client = ConnectClient();
  client.SendRaw({4, 0, 0, 0, 1, 0});  // there are channels 0 to 3
  EXPECT_EQ(AgentExitCode(), 0);
  EXPECT_NE(agent_->Output().find("WRN [transport] malformed frame header; closing the session\n"),
            std::string::npos)
      << agent_->Output();
}

TEST_F(CommandLineTest, ViewerSaysThatNobodyIsThere) {
  ChildProcess viewer(ViewerCommand(port_, {"--snapshot", directory_.Path() / "none.png"}));
  EXPECT_EQ(viewer.WaitForExit(kPatience), 1);
  EXPECT_NE(viewer.Errors().find("connect failed"), std::string::npos) << viewer.Errors();
  EXPECT_FALSE(std::filesystem::exists(directory_.Path() / "none.png"));
}

}  // namespace
}  // namespace cvn::end_to_end
