#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace cvn::agent {

enum class JsonKind : int32_t { Null = 0, Boolean = 1, Number = 2, String = 3, Array = 4, Object = 5 };

/// One JSON value with its children. Only the member that matches `kind` means anything; the others stay
/// empty.
struct JsonValue {
  JsonKind kind = JsonKind::Null;
  bool boolean = false;
  double number = 0;
  std::string string;  // UTF-8 as decoded, which the document may have left invalid
  std::vector<JsonValue> array;
  std::map<std::string, JsonValue> object;
};

}  // namespace cvn::agent
