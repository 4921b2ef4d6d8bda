#include "control/control_message.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace cvn::agent {
namespace {

std::optional<ControlMessage> Decode(std::string_view json) {
  return DecodeControlMessage({reinterpret_cast<const uint8_t*>(json.data()), json.size()});
}

constexpr char kDefaults[] =
    R"({"t":0,"s":null,"vk":0,"down":false,"x":0,"y":0,"btn":null,"wheel":0,"hwheel":0,"mime":null,)"
    R"("data":null,"kbps":0,"fps":0,"lossPermille":0,"rttMs":0,"preset":null,"gray":false,"vw":0,"vh":0,)"
    R"("index":0,"count":0,"show":false,"shape":null,"reqId":null,"url":null,"name":null,"run":false,)"
    R"("ok":false,"error":null,"path":null,"on":false,"pub":null,"port":0,"user":null,"fp":null,)"
    R"("expires":0,"cmd":null,"hostKey":null})";

constexpr char kEveryField[] =
    R"({"t":1,"s":"a","vk":2,"down":true,"x":3,"y":-4,"btn":5,"wheel":6,"hwheel":7,"mime":"b",)"
    R"("data":"","kbps":8,"fps":9,"lossPermille":10,"rttMs":11,"preset":"c","gray":true,"vw":12,"vh":13,)"
    R"("index":-1,"count":14,"show":true,"shape":"d","reqId":"e","url":"f\u003C\uD83D\uDE00","name":"g",)"
    R"("run":true,"ok":true,"error":"h","path":"i","on":true,"pub":"j","port":15,"user":"k","fp":"l",)"
    R"("expires":4611686018427387904,"cmd":"m","hostKey":"n"})";

TEST(ControlMessage, EncodesEveryKeyInOrder) {
  EXPECT_EQ(EncodeControlMessage({}), kDefaults);
}

TEST(ControlMessage, ADecodedMessageEncodesUnchanged) {
  for (const char* json : {kDefaults, kEveryField}) {
    const auto message = Decode(json);
    ASSERT_TRUE(message);
    EXPECT_EQ(EncodeControlMessage(*message), json);
  }
  EXPECT_EQ(Decode(kDefaults), ControlMessage{});
}

TEST(ControlMessage, PutsEachKeyIntoItsOwnField) {
  const ControlMessage message = Decode(kEveryField).value_or(ControlMessage{});
  EXPECT_EQ(message.type, 1);
  EXPECT_EQ(message.text, "a");
  EXPECT_EQ(message.virtualKey, 2);
  EXPECT_EQ(message.y, -4);
  EXPECT_EQ(message.button, 5);
  EXPECT_EQ(message.data, "");
  EXPECT_EQ(message.rttMs, 11);
  EXPECT_EQ(message.viewportHeight, 13);
  EXPECT_EQ(message.index, -1);
  EXPECT_TRUE(message.show && message.run && message.gray && message.down);
  EXPECT_EQ(message.requestId, "e");
  EXPECT_EQ(message.name, "g");
  EXPECT_EQ(message.expires, 4611686018427387904);
}

TEST(ControlMessage, OnlyOneWellFormedObjectIsAMessage) {
  const struct {
    std::string json;
    bool accepted;
  } rows[] = {
      {"{}", true},
      {" \t{ } \r\n", true},
      {"{}x", false},
      {"{}{}", false},
      {"", false},
      {"[]", false},
      {"1", false},
      {"null", false},
      {"\"{}\"", false},
      {"{\"t\":1", false},
      {"{\"t\":}", false},
      {"{\"unknown\":[1,{\"a\":\"\\u0041\"}]}", true},
      {"{\"unknown\":[1,]}", false},
      {"{\"unknown\":\"\\x\"}", false},
      {"{\"unknown\":1e999}", false},
      {"{\"unknown\":" + std::string(64, '[') + std::string(64, ']') + "}", true},
      {"{\"unknown\":" + std::string(65, '[') + std::string(65, ']') + "}", false},
      {"{\"s\":" + std::string(64, '[') + std::string(64, ']') + "}", true},
      {"{\"s\":" + std::string(65, '[') + std::string(65, ']') + "}", false},
  };
  for (const auto& row : rows) EXPECT_EQ(Decode(row.json).has_value(), row.accepted) << row.json;
}

TEST(ControlMessage, IntegersTruncateAndSaturate) {
  const struct {
    const char* number;
    int32_t x;
    int64_t expires;
  } rows[] = {
      {"2.9", 2, 2},
      {"-2.9", -2, -2},
      {"-0", 0, 0},
      {"2147483647", 2147483647, 2147483647},
      {"2147483647.9", 2147483647, 2147483647},
      {"2147483648", 2147483647, 2147483648},
      {"-2147483648.9", INT32_MIN, -2147483648},
      {"-2147483649", INT32_MIN, -2147483649},
      {"9223372036854775807", 2147483647, INT64_MAX},
      {"-9223372036854775808", INT32_MIN, INT64_MIN},
      {"1e300", 2147483647, INT64_MAX},
      {"-1e300", INT32_MIN, INT64_MIN},
      {"\"2\"", 0, 0},
      {"true", 0, 0},
      {"[2]", 0, 0},
      {"null", 0, 0},
  };
  for (const auto& row : rows) {
    const std::string number = row.number;
    const auto message = Decode("{\"x\":" + number + ",\"expires\":" + number + "}");
    ASSERT_TRUE(message) << number;
    EXPECT_EQ(message->x, row.x) << number;
    EXPECT_EQ(message->expires, row.expires) << number;
  }
}

TEST(ControlMessage, OtherKindsOfValueAreReadByTheFieldsOwnRule) {
  const struct {
    const char* value;
    bool down;
    std::optional<int32_t> button;
    std::optional<std::string> text;
  } rows[] = {
      {"true", true, 0, {}},   {"false", false, 0, {}}, {"1", true, 1, {}},       {"0", false, 0, {}},
      {"-0", false, 0, {}},    {"0.5", true, 0, {}},    {"\"x\"", false, 0, "x"}, {"\"\"", false, 0, ""},
      {"null", false, {}, {}}, {"[1]", false, 0, {}},   {"{}", false, 0, {}},
  };
  for (const auto& row : rows) {
    const std::string value = row.value;
    const auto message = Decode("{\"down\":" + value + ",\"btn\":" + value + ",\"s\":" + value + "}");
    ASSERT_TRUE(message) << value;
    EXPECT_EQ(message->down, row.down) << value;
    EXPECT_EQ(message->button, row.button) << value;
    EXPECT_EQ(message->text, row.text) << value;
  }
}

TEST(ControlMessage, TheLastOfEqualKeysWinsWhateverItsKind) {
  const auto message = Decode(R"({"s":"old","s":1,"btn":2,"btn":null,"x":7,"x":[],"t":1,"\u0074":5})");
  ASSERT_TRUE(message);
  EXPECT_EQ(message->text, std::nullopt);
  EXPECT_EQ(message->button, std::nullopt);
  EXPECT_EQ(message->x, 0);
  EXPECT_EQ(message->type, 5);
}

}  // namespace
}  // namespace cvn::agent
