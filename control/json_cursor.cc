#include "control/json_cursor.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>
#include <utility>

#include "base/utf.h"

namespace cvn::agent {
namespace {

constexpr int kMaxDepth = 64;
constexpr std::string_view kBlanks = " \t\n\r";
constexpr std::string_view kNumberBytes = "0123456789.eE+-";

// Deliberate: a leading `+` is a number too. Subnormal results are refused with the overflows and underflows,
// as the C conversion reports them all as out of range.
bool NumberFrom(std::string_view text, double& number) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return false;
  }
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  return result.ec == std::errc() && result.ptr == end && std::fpclassify(number) != FP_SUBNORMAL;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

void JsonCursor::SkipBlanks() {
  rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size()));
}

bool JsonCursor::Take(char expected) {
  if (!At(expected)) return false;
  rest_.remove_prefix(1);
  return true;
}

bool JsonCursor::TakeAfterBlanks(char expected) {
  SkipBlanks();
  return Take(expected);
}

bool JsonCursor::TakeWord(std::string_view word) {
  if (!rest_.starts_with(word)) return false;
  rest_.remove_prefix(word.size());
  return true;
}

bool JsonCursor::Value(int depth, JsonValue* value, bool withChildren) {
  if (depth > kMaxDepth) return false;
  SkipBlanks();
  if (rest_.empty()) return false;
  JsonValue unused;
  JsonValue& target = value != nullptr ? *value : unused;
  JsonValue* const parent = withChildren ? value : nullptr;
  switch (rest_.front()) {
    case '"':
      target.kind = JsonKind::String;
      return String(value != nullptr ? &value->string : nullptr);
    case '[':
      target.kind = JsonKind::Array;
      return Array(depth, parent);
    case '{':
      target.kind = JsonKind::Object;
      return Object(depth, parent);
    case 't':
      target.kind = JsonKind::Boolean;
      target.boolean = true;
      return TakeWord("true");
    case 'f':
      target.kind = JsonKind::Boolean;
      return TakeWord("false");
    case 'n':
      return TakeWord("null");
    default:
      target.kind = JsonKind::Number;
      return Number(target.number);
  }
}

bool JsonCursor::Array(int depth, JsonValue* array) {
  if (!Take('[')) return false;
  if (TakeAfterBlanks(']')) return true;
  do {
    JsonValue element;
    if (!Value(depth + 1, array != nullptr ? &element : nullptr, true)) return false;
    if (array != nullptr) array->array.push_back(std::move(element));
  } while (TakeAfterBlanks(','));
  return Take(']');
}

bool JsonCursor::Object(int depth, JsonValue* object) {
  if (object == nullptr) return Members(nullptr, [&] { return Skip(depth + 1); });
  std::string key;
  return Members(&key, [&] {
    JsonValue member;
    if (!Build(depth + 1, member)) return false;
    object->object.insert_or_assign(std::move(key), std::move(member));
    return true;
  });
}

bool JsonCursor::Number(double& number) {
  const size_t signBytes = At('-') || At('+') ? 1 : 0;
  const size_t end = std::min(rest_.find_first_not_of(kNumberBytes, signBytes), rest_.size());
  const std::string_view text = rest_.substr(0, end);
  rest_.remove_prefix(end);
  return NumberFrom(text, number);
}

bool JsonCursor::String(std::string* text) {
  if (!Take('"')) return false;
  for (;;) {
    const size_t plainBytes = rest_.find_first_of("\"\\");
    if (plainBytes == std::string_view::npos) return false;
    if (text != nullptr) text->append(rest_.substr(0, plainBytes));
    rest_.remove_prefix(plainBytes);
    if (Take('"')) return true;
    if (!Escape(text)) return false;
  }
}

bool JsonCursor::Escape(std::string* text) {
  static constexpr std::string_view kLetters = "\"/\\bfnrt";
  static constexpr std::string_view kMeanings = "\"/\\\b\f\n\r\t";
  Take('\\');
  if (Take('u')) return UnicodeEscape(text);
  if (rest_.empty()) return false;
  const size_t which = kLetters.find(rest_.front());
  if (which == std::string_view::npos) return false;
  if (text != nullptr) text->push_back(kMeanings[which]);
  rest_.remove_prefix(1);
  return true;
}

// Deliberate: a surrogate without its other half stays a code point of its own.
bool JsonCursor::UnicodeEscape(std::string* text) {
  uint32_t codePoint = 0;
  if (!HexUnit(codePoint)) return false;
  JsonCursor ahead = *this;
  uint32_t low = 0;
  if (IsHighSurrogate(codePoint) && ahead.TakeWord("\\u") && ahead.HexUnit(low) && IsLowSurrogate(low)) {
    codePoint = CombineSurrogates(codePoint, low);
    *this = ahead;
  }
  if (text != nullptr) AppendUtf8(codePoint, *text);
  return true;
}

bool JsonCursor::HexUnit(uint32_t& unit) {
  if (rest_.size() < 4) return false;
  unit = 0;
  for (const char c : rest_.substr(0, 4)) {
    const int digit = HexDigit(c);
    if (digit < 0) return false;
    unit = unit << 4 | static_cast<uint32_t>(digit);
  }
  rest_.remove_prefix(4);
  return true;
}

}  // namespace cvn::agent
