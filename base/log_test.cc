#include "base/log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "testing/captured_log.h"
#include "testing/temporary_directory.h"

namespace cvn::agent {
namespace {

std::vector<std::string> LinesOf(const std::filesystem::path& path) {
  std::vector<std::string> lines;
  std::ifstream file(path, std::ios::binary);
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

// Binary, like the agent's own console: a line ends with one line feed on every host.
std::unique_ptr<std::FILE, int (*)(std::FILE*)> ConsoleFile(const std::filesystem::path& path,
                                                            const char* mode = "wb") {
  return {std::fopen(path.string().c_str(), mode), std::fclose};
}

TEST(AgentLog, WritesTheSameStampedLineToConsoleAndFile) {
  const TemporaryDirectory directory;
  const auto console = ConsoleFile(directory.Path() / "console");
  AgentLog log(console.get());
  log.Info("before %s", "the file");
  log.OpenFile(directory.Path() / "logs" / "agent.log");
  log.Warn("[agent] port %u, %s", 7443u, std::string(3000, 'x').c_str());
  log.CloseFile();
  log.Info("after");

  const auto shown = LinesOf(directory.Path() / "console");
  ASSERT_EQ(shown.size(), 3u);
  const std::regex form(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} WRN \[agent\] port 7443, x{3000})");
  EXPECT_TRUE(std::regex_match(shown[1], form)) << shown[1];
  EXPECT_EQ(shown[0].substr(23), " INF before the file");
  EXPECT_EQ(LinesOf(directory.Path() / "logs" / "agent.log"), std::vector{shown[1]});
}

TEST(AgentLog, KeepsLinesWholeWhileManyThreadsRotateTheFile) {
  const TemporaryDirectory directory;
  const auto console = ConsoleFile(directory.Path() / "console");
  AgentLog log(console.get());
  log.OpenFile(directory.Path() / "agent.log");
  const std::string filler(100'000, '.');
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread)
    threads.emplace_back([&] {
      for (int i = 0; i < 40; ++i) log.Info("<%s>", filler.c_str());
    });
  for (std::thread& thread : threads) thread.join();

  auto lines = LinesOf(directory.Path() / "agent.log.1");
  EXPECT_EQ(lines.size(), 83u);  // 83 * 100031 bytes fit, 84 do not
  for (const std::string& line : LinesOf(directory.Path() / "agent.log")) lines.push_back(line);
  EXPECT_EQ(lines.size(), 160u);
  for (const std::string& line : lines) EXPECT_EQ(line.substr(23), " INF <" + filler + ">");
}

TEST(AgentLog, SurvivesAConsoleThatRefusesEveryByte) {
  const TemporaryDirectory directory;
  std::ofstream(directory.Path() / "console").put('x');
  const auto readOnly = ConsoleFile(directory.Path() / "console", "rb");
  ASSERT_TRUE(readOnly);
  AgentLog log(readOnly.get());
  log.OpenFile(directory.Path() / "agent.log");
  for (int i = 0; i < 3; ++i) log.Info("line");
  EXPECT_EQ(LinesOf(directory.Path() / "agent.log").size(), 3u);
}

TEST(TlsTrace, FormatsNothingUntilEnabledAndIsCut) {
  CapturedLog captured;
  TlsTrace("server", "unseen");
  EnableTlsTrace(true);
  TlsTrace("client", "%s", std::string(600, 'x').c_str());
  EnableTlsTrace(false);
  TlsTrace("server", "unseen");
  EXPECT_EQ(captured.Lines(), std::vector{"INF [tls:client] " + std::string(511, 'x')});
}

}  // namespace
}  // namespace cvn::agent
