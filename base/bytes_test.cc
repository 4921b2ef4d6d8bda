#include "base/bytes.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

TEST(Bytes, AReadPastTheEndFailsForGood) {
  const std::vector<uint8_t> wire{1, 2, 3};
  ByteReader reader(wire);
  EXPECT_EQ(reader.U32(), 0u);
  EXPECT_EQ(reader.U8(), 0) << "the bytes that were too few must not be read by somebody else";
  EXPECT_FALSE(reader.Ok());
}

}  // namespace
}  // namespace cvn::agent
