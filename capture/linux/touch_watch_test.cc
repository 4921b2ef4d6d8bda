#include "capture/linux/touch_watch.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

#include "base/stop_signal.h"
#include "testing/eventually.h"

namespace cvn::agent {
namespace {

struct TouchWatchTest : testing::Test {
  ~TouchWatchTest() override { close(descriptor); }

  void Arrive() const { eventfd_write(descriptor, 1); }
  void Read() const {
    eventfd_t value = 0;
    eventfd_read(descriptor, &value);
  }
  /// Long enough for a wrong call to come.
  static void Settle() { StopSignal().WaitFor(std::chrono::milliseconds(30)); }

  const int descriptor = eventfd(0, EFD_NONBLOCK);
  std::atomic<int> touches = 0;
  TouchWatch watch{descriptor, [this] { ++touches; }};
};

TEST_F(TouchWatchTest, IgnoresWhatTheReaderReadsItself) {
  for (int turn = 0; turn < 20000; ++turn) {
    watch.Pause();
    Arrive();
    if (turn % 3 == 0) std::this_thread::yield();
    Read();
    watch.Resume(false);
    if (turn % 7 == 0) std::this_thread::yield();
  }
  Settle();
  EXPECT_EQ(touches, 0);
}

TEST_F(TouchWatchTest, TellsAtOnceOfWhatTheReaderReadTooLate) {
  watch.Pause();
  watch.Resume(true);
  EXPECT_TRUE(Eventually([&] { return touches == 1; }));
  Settle();
  EXPECT_EQ(touches, 1);
  watch.Pause();
  Arrive();
  watch.Resume(false);
  EXPECT_TRUE(Eventually([&] { return touches == 2; })) << "unread when the watch was resumed";
}

TEST_F(TouchWatchTest, UsesNoTimeWhileSomethingWaitsToBeRead) {
  watch.Resume(false);
  Arrive();
  ASSERT_TRUE(Eventually([&] { return touches == 1; }));
  const auto processTime = [] {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  };
  const auto before = processTime();
  StopSignal().WaitFor(std::chrono::milliseconds(200));
  EXPECT_LT(processTime() - before, std::chrono::milliseconds(50));
}

}  // namespace
}  // namespace cvn::agent
