#include "base/stop_signal.h"

#include <gtest/gtest.h>

#include <thread>

namespace cvn::agent {
namespace {

constexpr std::chrono::hours kForever{1};

TEST(StopSignal, AWakeEndsOneWaitAndASetEveryWaitForGood) {
  StopSignal stop;
  stop.Wake();
  stop.Wake();
  EXPECT_TRUE(stop.WaitFor(kForever));
  EXPECT_FALSE(stop.WaitFor(std::chrono::milliseconds(1)));
  EXPECT_FALSE(stop.IsSet());
  std::thread waiter([&] {
    while (!stop.IsSet()) stop.WaitFor(kForever);
  });
  stop.Set();
  waiter.join();
  EXPECT_FALSE(stop.WaitFor(kForever)) << "a set signal never waits, and is no wake";
}

}  // namespace
}  // namespace cvn::agent
