#include "net/frame_format.h"

#include <gtest/gtest.h>

namespace cvn::agent {
namespace {

using HeaderBytes = std::array<uint8_t, 5>;

TEST(FrameFormat, HeaderIsChannelThenBigEndianLengthAndRefusesWhatNoFrameCanBe) {
  const struct {
    const char* what;
    HeaderBytes bytes;
    std::optional<ChannelFrameHeader> header;
  } rows[] = {
      {"smallest", {0, 0, 0, 0, 1}, {{Channel::Control, 1}}},
      {"every length byte in its place", {1, 0x00, 0x12, 0x34, 0x56}, {{Channel::Tiles, 0x123456}}},
      {"largest, highest channel", {3, 0x00, 0x80, 0x00, 0x00}, {{static_cast<Channel>(3), 8388608}}},
      {"channel 4", {4, 0, 0, 0, 1}, {}},
      {"channel 255", {255, 0, 0, 0, 1}, {}},
      {"no payload", {1, 0, 0, 0, 0}, {}},
      {"one byte too many", {1, 0x00, 0x80, 0x00, 0x01}, {}},
      {"length that is negative when signed", {1, 0xff, 0xff, 0xff, 0xff}, {}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ParseChannelFrameHeader(row.bytes), row.header) << row.what;
    EXPECT_TRUE(!row.header || BuildChannelFrameHeader(*row.header) == row.bytes) << row.what;
  }
}

}  // namespace
}  // namespace cvn::agent
