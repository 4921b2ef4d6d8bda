#include "session/quality_preset.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

using enum QualityPreset;

TEST(QualityPreset, IsKnownByNameInAnyCase) {
  const struct {
    std::optional<std::string> text;
    const char* name;
  } rows[] = {{"balanced", "Balanced"},   {"Balanced", "Balanced"},   {"BALANCED", "Balanced"},
              {"dataSaver", "DataSaver"}, {"datasaver", "DataSaver"}, {"data saver", "High"},
              {"balanced ", "High"},      {"high", "High"},           {"", "High"},
              {std::nullopt, "High"},     {"\xC3\x84", "High"}};
  for (const auto& row : rows) EXPECT_STREQ(PresetName(PresetFromText(row.text)), row.name);
}

TEST(QualityPreset, ValuesFollowTheTarget) {
  const struct {
    QualityPreset preset;
    int kbps;
    QualityValues values;
  } rows[] = {
      {kHigh, 32'000, {90, 256, 3}},    {kHigh, 8'000, {90, 256, 3}},     {kHigh, 7'999, {80, 256, 3}},
      {kHigh, 4'000, {80, 256, 3}},     {kHigh, 3'999, {75, 256, 3}},     {kHigh, 601, {75, 256, 3}},
      {kHigh, 600, {55, 4, 0}},         {kHigh, 300, {55, 4, 0}},         {kBalanced, 8'000, {80, 128, 3}},
      {kBalanced, 3'999, {68, 128, 3}}, {kBalanced, 600, {50, 4, 0}},     {kDataSaver, 8'000, {72, 48, 2}},
      {kDataSaver, 3'999, {65, 48, 2}}, {kDataSaver, 1'800, {65, 48, 2}}, {kDataSaver, 1'799, {60, 48, 2}},
      {kDataSaver, 600, {45, 4, 0}},
  };
  for (const auto& row : rows) {
    const QualityValues values = ValuesFor(row.preset, row.kbps);
    EXPECT_EQ(values, row.values) << PresetName(row.preset) << ' ' << row.kbps << ": " << values.tileQuality
                                  << ' ' << values.paletteColors << ' ' << values.losslessBudget;
  }
}

}  // namespace
}  // namespace cvn::agent
