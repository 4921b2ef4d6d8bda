#include <utility>

#include "tests/end_to_end/photograph.h"
#include "tests/end_to_end/session_under_test.h"
#include "tests/end_to_end/slow_line.h"

namespace cvn::end_to_end {
namespace {

/// What a line carries of the same changes by what the supporter prefers.
class SavingTest : public SessionTest {
 protected:
  int64_t BytesOfChanges(const std::vector<std::string>& wishes) {
    ServeDesktop();
    SlowLine line(port_);
    std::vector<std::string> arguments = {"--canvas", directory_.Path() / "canvas"};
    arguments.insert(arguments.end(), wishes.begin(), wishes.end());
    viewer_ = std::make_unique<ChildProcess>(ViewerCommand(line.Port(), arguments));
    EXPECT_TRUE(WaitUntil(kPatience, [this] { return canvas_.IsFull(); }));
    WaitForRest(line);
    const int64_t before = line.CarriedBytes();
    for (int change = 0; change < 12; ++change) ShowAnother(scenes_[static_cast<size_t>(change) % 4]);
    const int64_t bytes = line.CarriedBytes() - before;
    viewer_.reset();
    EXPECT_EQ(AgentExitCode(), 0);
    return bytes;
  }

  static void WaitForRest(const SlowLine& line) {
    int64_t carried = -1;
    auto since = std::chrono::steady_clock::now();
    EXPECT_TRUE(WaitUntil(kPatience, [&] {
      const auto now = std::chrono::steady_clock::now();
      if (std::exchange(carried, line.CarriedBytes()) != carried) since = now;
      return now - since > milliseconds(700);
    }));
  }

  void ShowAnother(const Picture& photograph) {
    const uint64_t before = canvas_.Updates();
    desktop_.Paint(photograph_, photograph);
    EXPECT_TRUE(WaitUntil(kPatience, [&] { return canvas_.Updates() > before; }));
  }

  static constexpr int kWidth = 384;
  static constexpr int kHeight = 512;

  std::vector<Picture> scenes_ = {Photograph(kWidth, kHeight, 11), Photograph(kWidth, kHeight, 12),
                                  Photograph(kWidth, kHeight, 13), Photograph(kWidth, kHeight, 14)};
  Desktop::WindowId text_ = desktop_.OpenTextWindow(901, 457, 40);
  Desktop::WindowId photograph_ = desktop_.OpenPictureWindow(192, 128, scenes_[3]);
};

TEST_F(SavingTest, IsWhatDataSaverAndGrayAreFor) {
  const auto high = static_cast<double>(BytesOfChanges({}));
  const double saver = static_cast<double>(BytesOfChanges({"--preset", "DataSaver"})) / high;
  const double gray = static_cast<double>(BytesOfChanges({"--gray"})) / high;
  std::printf("bytes of those by High in colours: DataSaver %.2f, gray %.2f\n", saver, gray);
  EXPECT_LT(saver, 0.85);
  EXPECT_LT(gray, 0.95);
}

}  // namespace
}  // namespace cvn::end_to_end
