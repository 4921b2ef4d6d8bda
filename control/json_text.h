#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "control/json_value.h"

namespace cvn::agent {

/// The whole document as one value; absent when it is malformed, nested more than 64 containers below the
/// top, or followed by anything but blanks. Never throws for what the document holds.
///
/// Three liberties are taken on purpose: a number may begin with `+`, need not follow JSON's number grammar
/// as long as a decimal conversion consumes all of it (`01`, `.5`, `5.`), and text may hold control bytes,
/// invalid UTF-8 and lone surrogates. The last of several equal keys wins.
std::optional<JsonValue> ParseJson(std::string_view document);

/// The text between the quotes of a JSON string: pure ASCII, markup-sensitive characters escaped too, each
/// byte that is not UTF-8 replaced by U+FFFD. Surrogate code points pass.
std::string EscapeJson(std::string_view utf8);

}  // namespace cvn::agent
