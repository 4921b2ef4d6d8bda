#include "base/utf.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

TEST(Utf, InvalidSequencesBecomeOneReplacementPerSkippedByte) {
  const struct {
    const char* what;
    std::string_view utf8;
    std::wstring wide;
  } rows[] = {
      {"ASCII", "C:/Data", L"C:/Data"},
      {"two, three and four bytes", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", L"\u00E4\u20AC\U0001F600"},
      {"least of each length", "\xC2\x80\xE0\xA0\x80\xF0\x90\x80\x80", L"\u0080\u0800\U00010000"},
      {"last code point", "\xF4\x8F\xBF\xBF", L"\U0010FFFF"},
      {"beyond the last", "\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"overlong slash", "\xC0\xAFx", L"\uFFFD\uFFFDx"},
      {"overlong in three", "\xE0\x9F\xBF", L"\uFFFD\uFFFD\uFFFD"},
      {"encoded surrogate", "\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},
      {"stray continuation", "a\x80z", L"a\uFFFDz"},
      {"cut at the end", "a\xE2\x82", L"a\uFFFD\uFFFD"},
      {"cut by a letter", "\xE2\x82z", L"\uFFFD\uFFFDz"},
      {"five-byte lead", "\xF8\x88", L"\uFFFD\uFFFD"},
      {"NUL stays", std::string_view("a\0b", 3), std::wstring(L"a\0b", 3)},
  };
  for (const auto& row : rows) EXPECT_EQ(WideFromUtf8(row.utf8), row.wide) << row.what;
}

TEST(Utf, WideTextComesBackAndLoneSurrogatesDoNot) {
  EXPECT_EQ(Utf8FromWide(L"\u00E4\u20AC\U0001F600\U0010FFFF"),
            "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF");
  const std::wstring loneHigh{L'a', static_cast<wchar_t>(0xD83D), L'z'};
  const std::wstring loneLow{static_cast<wchar_t>(0xDE00), static_cast<wchar_t>(0xD83D)};
  EXPECT_EQ(Utf8FromWide(loneHigh), "a\xEF\xBF\xBDz");
  EXPECT_EQ(Utf8FromWide(loneLow), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Utf, PathsKeepEveryCharacterWhateverTheLocale) {
  EXPECT_EQ(PathFromUtf8("d\xC3\xBCr/\xF0\x9F\x98\x80").u8string(), u8"d\u00FCr/\U0001F600");
}

}  // namespace
}  // namespace cvn::agent
