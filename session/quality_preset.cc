#include "session/quality_preset.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace cvn::agent {
namespace {

struct PresetRules {
  const char* name;
  std::string_view lowerCaseName;
  int bestRung;
  int qualityCeiling;
  int qualityFloor;
  int lowRateQualityFloor;
  int paletteColors;
  int losslessBudget;
};

constexpr std::array<PresetRules, 3> kRules = {{
    {"High", "high", 0, 90, 75, 55, 256, 3},
    {"Balanced", "balanced", 2, 80, 68, 50, 128, 3},
    {"DataSaver", "datasaver", 4, 72, 60, 45, 48, 2},
}};

constexpr int kLowRateKbps = 600;
constexpr int kLowRatePaletteColors = 4;
constexpr int kLowRateLosslessBudget = 0;

const PresetRules& RulesOf(QualityPreset preset) {
  return kRules[static_cast<size_t>(preset)];
}

char LowerCase(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

int QualityForRate(int kbps) {
  if (kbps >= 8'000) return 90;
  if (kbps >= 4'000) return 80;
  if (kbps >= 1'800) return 65;
  if (kbps >= 1'000) return 55;
  return 42;
}

}  // namespace

QualityPreset PresetFromText(const std::optional<std::string>& text) {
  std::string name = text.value_or("");
  std::transform(name.begin(), name.end(), name.begin(), LowerCase);
  for (const QualityPreset preset : {QualityPreset::kBalanced, QualityPreset::kDataSaver})
    if (name == RulesOf(preset).lowerCaseName) return preset;
  return QualityPreset::kHigh;
}

const char* PresetName(QualityPreset preset) {
  return RulesOf(preset).name;
}

int BestRung(QualityPreset preset) {
  return RulesOf(preset).bestRung;
}

QualityValues ValuesFor(QualityPreset preset, int targetKbps) {
  const PresetRules& rules = RulesOf(preset);
  const bool lowRate = targetKbps <= kLowRateKbps;
  const int floor = lowRate ? rules.lowRateQualityFloor : rules.qualityFloor;
  return {.tileQuality = std::clamp(QualityForRate(targetKbps), floor, rules.qualityCeiling),
          .paletteColors = lowRate ? kLowRatePaletteColors : rules.paletteColors,
          .losslessBudget = lowRate ? kLowRateLosslessBudget : rules.losslessBudget};
}

}  // namespace cvn::agent
