#include "base/log_file.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include "base/utf.h"
#include "testing/temporary_directory.h"

namespace cvn::agent {
namespace {

namespace fs = std::filesystem;

std::string ContentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void MakeFile(const fs::path& path, uint64_t byteCount) {
  std::ofstream(path, std::ios::binary).put('x');
  fs::resize_file(path, byteCount);
}

struct LogFileTest : testing::Test {
  static void AppendOnce(const fs::path& path, std::string_view line) {
    LogFile file;
    file.Open(path);
    file.Append(line);
  }

  const TemporaryDirectory directory;
  const fs::path path = directory.Path() / "agent.log";
  const fs::path older = directory.Path() / "agent.log.1";
};

TEST_F(LogFileTest, RotatesWhateverTheSizesAreWithoutWrapping) {
  EXPECT_TRUE(LogLineNeedsRotation(8'388'609, 0)) << "grown past the limit";
  EXPECT_TRUE(LogLineNeedsRotation(UINT64_MAX, 10)) << "unknown size";
  EXPECT_TRUE(LogLineNeedsRotation(0, SIZE_MAX - 2)) << "endless line";
}

TEST_F(LogFileTest, CountsOneByteForTheEndOfEachLineAndMovesAFullFileOverTheOlderOne) {
  MakeFile(path, 8'388'608 - 24);
  MakeFile(older, 5);
  LogFile file;
  file.Open(path);
  file.Append("0123456789");  // 13 bytes are left after it
  file.Append("0123456789");  // 13 >= 10 + 2: still here
  file.Append("");            // 2 bytes are left, 0 + 2 asked for
  EXPECT_EQ(fs::file_size(older), 5u);
  file.Append("");  // 1 byte is left
  EXPECT_EQ(fs::file_size(older), 8'388'607u);
  EXPECT_EQ(ContentOf(path), "\n");
}

TEST_F(LogFileTest, AppendsAcrossRunsAndCreatesDirectories) {
  const fs::path deep = directory.Path() / "a" / PathFromUtf8("d\xC3\xA9p\xC3\xB4t") / "agent.log";
  AppendOnce(deep, "one");
  AppendOnce(deep, "two");
  EXPECT_EQ(ContentOf(deep), "one\ntwo\n");
}

TEST_F(LogFileTest, StaysBoundedWhenTheOldFileCannotBeMoved) {
  fs::create_directories(older / "in the way");
  MakeFile(path, 8'388'600);
  AppendOnce(path, "newest line");
  EXPECT_EQ(ContentOf(path), "newest line\n");
}

TEST_F(LogFileTest, SkipsAFileThatCannotBeOpened) {
  LogFile file;
  file.Open(directory.Path());
  file.Append("nowhere");
  file.Open(path);
  file.Append("here");
  EXPECT_EQ(ContentOf(path), "here\n");
}

TEST_F(LogFileTest, ParentDropsTrailingSeparatorsAndTheLastComponent) {
  const std::pair<fs::path, fs::path> rows[] = {
      {"agent.log", ""}, {"logs/agent.log", "logs/"}, {"logs\\agent.log", "logs\\"},
      {"a/b//", "a/"},   {"/agent.log", "/"},         {"", ""},
  };
  for (const auto& [file, parent] : rows) EXPECT_EQ(LogFileDirectory(file).native(), parent.native()) << file;
}

}  // namespace
}  // namespace cvn::agent
