#include "view/png_writer.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "view/stream_for_test.h"

namespace cvn::view {
namespace {

TEST(PngWriter, SaysThatADiskIsFull) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "this system has no /dev/full";
  std::string error;
  EXPECT_FALSE(WritePng("/dev/full", Bytes(64 * 64 * 4, 1), {64, 64}, error));
  EXPECT_EQ(error, "cannot write /dev/full: No space left on device");
}

}  // namespace
}  // namespace cvn::view
