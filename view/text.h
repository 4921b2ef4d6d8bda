#pragma once

#include <string>

#include "base/compiler.h"

namespace cvn::view {

/// printf into a string.
std::string FormatText(const char* format, ...) CVN_PRINTF(1, 2);

/// Sets `error` and yields false, so that a check can end with it.
bool Refuse(std::string& error, std::string text);

}  // namespace cvn::view
