#include "view/canvas_file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "testing/temporary_directory.h"

namespace cvn::view {
namespace {

class CanvasFileTest : public testing::Test {
 protected:
  std::vector<uint8_t> Read() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void ExpectHeader(const std::vector<uint32_t>& numbers, const std::vector<uint64_t>& words) const {
    const std::vector<uint8_t> content = Read();
    ASSERT_GE(content.size(), 48u);
    EXPECT_EQ(std::memcmp(content.data(), numbers.data(), 16), 0);
    EXPECT_EQ(std::memcmp(content.data() + 16, words.data(), 32), 0);
  }

  agent::TemporaryDirectory directory_;
  std::string path_ = (directory_.Path() / "canvas").string();
  std::string error_;
};

TEST_F(CanvasFileTest, HasItsHeaderAndItsPixelsWhereOtherProgramsLookForThem) {
  const auto file = CanvasFile::Prepare(path_, error_);
  const auto pixels = file->Renew({5, 3}, {.connectNs = 0x0102030405060708}, error_);
  ASSERT_EQ(pixels.size(), 60u) << error_;
  ExpectHeader({0x53564E43, 5, 3, 20}, {0, 0x0102030405060708, 0, 0});
  pixels[0] = 11;
  pixels[59] = 22;
  file->Publish({.updates = 1'000'000'000'000, .connectNs = 2, .fullPictureNs = 3, .tilesDrawn = 4});
  ExpectHeader({0x53564E43, 5, 3, 20}, {1'000'000'000'000, 2, 3, 4});
  const auto content = Read();
  ASSERT_EQ(content.size(), 4096u + 60);
  EXPECT_EQ(content[4096], 11);
  EXPECT_EQ(content.back(), 22);
}

TEST_F(CanvasFileTest, AnotherSizeIsANewFileAndTheOldOneLosesItsMagic) {
  std::ofstream(path_) << "an earlier picture";
  std::ofstream(path_ + ".new") << "of a viewer that was killed";
  const auto file = CanvasFile::Prepare(path_, error_);
  EXPECT_TRUE(std::filesystem::is_empty(directory_.Path()));
  ASSERT_FALSE(file->Renew({5, 3}, {}, error_).empty());
  std::ifstream old(path_, std::ios::binary);
  ASSERT_FALSE(file->Renew({2, 2}, {.updates = 9}, error_).empty()) << error_;

  uint32_t oldNumbers[2] = {1, 1};
  old.read(reinterpret_cast<char*>(oldNumbers), sizeof oldNumbers);
  EXPECT_EQ(oldNumbers[0], 0u);
  EXPECT_EQ(oldNumbers[1], 5u) << "a reader that is just at it still finds its rows";
  ExpectHeader({0x53564E43, 2, 2, 8}, {9, 0, 0, 0});
  EXPECT_EQ(Read().size(), 4096u + 16);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory_.Path()), {}), 1);
}

TEST_F(CanvasFileTest, RefusesAPlaceWhereItCannotBeAndTouchesNothingThere) {
  std::ofstream(path_) << "somebody's";
  std::filesystem::create_symlink(path_, path_ + "-link");
  EXPECT_EQ(CanvasFile::Prepare(path_ + "-link", error_), nullptr);
  EXPECT_EQ(Read().size(), 10u);
}

}  // namespace
}  // namespace cvn::view
