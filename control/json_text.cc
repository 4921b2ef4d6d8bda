#include "control/json_text.h"

#include "base/utf.h"
#include "control/json_cursor.h"

namespace cvn::agent {
namespace {

void AppendUnitEscape(uint32_t unit, std::string& text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  text += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) text += kDigits[(unit >> shift) & 0xF];
}

void AppendCodePointEscape(uint32_t codePoint, std::string& text) {
  if (codePoint < 0x10000) return AppendUnitEscape(codePoint, text);
  AppendUnitEscape(0xD800 + ((codePoint - 0x10000) >> 10), text);
  AppendUnitEscape(0xDC00 + ((codePoint - 0x10000) & 0x3FF), text);
}

void AppendEscapedAscii(char c, std::string& text) {
  static constexpr std::string_view kNamed = "\"\\\b\t\n\f\r";
  static constexpr std::string_view kNames = "\"\\btnfr";
  // Deliberate: what means something in markup never stands there as it is, the backquote included.
  static constexpr std::string_view kMarkup = "&'+<>`";
  if (const size_t which = kNamed.find(c); which != std::string_view::npos) {
    text += '\\';
    text += kNames[which];
  } else if (c < 0x20 || kMarkup.find(c) != std::string_view::npos) {
    AppendUnitEscape(static_cast<uint32_t>(c), text);
  } else {
    text += c;
  }
}

}  // namespace

std::optional<JsonValue> ParseJson(std::string_view document) {
  JsonCursor cursor(document);
  JsonValue value;
  if (!cursor.Build(0, value)) return std::nullopt;
  cursor.SkipBlanks();
  if (!cursor.AtEnd()) return std::nullopt;
  return value;
}

std::string EscapeJson(std::string_view utf8) {
  std::string text;
  text.reserve(utf8.size() + 2);
  while (!utf8.empty()) {
    const auto next = DecodeUtf8(utf8).value_or(Utf8CodePoint{kReplacementCodePoint, 1});
    if (next.value < 0x80)
      AppendEscapedAscii(static_cast<char>(next.value), text);
    else
      AppendCodePointEscape(next.value, text);
    utf8.remove_prefix(next.byteCount);
  }
  return text;
}

}  // namespace cvn::agent
