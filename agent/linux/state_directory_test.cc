#include "agent/linux/state_directory.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

TEST(StateDirectory, ARelativeXdgPathDoesNotCount) {
  EXPECT_EQ(StateDirectory("/state", "/home/a"), "/state/corvinet");
  EXPECT_EQ(StateDirectory("state", "/home/a"), "/home/a/.local/state/corvinet");
  EXPECT_EQ(StateDirectory("", "/home/a"), "/home/a/.local/state/corvinet");
}

}  // namespace
}  // namespace cvn::agent
