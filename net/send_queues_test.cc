#include "net/send_queues.h"

#include <gtest/gtest.h>

#include <future>

#include "testing/eventually.h"

namespace cvn::agent {
namespace {

std::vector<uint8_t> Bytes(size_t count, uint8_t value = 7) {
  return std::vector<uint8_t>(count, value);
}

TEST(SendQueues, LowerChannelsOvertakeAndEachChannelKeepsItsOrder) {
  SendQueues queues;
  for (const auto& [channel, value] : {std::pair{3, 30}, {1, 10}, {0, 1}, {1, 11}, {2, 20}, {0, 2}, {3, 31}})
    queues.Push(static_cast<Channel>(channel), Bytes(1, static_cast<uint8_t>(value)));
  std::vector<int> taken;
  for (int i = 0; i < 7; ++i) taken.push_back(queues.TakeNext()->bytes[0]);
  EXPECT_EQ(taken, (std::vector<int>{1, 2, 10, 11, 20, 30, 31}));
}

TEST(SendQueues, DropsWhatFitsNoFrameAndEverythingOnceShut) {
  SendQueues queues;
  queues.Push(Channel::Tiles, {});
  queues.Push(Channel::Tiles, Bytes(8388609));
  EXPECT_EQ(queues.QueuedBytes(Channel::Tiles), 0);
  queues.Push(Channel::Tiles, Bytes(8388608));
  EXPECT_EQ(queues.QueuedBytes(Channel::Tiles), 8388608);
  queues.Shut();
  queues.Push(Channel::Tiles, Bytes(1));
  EXPECT_EQ(queues.QueuedBytes(Channel::Tiles), 8388608);
}

TEST(SendQueues, TheReaderWaitsOnlyWhileMoreThanFourMebibytesOfControlWait) {
  SendQueues queues;
  queues.Push(Channel::Tiles, Bytes(8388608));
  queues.Push(Channel::Control, Bytes(4 * 1024 * 1024));
  queues.WaitForControlRoom();  // at the limit, and tiles do not count

  queues.Push(Channel::Control, Bytes(1));
  auto reader = std::async(std::launch::async, [&] { queues.WaitForControlRoom(); });
  EXPECT_EQ(reader.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
  queues.Finish(*queues.TakeNext(), true);
  EXPECT_EQ(reader.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

}  // namespace
}  // namespace cvn::agent
