#include "view/view_platform.h"

#include <gtest/gtest.h>

#include <csignal>

#include "testing/eventually.h"

#include <unistd.h>

namespace cvn::view {
namespace {

TEST(InterruptWatch, TurnsEachInterruptingSignalIntoAStopAndGivesTheSignalsBack) {
  for (const int number : {SIGINT, SIGTERM}) {
    sigset_t before;
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    agent::StopSignal stop;
    {
      const InterruptWatch watch(stop);
      EXPECT_FALSE(stop.IsSet());
      kill(getpid(), number);
      EXPECT_TRUE(agent::Eventually([&stop] { return stop.IsSet(); }));
    }
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(sigismember(&before, number), sigismember(&after, number));
  }
}

TEST(InterruptWatchDeathTest, TheSecondSignalEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        agent::StopSignal stop;
        const InterruptWatch watch(stop);
        kill(getpid(), SIGINT);
        agent::Eventually([&stop] { return stop.IsSet(); });
        kill(getpid(), SIGINT);
        agent::StopSignal().WaitFor(std::chrono::seconds(10));
      },
      testing::KilledBySignal(SIGINT), "");
}

}  // namespace
}  // namespace cvn::view
