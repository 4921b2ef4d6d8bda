#include "view/view_arguments.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <vector>

namespace cvn::view {
namespace {

using Words = std::vector<std::string>;

TEST(ViewArguments, TakesEveryOption) {
  std::istringstream line(
      "::1 --port 65535 --insecure-plaintext --seconds 0.25 --snapshot s.png --canvas /dev/shm/c --monitor "
      "-1 "
      "--show-cursor --repaint --wait 3 --preset datasaver --gray --until-exact");
  const Words words(std::istream_iterator<std::string>(line), {});
  ViewArguments arguments;
  std::string error;
  ASSERT_TRUE(ParseViewArguments(words, arguments, error)) << error;
  EXPECT_EQ(arguments.host, "::1");
  EXPECT_EQ(arguments.port, 65535);
  EXPECT_EQ(arguments.durationNs, 250'000'000);
  EXPECT_EQ(arguments.snapshotPath, "s.png");
  EXPECT_EQ(arguments.canvasPath, "/dev/shm/c");
  EXPECT_EQ(arguments.monitor, -1);
  EXPECT_EQ(arguments.waitNs, 3'000'000'000);
  EXPECT_EQ(arguments.preset, "DataSaver");
  EXPECT_TRUE(arguments.insecurePlaintext && arguments.showCursor && arguments.repaint && arguments.gray &&
              arguments.untilExact && !arguments.untilIdle);
}

TEST(ViewArguments, SaysWhatIsWrong) {
  const std::pair<Words, const char*> rows[] = {
      {{"h", "--snapshot", "s.png"}, ""},
      {{"--help"}, ""},
      {{"--snapshot", "s.png"}, "no host to connect to"},
      {{"h"}, "nowhere to show the picture: give --snapshot FILE.png or --canvas FILE"},
      {{"h", "--snapshot", "x", "--canvas", "x"}, "--snapshot and --canvas need different files"},
      {{"h", "--canvas"}, "--canvas needs a file name"},
      {{"h", "--port", "0"}, "--port needs a number from 1 to 65535, not \"0\""},
      {{"h", "--port", "80x"}, "--port needs a number from 1 to 65535, not \"80x\""},
      {{"h", "--seconds", "0"}, "--seconds needs a number of seconds above 0, not \"0\""},
      {{"h", "--seconds", "nan"}, "--seconds needs a number of seconds above 0, not \"nan\""},
      {{"h", "--monitor", "-2"}, "--monitor needs a monitor number, or -1 for all displays, not \"-2\""},
      {{"h", "--preset", "Balance"}, "--preset needs High, Balanced or DataSaver, not \"Balance\""},
  };
  for (const auto& [words, refusal] : rows) {
    ViewArguments arguments;
    std::string error;
    EXPECT_EQ(ParseViewArguments(words, arguments, error), *refusal == 0);
    EXPECT_EQ(error, refusal);
  }
}

}  // namespace
}  // namespace cvn::view
