#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace cvn::agent {

inline constexpr uint32_t kReplacementCodePoint = 0xFFFD;

constexpr bool IsSurrogate(uint32_t codePoint) {
  return codePoint >= 0xD800 && codePoint <= 0xDFFF;
}
constexpr bool IsHighSurrogate(uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(uint32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// The code point of a high surrogate followed by a low one.
constexpr uint32_t CombineSurrogates(uint32_t high, uint32_t low) {
  return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

/// One code point and how many bytes of UTF-8 held it.
struct Utf8CodePoint {
  uint32_t value = 0;
  size_t byteCount = 0;
};

/// The code point at the front of `text`; absent when the front is no valid sequence (overlong, beyond
/// U+10FFFF, a stray or missing continuation byte, or nothing left). Surrogates are not rejected: who must
/// not pass them on asks `IsSurrogate`.
std::optional<Utf8CodePoint> DecodeUtf8(std::string_view text);

/// Appends 1 to 4 bytes; a surrogate gets its 3-byte form.
void AppendUtf8(uint32_t codePoint, std::string& text);

/// UTF-8 to a wide string (UTF-16 where wchar_t has 16 bits, else UTF-32). An invalid sequence becomes
/// U+FFFD, one for each byte that is skipped.
std::wstring WideFromUtf8(std::string_view text);

/// The inverse; a lone surrogate becomes U+FFFD.
std::string Utf8FromWide(std::wstring_view text);

/// A path of the host's own kind from UTF-8 text, by way of UTF-8 and never of the process's code page.
std::filesystem::path PathFromUtf8(std::string_view text);

}  // namespace cvn::agent
