#include "control/json_text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "control/json_cursor.h"

namespace cvn::agent {
namespace {

std::string Nested(size_t levels) {
  return std::string(levels, '[') + std::string(levels, ']');
}

std::string TextOf(std::string_view document) {
  const auto value = ParseJson(document);
  return value && value->kind == JsonKind::String ? value->string : "(no string)";
}

TEST(ParseJson, RefusesWhateverIsNotOneWholeValue) {
  const std::string rows[] = {"",
                              " \t\r\n",
                              "1 x",
                              "[1,]",
                              "[1",
                              "[1 2]",
                              "[,1]",
                              "{\"a\":1,}",
                              "{a:1}",
                              "{\"a\" 1}",
                              "{\"a\":}",
                              "{\"a\":1",
                              "{1:2}",
                              "{,}",
                              "tru",
                              "nul",
                              "truex",
                              "True",
                              "\"open",
                              "\"\\a\"",
                              "\"\\u12G4\"",
                              "\"\\u123\"",
                              "\"\\",
                              "\"\\u123",
                              "-",
                              "+",
                              "+-1",
                              "-+1",
                              "--1",
                              "1-2",
                              "1e",
                              ".",
                              "NaN",
                              "Infinity",
                              "-Infinity",
                              "0x10",
                              "1e400",
                              "-1e400",
                              "1e-400",
                              "4.9e-324",
                              "[1]]",
                              "'a'",
                              "/**/1",
                              "\xEF\xBB\xBF"
                              "1",
                              std::string("1\0", 2),
                              Nested(66),
                              "\f1"};
  for (const std::string& row : rows) {
    EXPECT_FALSE(ParseJson(row)) << row;
    JsonCursor cursor(row);
    const bool checked = cursor.Skip(0);
    cursor.SkipBlanks();
    EXPECT_FALSE(checked && cursor.AtEnd()) << "only checked: " << row;
  }
}

TEST(ParseJson, TakesEveryNumberThatADecimalConversionConsumes) {
  const struct {
    std::string_view document;
    double number;
  } rows[] = {{" 1 ", 1},
              {"01", 1},
              {"+5", 5},
              {".5", 0.5},
              {"5.", 5},
              {"1E3", 1000},
              {"-2.5e-1", -0.25},
              {"1e+2", 100},
              {"0e-400", 0},
              {"-0", 0},
              {"2.2250738585072014e-308", 2.2250738585072014e-308},
              {"1.7976931348623157e308", 1.7976931348623157e308},
              {"12345678901234567890", 12345678901234567890.0}};
  for (const auto& row : rows) {
    const auto value = ParseJson(row.document);
    ASSERT_TRUE(value && value->kind == JsonKind::Number) << row.document;
    EXPECT_EQ(value->number, row.number) << row.document;
  }
  EXPECT_TRUE(std::signbit(ParseJson("-0")->number));
  EXPECT_TRUE(ParseJson("1." + std::string(1'000'000, '7'))) << "time must not grow faster than the digits";
}

TEST(ParseJson, NestsSixtyFiveContainersOfEitherKind) {
  EXPECT_TRUE(ParseJson(Nested(65)));
  std::string objects = "1";
  for (int level = 0; level < 64; ++level) objects = "{\"a\":" + objects + "}";
  EXPECT_TRUE(ParseJson(objects));
  EXPECT_FALSE(ParseJson("[" + objects + "]"));
}

TEST(ParseJson, BuildsContainersAndLetsTheLastOfEqualKeysWin) {
  const auto value =
      ParseJson(" { \"b\" : [ true , false , null, \"x\" ] ,\"a\":1,\t\"\\u0061\":2, \"e\":{ }, \"f\":[ ]} ");
  ASSERT_TRUE(value && value->kind == JsonKind::Object);
  ASSERT_EQ(value->object.size(), 4u);
  EXPECT_EQ(value->object.at("a").number, 2);
  const auto& array = value->object.at("b").array;
  ASSERT_EQ(array.size(), 4u);
  EXPECT_TRUE(array[0].kind == JsonKind::Boolean && array[0].boolean);
  EXPECT_TRUE(array[1].kind == JsonKind::Boolean && !array[1].boolean);
  EXPECT_EQ(array[2].kind, JsonKind::Null);
  EXPECT_EQ(array[3].string, "x");
  EXPECT_EQ(value->object.at("e").kind, JsonKind::Object);
  EXPECT_EQ(value->object.at("f").kind, JsonKind::Array);
}

TEST(ParseJson, DecodesTextAsItStandsAndSurrogatesAsTheyCome) {
  const struct {
    std::string_view document;
    std::string_view text;
  } rows[] = {
      {R"("\"\/\\\b\f\n\r\t")", "\"/\\\b\f\n\r\t"},
      {R"("\u0041\u00e4\u20AC")", "A\xC3\xA4\xE2\x82\xAC"},
      {R"("\uD83D\uDE00")", "\xF0\x9F\x98\x80"},
      {R"("\uDBFF\uDFFF")", "\xF4\x8F\xBF\xBF"},
      {R"("\uD83D")", "\xED\xA0\xBD"},
      {R"("\uD83Dx")", "\xED\xA0\xBDx"},
      {R"("\uDE00\uD83D")", "\xED\xB8\x80\xED\xA0\xBD"},
      {R"("\uD83D\u0041")",
       "\xED\xA0\xBD"
       "A"},
      {R"("\uD83D\uD83D\uDE00")", "\xED\xA0\xBD\xF0\x9F\x98\x80"},
      {R"("\uD83D\n")", "\xED\xA0\xBD\n"},
      {"\"\x01\n\xFF\"", "\x01\n\xFF"},
      {R"("\u0000")", std::string_view("\0", 1)},
  };
  for (const auto& row : rows) EXPECT_EQ(TextOf(row.document), row.text) << row.document;
}

TEST(JsonCursor, LeavesContainersEmptyWhereOnlyScalarsAreWanted) {
  JsonValue value;
  EXPECT_TRUE(JsonCursor("[1,{\"a\":2}]").BuildScalar(0, value));
  EXPECT_EQ(value.kind, JsonKind::Array);
  EXPECT_TRUE(value.array.empty());
}

TEST(EscapeJson, WritesPureAsciiThatMarkupCannotMisread) {
  const struct {
    std::string_view utf8;
    std::string_view escaped;
  } rows[] = {
      {"plain 7/~\x7F", "plain 7/~\x7F"},
      {"\"\\\b\t\n\f\r", R"(\"\\\b\t\n\f\r)"},
      {"a<b>&'+`", R"(a\u003Cb\u003E\u0026\u0027\u002B\u0060)"},
      {std::string_view("\0\x1F", 2), R"(\u0000\u001F)"},
      {"\xC3\xA4\xE2\x82\xAC\xEF\xBF\xBF", R"(\u00E4\u20AC\uFFFF)"},
      {"\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF", R"(\uD83D\uDE00\uDBFF\uDFFF)"},
      {"\xED\xA0\xBD", R"(\uD83D)"},
      {"\xFF", R"(\uFFFD)"},
      {"\xC0\xAF", R"(\uFFFD\uFFFD)"},
      {"\xE2\x82", R"(\uFFFD\uFFFD)"},
      {"\xE2\x82z", R"(\uFFFD\uFFFDz)"},
      {"\xF4\x90\x80\x80", R"(\uFFFD\uFFFD\uFFFD\uFFFD)"},
  };
  for (const auto& row : rows) EXPECT_EQ(EscapeJson(row.utf8), row.escaped) << row.escaped;
}

}  // namespace
}  // namespace cvn::agent
