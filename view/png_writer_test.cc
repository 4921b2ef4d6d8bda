#include "view/png_writer.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "testing/temporary_directory.h"
#include "view/png_for_test.h"
#include "view/stream_for_test.h"

namespace cvn::view {
namespace {

TEST(PngWriter, KeepsEveryColourAndDropsTheFourthByte) {
  const agent::TemporaryDirectory directory;
  const std::string path = (directory.Path() / "picture.png").string();
  const Bytes pixels =
      PixelBytes(std::vector<uint32_t>{0xff112233, 0x00445566, 0x80ffffff, 0, 0x010000ff, 0xffff0000});
  std::string error;
  ASSERT_TRUE(WritePng(path, pixels, {3, 2}, error)) << error;
  const ReadPicture picture = ReadPng(path);
  EXPECT_EQ(picture.size, (PictureSize{3, 2}));
  EXPECT_EQ(picture.pixels,
            (std::vector<uint32_t>{0xff112233, 0xff445566, 0xffffffff, 0xff000000, 0xff0000ff, 0xffff0000}));
}

TEST(PngWriter, SaysWhyAPictureCouldNotBeWritten) {
  const Bytes pixels(64 * 64 * 4, 1);
  std::string error;
  EXPECT_FALSE(WritePng("/no/such/folder/picture.png", pixels, {64, 64}, error));
  EXPECT_EQ(error, "cannot create /no/such/folder/picture.png: No such file or directory");
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "this system has no /dev/full";
  EXPECT_FALSE(WritePng("/dev/full", pixels, {64, 64}, error));
  EXPECT_EQ(error, "cannot write /dev/full: No space left on device");
}

}  // namespace
}  // namespace cvn::view
