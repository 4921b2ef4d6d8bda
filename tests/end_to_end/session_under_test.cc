#include "tests/end_to_end/session_under_test.h"

#include <csignal>
#include <cstdlib>
#include <sstream>

namespace cvn::end_to_end {
namespace {

/// Lives until the end of the executable: Wine needs seconds to move to another display.
const agent::PrivateDisplay& SharedDisplay() {
  static const agent::PrivateDisplay display("1920x1080x24");
  return display;
}

std::vector<std::string> Joined(std::vector<std::string> front, const std::vector<std::string>& back) {
  front.insert(front.end(), back.begin(), back.end());
  return front;
}

}  // namespace

std::vector<std::string> AgentCommand(const std::vector<std::string>& arguments) {
  std::istringstream words(CVN_AGENT_COMMAND);
  std::vector<std::string> command;
  for (std::string word; words >> word;) command.push_back(word);
  return Joined(command, arguments);
}

std::vector<std::string> ViewerCommand(uint16_t port, const std::vector<std::string>& arguments) {
  return Joined({CVN_VIEWER, "127.0.0.1", "--port", std::to_string(port), "--insecure-plaintext"}, arguments);
}

bool AgentRunsUnderWine() {
  return AgentCommand({}).size() > 1;
}

bool BuiltWithSanitizers() {
  return CVN_SANITIZED != 0;
}

void SessionTest::SetUpTestSuite() {
  setenv("DISPLAY", SharedDisplay().Name().c_str(), 1);
}

void SessionTest::ServeDesktop(const std::vector<std::string>& moreArguments) {
  const std::vector<std::string> serve = {"serve", "--insecure-plaintext", "--port", std::to_string(port_)};
  agent_ = std::make_unique<ChildProcess>(AgentCommand(Joined(serve, moreArguments)));
  ASSERT_TRUE(WaitUntil(kPatience, [this] { return SomebodyListens(port_) || !agent_->Running(); }));
  ASSERT_TRUE(agent_->Running()) << agent_->Output() << agent_->Errors();
}

void SessionTest::ConnectViewer(std::optional<uint16_t> port) {
  const std::string canvas = directory_.Path() / "canvas";
  viewer_ = std::make_unique<ChildProcess>(ViewerCommand(port.value_or(port_), {"--canvas", canvas}));
}

WireClient SessionTest::ConnectClient() {
  auto socket = LocalSocket::Connected(port_);
  if (!socket) throw std::runtime_error("the agent takes no connection");
  return WireClient(std::move(*socket));
}

::testing::AssertionResult SessionTest::ViewerShowsTheScreen() {
  std::string difference = "the viewer shows no picture";
  const bool equal = WaitUntil(kPatience, [&] {
    const auto shown = canvas_.Read();
    if (!shown) return false;
    const Picture screen = desktop_.Screen();
    if (*shown == screen) return true;
    difference = Difference(screen, *shown);
    return false;
  });
  return equal ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << difference;
}

bool SessionTest::AgentLogs(const std::string& text) {
  return WaitUntil(kPatience, [&] { return agent_->Output().find(text) != std::string::npos; });
}

}  // namespace cvn::end_to_end
