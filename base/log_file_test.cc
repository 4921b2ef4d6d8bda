#include "base/log_file.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

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

void AppendOnce(const fs::path& path, std::string_view line) {
  LogFile file;
  file.Open(path);
  file.Append(line);
}

TEST(LogFile, RotatesTwoBytesEarlyAndAlwaysFromAnUnknownSize) {
  const struct {
    const char* what;
    uint64_t writtenBytes;
    size_t lineBytes;
    bool rotates;
  } rows[] = {
      {"exactly full with two more", 8'388'596, 10, false},
      {"one too many", 8'388'597, 10, true},
      {"already full", 8'388'608, 0, true},
      {"grown past the limit", 8'388'609, 0, true},
      {"unknown size", UINT64_MAX, 10, true},
      {"unknown size, empty line", UINT64_MAX, 0, true},
      {"endless line", 0, SIZE_MAX - 2, true},
      {"empty file", 0, 10, false},
  };
  for (const auto& row : rows)
    EXPECT_EQ(LogLineNeedsRotation(row.writtenBytes, row.lineBytes), row.rotates) << row.what;
}

TEST(LogFile, MovesAFullFileAsideReplacingAnOlderOne) {
  const TemporaryDirectory directory;
  const fs::path path = directory.Path() / "agent.log";
  MakeFile(path, 8'388'600);
  MakeFile(directory.Path() / "agent.log.1", 5);
  AppendOnce(path, "0123456789");
  EXPECT_EQ(fs::file_size(directory.Path() / "agent.log.1"), 8'388'600u);
  EXPECT_EQ(ContentOf(path), "0123456789\n");
}

TEST(LogFile, CountsOneByteForTheEndOfEachLine) {
  const TemporaryDirectory directory;
  const fs::path path = directory.Path() / "agent.log";
  MakeFile(path, 8'388'608 - 24);
  LogFile file;
  file.Open(path);
  file.Append("0123456789");  // 13 bytes are left after it
  file.Append("0123456789");  // 13 >= 10 + 2: still here
  EXPECT_FALSE(fs::exists(directory.Path() / "agent.log.1"));
  file.Append("");  // 2 bytes are left, 0 + 2 asked for
  EXPECT_FALSE(fs::exists(directory.Path() / "agent.log.1"));
  file.Append("");  // 1 byte is left
  EXPECT_EQ(fs::file_size(directory.Path() / "agent.log.1"), 8'388'607u);
  EXPECT_EQ(ContentOf(path), "\n");
}

TEST(LogFile, AppendsAcrossRunsAndCreatesDirectories) {
  const TemporaryDirectory directory;
  const fs::path path = directory.Path() / "a" / PathFromUtf8("d\xC3\xA9p\xC3\xB4t") / "agent.log";
  AppendOnce(path, "one");
  AppendOnce(path, "two");
  EXPECT_EQ(ContentOf(path), "one\ntwo\n");
}

TEST(LogFile, StaysBoundedWhenTheOldFileCannotBeMoved) {
  const TemporaryDirectory directory;
  const fs::path path = directory.Path() / "agent.log";
  fs::create_directories(directory.Path() / "agent.log.1" / "in the way");
  MakeFile(path, 8'388'600);
  AppendOnce(path, "newest line");
  EXPECT_EQ(ContentOf(path), "newest line\n");
}

TEST(LogFile, AFileThatCannotBeOpenedIsSkipped) {
  const TemporaryDirectory directory;
  LogFile file;
  file.Open(directory.Path());
  file.Append("nowhere");
  file.Open(directory.Path() / "agent.log");
  file.Append("here");
  EXPECT_EQ(ContentOf(directory.Path() / "agent.log"), "here\n");
}

TEST(LogFile, ParentDropsTrailingSeparatorsAndTheLastComponent) {
  const struct {
    fs::path path;
    fs::path parent;
  } rows[] = {
      {"agent.log", ""}, {"logs/agent.log", "logs/"}, {"logs\\agent.log", "logs\\"},
      {"a/b//", "a/"},   {"/agent.log", "/"},         {"", ""},
  };
  for (const auto& row : rows)
    EXPECT_EQ(LogFileDirectory(row.path).native(), row.parent.native()) << row.path;
}

}  // namespace
}  // namespace cvn::agent
