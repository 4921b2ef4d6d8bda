#include "agent/arguments.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace cvn::agent {
namespace {

struct Parsed {
  bool accepted = false;
  Arguments arguments;
  std::string errors;
};

Parsed Parse(const std::vector<std::string>& line) {
  Parsed parsed;
  std::ostringstream errors;
  parsed.accepted = ParseArguments(line, errors, parsed.arguments);
  parsed.errors = errors.str();
  return parsed;
}

TEST(Arguments, NothingGivenMeansServeWithDefaults) {
  const Arguments defaults = Parse({}).arguments;
  EXPECT_EQ(defaults.command, "serve");
  EXPECT_EQ(defaults.port, 7443);
  EXPECT_EQ(defaults.monitor, -1);
  EXPECT_EQ(defaults.strips, 0);
  EXPECT_TRUE(defaults.logPath.empty() && defaults.token.empty());
  EXPECT_FALSE(defaults.viewOnly || defaults.relayed || defaults.listenLan || defaults.insecurePlaintext);
}

TEST(Arguments, EveryOptionReachesItsFieldAndTheLastOneWins) {
  const auto [accepted, arguments, errors] =
      Parse({"selftest", "--port", "1", "--monitor", "2", "--strips", "3", "--log", "a b", "--data-dir",
             "d\xC3\xBC", "--token", "--port", "--view-only", "--relayed", "--listen-lan",
             "--insecure-plaintext", "--port", "65535"});
  EXPECT_TRUE(accepted && errors.empty());
  EXPECT_EQ(arguments.command, "selftest");
  EXPECT_EQ(arguments.port, 65535);
  EXPECT_EQ(arguments.monitor, 2);
  EXPECT_EQ(arguments.strips, 3);
  EXPECT_EQ(arguments.logPath, "a b");
  EXPECT_EQ(arguments.dataDir, L"d\u00FC");
  EXPECT_EQ(arguments.token, "--port") << "a value may look like an option";
  EXPECT_TRUE(arguments.viewOnly && arguments.relayed && arguments.listenLan && arguments.insecurePlaintext);
}

TEST(Arguments, OnlyAnUnknownOptionIsNamed) {
  const struct {
    std::vector<std::string> line;
    const char* errors;
  } rows[] = {
      {{"--port"}, ""},
      {{"--port", ""}, ""},
      {{"--port", "0"}, ""},
      {{"--port", "65536"}, ""},
      {{"--port", "-1"}, ""},
      {{"--port", "80x"}, ""},
      {{"--port", "80 "}, ""},
      {{"--port", "0x50"}, ""},
      {{"--port", "4294967376"}, ""},
      {{"--port", "18446744073709551696"}, ""},
      {{"--monitor", "one"}, ""},
      {{"--monitor", "-"}, ""},
      {{"--strips", "1.5"}, ""},
      {{"--view-only", "--token"}, ""},
      {{"--bogus"}, "unknown option: --bogus\n"},
      {{"--port=80"}, "unknown option: --port=80\n"},
      {{"--PORT", "80"}, "unknown option: --PORT\n"},
      {{"-p", "80"}, "unknown option: -p\n"},
      {{"serve", "extra"}, "unknown option: extra\n"},
      {{"--relayed", "serve"}, "unknown option: serve\n"},
      {{"--bogus", "--port"}, "unknown option: --bogus\n"},
      {{"serve", ""}, "unknown option: \n"},
  };
  for (const auto& row : rows) {
    const Parsed parsed = Parse(row.line);
    EXPECT_FALSE(parsed.accepted) << row.line.back();
    EXPECT_EQ(parsed.errors, row.errors) << row.line.back();
  }
}

TEST(Arguments, ABadValueLeavesWhatWasStoredBefore) {
  EXPECT_EQ(Parse({"--port", "8000", "--port", "0"}).arguments.port, 8000);
  EXPECT_EQ(Parse({"--strips", "4", "--bogus"}).arguments.strips, 4);
}

TEST(Arguments, NumbersReadAndSaturateLikeACNumber) {
  const struct {
    const char* text;
    int32_t monitor;
  } rows[] = {{"-1", -1},
              {"+7", 7},
              {" 7", 7},
              {"007", 7},
              {"2147483647", INT32_MAX},
              {"2147483648", INT32_MAX},
              {"99999999999999999999", INT32_MAX},
              {"-2147483648", INT32_MIN},
              {"-2147483649", INT32_MIN},
              {"-99999999999999999999", INT32_MIN}};
  for (const auto& row : rows) {
    const Parsed parsed = Parse({"--monitor", row.text});
    EXPECT_TRUE(parsed.accepted) << row.text;
    EXPECT_EQ(parsed.arguments.monitor, row.monitor) << row.text;
  }
  EXPECT_EQ(Parse({"--port", "+00080"}).arguments.port, 80);
}

TEST(Arguments, ACommandIsWhateverComesFirstWithoutADash) {
  EXPECT_EQ(Parse({"status", "--relayed"}).arguments.command, "status");
  EXPECT_EQ(Parse({""}).arguments.command, "");
  EXPECT_EQ(Parse({"--relayed"}).arguments.command, "serve");
}

}  // namespace
}  // namespace cvn::agent
