#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "control/json_value.h"

namespace cvn::agent {

/// Walks a borrowed JSON document front to back: the one grammar for those who build its values and for those
/// who only check them.
///
/// Every step returns false once the document turns out to be malformed; the cursor is of no use after that.
/// `depth` is the number of containers around a value.
class JsonCursor {
 public:
  explicit JsonCursor(std::string_view document) : rest_(document) {}

  /// The whole value with its children into a fresh `value`.
  bool Build(int depth, JsonValue& value) { return Value(depth, &value, true); }

  /// As `Build` for null, booleans, numbers and strings; a container is checked and left empty, so that what
  /// nobody will read costs no memory.
  bool BuildScalar(int depth, JsonValue& value) { return Value(depth, &value, false); }

  /// Checks a value and builds nothing.
  bool Skip(int depth) { return Value(depth, nullptr, false); }

  /// The members of the object that starts here. `onMember(key)` is called with the cursor before the
  /// member's value, must consume that with one of the calls above, and returns what they returned; a null
  /// `key` saves building the keys and gives `onMember` an empty one.
  template <typename OnMember>
  bool Members(std::string* key, OnMember onMember) {
    if (!Take('{')) return false;
    if (TakeAfterBlanks('}')) return true;
    do {
      SkipBlanks();
      if (key != nullptr) key->clear();
      if (!String(key) || !TakeAfterBlanks(':') || !onMember()) return false;
    } while (TakeAfterBlanks(','));
    return Take('}');
  }

  void SkipBlanks();
  bool AtEnd() const { return rest_.empty(); }
  bool At(char expected) const { return !rest_.empty() && rest_.front() == expected; }

 private:
  bool Take(char expected);
  bool TakeAfterBlanks(char expected);
  bool TakeWord(std::string_view word);

  bool Value(int depth, JsonValue* value, bool withChildren);
  bool Array(int depth, JsonValue* array);
  bool Object(int depth, JsonValue* object);
  bool Number(double& number);
  bool String(std::string* text);
  bool Escape(std::string* text);
  bool UnicodeEscape(std::string* text);
  bool HexUnit(uint32_t& unit);

  std::string_view rest_;
};

}  // namespace cvn::agent
