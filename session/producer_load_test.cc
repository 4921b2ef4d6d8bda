#include "session/producer_load.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

/// A machine that takes a turn every 50 ms, 40 of them in two seconds.
class ProducerLoadTest : public testing::Test {
 protected:
  void Turns(int count, bool late) {
    for (int i = 0; i < count; ++i) load_.NoteTurn(nowMs_ += 50, late);
  }

  int64_t nowMs_ = 1'000;
  ProducerLoad load_;
};

TEST_F(ProducerLoadTest, IsOverloadedWhenHalfOfTwoSecondsWasLate) {
  Turns(60, false);
  Turns(19, true);
  EXPECT_FALSE(load_.Overloaded());
  Turns(1, true);
  EXPECT_TRUE(load_.Overloaded());
}

TEST_F(ProducerLoadTest, CountsOnlyTheLastTwoSeconds) {
  Turns(60, false);
  Turns(19, true);
  Turns(21, false);
  Turns(1, true);
  EXPECT_FALSE(load_.Overloaded()) << "the oldest late one is two seconds old";
}

TEST_F(ProducerLoadTest, SaysNothingBeforeTwoSecondsHavePassed) {
  Turns(40, true);
  EXPECT_FALSE(load_.Overloaded());
  Turns(1, true);
  EXPECT_TRUE(load_.Overloaded());
}

TEST_F(ProducerLoadTest, RecoversAfterTwoSecondsWithoutALateTurn) {
  Turns(60, true);
  Turns(39, false);
  EXPECT_TRUE(load_.Overloaded());
  Turns(1, false);
  EXPECT_FALSE(load_.Overloaded());
  Turns(1, true);
  EXPECT_FALSE(load_.Overloaded());
}

TEST_F(ProducerLoadTest, KnowsAMachineThatTakesSecondsForATurn) {
  load_.NoteTurn(3'000, true);
  load_.NoteTurn(6'000, true);
  EXPECT_TRUE(load_.Overloaded());
}

}  // namespace
}  // namespace cvn::agent
