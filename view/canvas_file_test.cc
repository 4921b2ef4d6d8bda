#include "view/canvas_file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "testing/temporary_directory.h"

namespace cvn::view {
namespace {

using Content = std::vector<uint8_t>;

class CanvasFileTest : public testing::Test {
 protected:
  std::unique_ptr<CanvasFile> Prepare() {
    std::string error;
    auto file = CanvasFile::Prepare(path_, error);
    EXPECT_EQ(error, "");
    return file;
  }
  Content Read() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  template <typename Word>
  static Word At(const Content& content, size_t offset) {
    Word word{};
    std::memcpy(&word, content.data() + offset, sizeof word);
    return word;
  }

  agent::TemporaryDirectory directory_;
  std::string path_ = (directory_.Path() / "canvas").string();
  std::string error_;
};

TEST_F(CanvasFileTest, HasItsHeaderAndItsPixelsWhereOtherProgramsLookForThem) {
  const auto file = Prepare();
  const auto pixels = file->Renew({5, 3}, {.connectNs = 0x0102030405060708}, error_);
  ASSERT_EQ(pixels.size(), 60u) << error_;
  Content content = Read();
  ASSERT_EQ(content.size(), 4096u + 60);
  EXPECT_EQ(At<uint32_t>(content, 0), 0x53564E43u);
  EXPECT_EQ(At<uint32_t>(content, 4), 5u);
  EXPECT_EQ(At<uint32_t>(content, 8), 3u);
  EXPECT_EQ(At<uint32_t>(content, 12), 20u);
  EXPECT_EQ(At<uint64_t>(content, 16), 0u);
  EXPECT_EQ(At<uint64_t>(content, 24), 0x0102030405060708u);
  EXPECT_EQ(At<uint64_t>(content, 32), 0u);
  EXPECT_EQ(At<uint64_t>(content, 40), 0u);

  pixels[0] = 11;
  pixels[59] = 22;
  file->Publish({.updates = 1'000'000'000'000, .connectNs = 2, .fullPictureNs = 3, .tilesDrawn = 4});
  content = Read();
  EXPECT_EQ(At<uint64_t>(content, 16), 1'000'000'000'000u);
  EXPECT_EQ(At<uint64_t>(content, 24), 2u);
  EXPECT_EQ(At<uint64_t>(content, 32), 3u);
  EXPECT_EQ(At<uint64_t>(content, 40), 4u);
  EXPECT_EQ(content[4096], 11);
  EXPECT_EQ(content.back(), 22);
}

TEST_F(CanvasFileTest, AnotherSizeIsANewFileAndTheOldOneLosesItsMagic) {
  const auto file = Prepare();
  ASSERT_FALSE(file->Renew({5, 3}, {}, error_).empty());
  std::ifstream old(path_, std::ios::binary);
  ASSERT_FALSE(file->Renew({2, 2}, {.updates = 9}, error_).empty()) << error_;

  uint32_t oldMagic = 1;
  uint32_t oldWidth = 0;
  old.read(reinterpret_cast<char*>(&oldMagic), 4).read(reinterpret_cast<char*>(&oldWidth), 4);
  EXPECT_EQ(oldMagic, 0u);
  EXPECT_EQ(oldWidth, 5u) << "a reader that is just at it still finds its rows";
  const Content content = Read();
  EXPECT_EQ(content.size(), 4096u + 16);
  EXPECT_EQ(At<uint32_t>(content, 0), CanvasFile::kMagic);
  EXPECT_EQ(At<uint32_t>(content, 4), 2u);
  EXPECT_EQ(At<uint64_t>(content, 16), 9u);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory_.Path()), {}), 1);
}

TEST_F(CanvasFileTest, NothingOfAnEarlierRunIsLeftToBeTakenForThisOne) {
  std::ofstream(path_) << "an earlier picture";
  std::ofstream(path_ + ".new") << "of a viewer that was killed";
  const auto file = Prepare();
  EXPECT_TRUE(std::filesystem::is_empty(directory_.Path()));
  EXPECT_FALSE(file->Renew({1, 1}, {}, error_).empty()) << error_;
}

TEST_F(CanvasFileTest, RefusesAPlaceWhereItCannotBeAndTouchesNothingThere) {
  const std::string folder = directory_.Path().string();
  EXPECT_EQ(CanvasFile::Prepare(folder, error_), nullptr);
  EXPECT_EQ(error_, folder + " is there and is no ordinary file");
  EXPECT_TRUE(std::filesystem::is_directory(folder));

  std::ofstream(path_) << "somebody's";
  std::filesystem::create_symlink(path_, path_ + "-link");
  EXPECT_EQ(CanvasFile::Prepare(path_ + "-link", error_), nullptr);
  EXPECT_EQ(Read().size(), 10u);

  EXPECT_EQ(CanvasFile::Prepare(folder + "/no/such/canvas", error_), nullptr);
  EXPECT_EQ(error_, "cannot create " + folder + "/no/such/canvas.new: No such file or directory");
}

}  // namespace
}  // namespace cvn::view
