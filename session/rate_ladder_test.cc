#include "session/rate_ladder.h"

#include <gtest/gtest.h>

#include <vector>

namespace cvn::agent {
namespace {

constexpr LadderReport kGreat = {.receiveKbps = 100, .rttMs = 20};
constexpr LadderReport kMediocre = {.receiveKbps = 100, .lossPermille = 50, .rttMs = 20};
constexpr LadderReport kBad = {.receiveKbps = 100, .lossPermille = 100, .rttMs = 20};

LadderReport With(int lossPermille, int rttMs) {
  return {.receiveKbps = 100, .lossPermille = lossPermille, .rttMs = rttMs};
}
LadderReport Receiving(int kbps) {
  return {.receiveKbps = kbps, .rttMs = 20};
}
LadderReport Wanting(QualityPreset preset, LadderReport report = kGreat) {
  report.preset = preset;
  return report;
}
LadderReport Congested(int64_t kbps, LadderReport report = kGreat) {
  report.congestedKbps = kbps;
  return report;
}
LadderReport Overloaded(LadderReport report = kGreat) {
  report.producerOverloaded = true;
  return report;
}

struct Part {
  int times;
  LadderReport report;
  int rungAfter;
};

struct Story {
  const char* what;
  std::vector<Part> parts;
};

void Tell(const std::vector<Story>& stories) {
  for (const Story& story : stories) {
    RateLadder ladder;
    ASSERT_EQ(ladder.Rung(), 3);
    int line = 0;
    for (const Part& part : story.parts) {
      for (int i = 0; i < part.times; ++i) ladder.Step(part.report);
      EXPECT_EQ(ladder.Rung(), part.rungAfter) << story.what << ", part " << line;
      ++line;
    }
  }
}

TEST(RateLadder, HasTwelveRungs) {
  const StreamRate rungs[] = {{32'000, 60}, {24'000, 60}, {16'000, 60}, {12'000, 30},
                              {8'000, 30},  {6'000, 30},  {4'000, 24},  {2'500, 20},
                              {1'800, 15},  {1'000, 12},  {600, 10},    {300, 8}};
  RateLadder ladder;
  EXPECT_EQ(ladder.Rate(), rungs[3]);
  for (int i = 0; i < 6; ++i) ladder.Step(kGreat);
  for (const StreamRate& rung : rungs) {
    EXPECT_EQ(ladder.Rate(), rung);
    ladder.Step(kBad);
  }
  EXPECT_EQ(ladder.Rung(), 11) << "there is no worse one";
}

TEST(RateLadder, StepsUpOnCleanMeasurementsOnly) {
  Tell({
      {"two a step, down to the best rung", {{1, kGreat, 3}, {1, kGreat, 2}, {4, kGreat, 0}, {9, kGreat, 0}}},
      {"ten lost of a thousand are clean", {{2, With(10, 20), 2}}},
      {"eleven are not", {{9, With(11, 20), 3}}},
      {"nor are 29, which are still great", {{9, With(29, 20), 3}}},
      {"249 ms are clean", {{2, With(0, 249), 2}}},
      {"250 ms are not", {{9, With(0, 250), 3}}},
      {"nor are 449 ms, which are still great", {{9, With(0, 449), 3}}},
      {"1 ms and 1 kbps are measured", {{2, {.receiveKbps = 1, .rttMs = 1}, 2}}},
      {"no round trip was measured", {{9, With(0, 0), 3}}},
      {"nothing was received", {{9, Receiving(0), 3}}},
      {"an unclean one starts the row anew", {{1, kGreat, 3}, {1, With(11, 20), 3}, {1, kGreat, 3}}},
  });
}

TEST(RateLadder, StepsDownAtOnceWhenBadAndOnTheSecondMediocre) {
  Tell({
      {"a tenth lost", {{1, kBad, 4}, {1, kBad, 5}}},
      {"79 are good, 30 not great", {{1, With(79, 20), 3}, {1, With(30, 20), 4}}},
      {"80 are bad", {{1, With(80, 20), 4}}},
      {"799 ms are good, 450 ms not great", {{1, With(0, 799), 3}, {1, With(0, 450), 4}}},
      {"800 ms are bad", {{1, With(0, 800), 4}}},
      {"a great one in between", {{1, kMediocre, 3}, {1, kGreat, 3}, {1, kMediocre, 3}, {1, kMediocre, 4}}},
      {"an unclean great one too", {{1, kMediocre, 3}, {1, With(11, 20), 3}, {1, kMediocre, 3}}},
      {"the first mediocre one interrupts no row", {{1, kGreat, 3}, {1, kMediocre, 3}, {1, kGreat, 2}}},
      {"each second one", {{2, kMediocre, 4}, {1, kMediocre, 4}, {1, kMediocre, 5}}},
  });
}

TEST(RateLadder, StepsUpSlowlyOnceItHasSteppedDown) {
  Tell({
      {"twenty a step", {{1, kBad, 4}, {19, kGreat, 4}, {1, kGreat, 3}, {19, kGreat, 3}, {1, kGreat, 2}}},
      {"a mediocre one keeps what was counted",
       {{1, kBad, 4}, {19, kGreat, 4}, {1, kMediocre, 4}, {1, kGreat, 3}}},
      {"a step down does not",
       {{1, kBad, 4}, {19, kGreat, 4}, {1, kBad, 5}, {19, kGreat, 5}, {1, kGreat, 4}}},
      {"twice one and a half times the next rung",
       {{1, kBad, 4}, {1, Receiving(18'000), 4}, {1, Receiving(18'000), 3}}},
      {"just below", {{1, kBad, 4}, {19, Receiving(17'999), 4}, {1, Receiving(17'999), 3}}},
      {"and not in a row",
       {{1, kBad, 4},
        {1, Receiving(18'000), 4},
        {1, kGreat, 4},
        {1, Receiving(18'000), 4},
        {1, Receiving(18'000), 3}}},
      {"stays fast from rung to rung",
       {{1, kBad, 4}, {2, Receiving(90'000), 3}, {2, Receiving(90'000), 2}, {4, Receiving(90'000), 0}}},
      {"a preset forgives",
       {{1, kBad, 4}, {1, Wanting(QualityPreset::kBalanced), 4}, {2, Wanting(QualityPreset::kBalanced), 3}}},
  });
}

TEST(RateLadder, KeepsToThePreset) {
  using enum QualityPreset;
  Tell({
      {"raised at once", {{1, Wanting(kDataSaver), 4}, {50, Wanting(kDataSaver), 4}}},
      {"whatever else the report says", {{1, Wanting(kDataSaver, Congested(300, Overloaded(kBad))), 4}}},
      {"the best of balanced", {{1, Wanting(kBalanced), 3}, {50, Wanting(kBalanced), 2}}},
      {"back to high", {{1, Wanting(kDataSaver), 4}, {1, kGreat, 4}, {2, kGreat, 3}}},
      {"a change starts the row anew",
       {{1, kGreat, 3}, {1, Wanting(kBalanced), 3}, {1, Wanting(kBalanced), 3}}},
      {"below its best it moves as ever", {{1, Wanting(kDataSaver), 4}, {1, Wanting(kDataSaver, kBad), 5}}},
  });
}

TEST(RateLadder, JumpsToWhatACongestedLineCarries) {
  Tell({
      {"the first rung within", {{1, Congested(2'500), 7}}},
      {"just not within", {{1, Congested(2'499), 8}}},
      {"less than any", {{1, Congested(1), 11}}},
      {"the same rung stays and counts nothing", {{1, kGreat, 3}, {1, Congested(12'000), 3}, {1, kGreat, 3}}},
      {"even when the report is bad", {{1, Congested(12'000, kBad), 3}}},
      {"a line for better rungs decides nothing", {{1, kGreat, 3}, {1, Congested(16'000), 2}}},
      {"nor holds back a step down", {{1, Congested(16'000, kBad), 4}}},
      {"it was a step down", {{1, Congested(8'000), 4}, {19, kGreat, 4}, {1, kGreat, 3}}},
      {"the same rung was none", {{1, Congested(12'000), 3}, {2, kGreat, 2}}},
  });
}

TEST(RateLadder, SparesAnOverloadedMachine) {
  Tell({
      {"a step in six reports", {{1, Overloaded(), 4}, {5, Overloaded(), 4}, {1, Overloaded(), 5}}},
      {"at most the worst", {{60, Overloaded(), 11}}},
      {"whatever the line", {{1, Overloaded(kBad), 4}, {5, Overloaded(kBad), 4}}},
      {"a rest ends the cooldown", {{1, Overloaded(), 4}, {1, With(11, 20), 4}, {1, Overloaded(), 5}}},
      {"no better rung for sixty reports", {{1, Overloaded(), 4}, {60, kGreat, 4}, {1, kGreat, 3}}},
      {"counted from the last overload",
       {{2, Overloaded(), 4}, {59, kGreat, 4}, {1, Overloaded(), 5}, {60, kGreat, 5}}},
      {"after which steps are quick", {{1, Overloaded(), 4}, {59, With(11, 20), 4}, {2, kGreat, 3}}},
      {"up to the ceiling as ever", {{1, Overloaded(), 4}, {1, kBad, 5}, {20, kGreat, 4}, {20, kGreat, 4}}},
      {"a preset's best rung may be worse",
       {{1, Overloaded(), 4},
        {1, Congested(8'000, kBad), 4},
        {1, Wanting(QualityPreset::kDataSaver), 4},
        {99, Wanting(QualityPreset::kDataSaver), 4}}},
  });
}

}  // namespace
}  // namespace cvn::agent
