#pragma once

#include <optional>
#include <string>

namespace cvn::agent {

/// What the supporter would rather have: sharpness or few bytes.
enum class QualityPreset { kHigh, kBalanced, kDataSaver };

/// By name, in any mixture of upper and lower case; whatever is unknown or absent is `kHigh`.
QualityPreset PresetFromText(const std::optional<std::string>& text);
const char* PresetName(QualityPreset preset);

/// The best rung of the rate ladder that the preset makes use of.
int BestRung(QualityPreset preset);

/// What tiles may cost.
struct QualityValues {
  /// 1..100, of photographic tiles.
  int tileQuality = 90;
  int paletteColors = 256;
  /// Bits per pixel.
  int losslessBudget = 3;
  bool operator==(const QualityValues&) const = default;
};

/// For a stream that aims at `targetKbps`.
QualityValues ValuesFor(QualityPreset preset, int targetKbps);

}  // namespace cvn::agent
