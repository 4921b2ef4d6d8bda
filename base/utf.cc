#include "base/utf.h"

#include <algorithm>
#include <type_traits>

namespace cvn::agent {
namespace {

struct SequenceForm {
  uint8_t leadMask;
  uint8_t leadBits;
  size_t byteCount;
  uint32_t least;  // smaller values are overlong
  uint32_t most;
};

constexpr SequenceForm kForms[] = {
    {0x80, 0x00, 1, 0, 0x7F},
    {0xE0, 0xC0, 2, 0x80, 0x7FF},
    {0xF0, 0xE0, 3, 0x800, 0xFFFF},
    {0xF8, 0xF0, 4, 0x10000, 0x10FFFF},
};

const SequenceForm* FormOf(uint8_t lead) {
  const auto* form = std::find_if(
      std::begin(kForms), std::end(kForms),
      [lead](const SequenceForm& candidate) { return (lead & candidate.leadMask) == candidate.leadBits; });
  return form == std::end(kForms) ? nullptr : form;
}

void AppendWide(uint32_t codePoint, std::wstring& text) {
  if (sizeof(wchar_t) == 2 && codePoint >= 0x10000) {
    text += static_cast<wchar_t>(0xD800 + ((codePoint - 0x10000) >> 10));
    text += static_cast<wchar_t>(0xDC00 + ((codePoint - 0x10000) & 0x3FF));
    return;
  }
  text += static_cast<wchar_t>(codePoint);
}

// The code point at `position`, which moves past it.
uint32_t TakeWide(std::wstring_view text, size_t& position) {
  const auto unit = static_cast<uint32_t>(text[position++]);
  if (IsHighSurrogate(unit) && position < text.size() &&
      IsLowSurrogate(static_cast<uint32_t>(text[position])))
    return CombineSurrogates(unit, static_cast<uint32_t>(text[position++]));
  return IsSurrogate(unit) || unit > 0x10FFFF ? kReplacementCodePoint : unit;
}

}  // namespace

std::optional<Utf8CodePoint> DecodeUtf8(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const auto lead = static_cast<uint8_t>(text[0]);
  const SequenceForm* form = FormOf(lead);
  if (form == nullptr || text.size() < form->byteCount) return std::nullopt;
  uint32_t value = lead & static_cast<uint8_t>(~form->leadMask);
  for (const char next : text.substr(1, form->byteCount - 1)) {
    const auto byte = static_cast<uint8_t>(next);
    if ((byte & 0xC0) != 0x80) return std::nullopt;
    value = value << 6 | (byte & 0x3F);
  }
  if (value < form->least || value > form->most) return std::nullopt;
  return Utf8CodePoint{value, form->byteCount};
}

void AppendUtf8(uint32_t codePoint, std::string& text) {
  const auto* form = std::find_if(std::begin(kForms), std::end(kForms) - 1,
                                  [codePoint](const SequenceForm& f) { return codePoint <= f.most; });
  int shift = 6 * static_cast<int>(form->byteCount - 1);
  text += static_cast<char>(form->leadBits | codePoint >> shift);
  while (shift > 0) {
    shift -= 6;
    text += static_cast<char>(0x80 | ((codePoint >> shift) & 0x3F));
  }
}

std::wstring WideFromUtf8(std::string_view text) {
  std::wstring wide;
  wide.reserve(text.size());
  while (!text.empty()) {
    auto next = DecodeUtf8(text);
    if (!next || IsSurrogate(next->value)) next = Utf8CodePoint{kReplacementCodePoint, 1};
    AppendWide(next->value, wide);
    text.remove_prefix(next->byteCount);
  }
  return wide;
}

std::string Utf8FromWide(std::wstring_view text) {
  std::string narrow;
  narrow.reserve(text.size());
  for (size_t position = 0; position < text.size();) AppendUtf8(TakeWide(text, position), narrow);
  return narrow;
}

std::filesystem::path PathFromUtf8(std::string_view text) {
  if constexpr (std::is_same_v<std::filesystem::path::value_type, wchar_t>) return WideFromUtf8(text);
  return std::string(text);
}

}  // namespace cvn::agent
