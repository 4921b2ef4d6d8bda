#include "session/frame_pacer.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

constexpr int64_t kMs = 1'000'000;
constexpr TurnReasons kNone = {};
constexpr TurnReasons kTouched = {.supporterActed = false, .screenTouched = true};
constexpr TurnReasons kActed = {.supporterActed = true, .screenTouched = false};

/// 25 frames a second, one every 40 ms, after a turn at 10 s.
class FramePacerTest : public testing::Test {
 protected:
  FramePacerTest() { pacer_.BeginTurn(kStart, kNone); }

  static constexpr int64_t kStart = 10'000 * kMs;
  FramePacer pacer_{25};
};

TEST(FramePacer, StartsAtOnce) {
  EXPECT_LT(FramePacer(25).DueNs(kNone), -kMs);
  EXPECT_LT(FramePacer(25).DueNs(kTouched), -kMs);
}

TEST_F(FramePacerTest, IsLateOnceTheWorkHasUsedUpTheInterval) {
  EXPECT_FALSE(pacer_.FinishTurn(kStart + 40 * kMs - 1, false).late);
  EXPECT_TRUE(pacer_.FinishTurn(kStart + 40 * kMs, false).late);
  EXPECT_EQ(pacer_.DueNs(kNone), kStart + 40 * kMs) << "measured from the turn's start";
  EXPECT_FALSE(pacer_.FinishTurn(kStart + 125 * kMs - 1, true).late) << "a resting screen has more time";
}

TEST_F(FramePacerTest, RestsEightTimesASecond) {
  EXPECT_TRUE(pacer_.FinishTurn(kStart, true).idle);
  EXPECT_EQ(pacer_.DueNs(kNone), kStart + 125 * kMs);
  EXPECT_FALSE(pacer_.FinishTurn(kStart, false).idle);
  EXPECT_EQ(pacer_.DueNs(kNone), kStart + 40 * kMs);

  FramePacer slow(8);
  slow.BeginTurn(kStart, kNone);
  EXPECT_FALSE(slow.FinishTurn(kStart, true).idle) << "never faster for resting";
  FramePacer slower(4);
  slower.BeginTurn(kStart, kNone);
  slower.FinishTurn(kStart, true);
  EXPECT_EQ(slower.DueNs(kNone), kStart + 250 * kMs);
}

TEST_F(FramePacerTest, ATouchedScreenWaitsOnlyForTheFrameRate) {
  pacer_.NoteSent();
  pacer_.FinishTurn(kStart, true);
  EXPECT_EQ(pacer_.DueNs(kTouched), kStart + 40 * kMs);
  pacer_.BeginTurn(kStart + 125 * kMs, kNone);
  pacer_.FinishTurn(kStart + 125 * kMs, true);
  EXPECT_EQ(pacer_.DueNs(kTouched), kStart + 40 * kMs) << "a turn that sent nothing does not count";
  pacer_.BeginTurn(kStart + 126 * kMs, kTouched);
  pacer_.FinishTurn(kStart + 126 * kMs, true);
  EXPECT_EQ(pacer_.DueNs(kTouched), kStart + 166 * kMs) << "but looking in vain at a touch does";
}

TEST_F(FramePacerTest, TheSupportersActsEndIdlePacingForASecond) {
  pacer_.FinishTurn(kStart, true);
  EXPECT_EQ(pacer_.DueNs(kActed), kStart + 40 * kMs);
  pacer_.BeginTurn(kStart + 40 * kMs, kActed);
  EXPECT_FALSE(pacer_.FinishTurn(kStart + 40 * kMs, true).idle);
  pacer_.BeginTurn(kStart + 1040 * kMs - 1, kNone);
  EXPECT_FALSE(pacer_.FinishTurn(kStart + 1040 * kMs, true).idle);
  pacer_.BeginTurn(kStart + 1040 * kMs, kNone);
  EXPECT_TRUE(pacer_.FinishTurn(kStart + 1040 * kMs, true).idle);
}

}  // namespace
}  // namespace cvn::agent
