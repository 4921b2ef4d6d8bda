#include "base/bytes.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

TEST(Bytes, AreBigEndianBothWays) {
  const std::vector<uint8_t> wire =
      ByteWriter().U8(1).U16(0x0203).U32(0xF4050607).Bytes(std::vector<uint8_t>{8, 9}).Take();
  EXPECT_EQ(wire, (std::vector<uint8_t>{1, 2, 3, 0xF4, 5, 6, 7, 8, 9}));
  ByteReader reader(wire);
  EXPECT_EQ(reader.U8(), 1);
  EXPECT_EQ(reader.U16(), 0x0203);
  EXPECT_EQ(reader.U32(), 0xF4050607);
  EXPECT_EQ(reader.Bytes(2).size(), 2u);
  EXPECT_TRUE(reader.AtEnd() && reader.Ok());
}

TEST(Bytes, AReadPastTheEndFailsForGood) {
  const std::vector<uint8_t> wire{1, 2, 3};
  ByteReader reader(wire);
  EXPECT_EQ(reader.U32(), 0u);
  EXPECT_FALSE(reader.Ok());
  EXPECT_EQ(reader.U8(), 0) << "the bytes that were too few must not be read by somebody else";
  EXPECT_FALSE(reader.Ok());
}

}  // namespace
}  // namespace cvn::agent
