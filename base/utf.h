#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace cvn::agent {

/// UTF-8 to a wide string (UTF-16 where wchar_t has 16 bits, else UTF-32). An invalid sequence becomes
/// U+FFFD, one for each byte that is skipped.
std::wstring WideFromUtf8(std::string_view text);

/// The inverse; a lone surrogate becomes U+FFFD.
std::string Utf8FromWide(std::wstring_view text);

/// A path of the host's own kind from UTF-8 text, by way of UTF-8 and never of the process's code page.
std::filesystem::path PathFromUtf8(std::string_view text);

}  // namespace cvn::agent
