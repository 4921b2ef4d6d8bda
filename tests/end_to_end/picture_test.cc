#include <csignal>

#include "tests/end_to_end/session_under_test.h"

namespace cvn::end_to_end {
namespace {

/// A desktop with text (few colours), a ramp and noise (more colours than a palette holds).
class PictureTest : public SessionTest {
 protected:
  void SetUp() override {
    ServeDesktop();
    ConnectViewer();
    ASSERT_TRUE(ViewerShowsTheScreen());
  }

  /// A change that changes nothing would make every comparison after it worthless.
  template <typename Change>
  void ExpectViewerFollows(Change change) {
    const Picture before = desktop_.Screen();
    change();
    ASSERT_NE(desktop_.Screen(), before);
    EXPECT_TRUE(ViewerShowsTheScreen());
  }

  Desktop::WindowId front_ = desktop_.OpenTextWindow(101, 57, 30);
  Desktop::WindowId back_ = desktop_.OpenTextWindow(643, 399, 40);
  Desktop::WindowId noise_ = desktop_.OpenNoiseWindow(1301, 801, 222, 155);
};

TEST_F(PictureTest, FollowsAMovedWindow) {
  ExpectViewerFollows([this] { desktop_.Move(front_, 333, 222); });
  ExpectViewerFollows([this] { desktop_.Move(front_, -150, 900); });  // partly outside
}

TEST_F(PictureTest, FollowsTypedText) {
  std::string line;
  for (const char letter : std::string("pixel-exact")) {
    line += letter;
    ExpectViewerFollows([&] { desktop_.TypeText(back_, 7, line); });
  }
}

TEST_F(PictureTest, FollowsARepaintOfTheWholeScreen) {
  ExpectViewerFollows([this] { desktop_.PaintBackground(1); });
  ExpectViewerFollows([this] {
    desktop_.Move(noise_, 0, 0);
    desktop_.PaintBackground(2);
  });
}

TEST_F(PictureTest, ArrivesAtTheLastOfManyQuickChanges) {
  ExpectViewerFollows([this] {
    for (int change = 0; change < 64; ++change) {
      desktop_.TypeText(front_, change % 30, "change " + std::to_string(change));
      desktop_.Move(back_, 643 + change * 3, 399 - change);
      desktop_.PaintNoise(noise_, 100 + static_cast<uint32_t>(change));
    }
  });
}

TEST_F(PictureTest, IsWhatASnapshotHolds) {
  const std::string file = directory_.Path() / "snapshot.png";
  viewer_->Signal(SIGINT);
  ASSERT_EQ(viewer_->WaitForExit(kPatience), 0);
  ASSERT_EQ(AgentExitCode(), 0);

  ServeDesktop();
  viewer_ = std::make_unique<ChildProcess>(ViewerCommand(port_, {"--until-idle", "--snapshot", file}));
  ASSERT_EQ(viewer_->WaitForExit(kPatience), 0);
  EXPECT_EQ(Difference(desktop_.Screen(), ReadPng(file)), Difference(desktop_.Screen(), desktop_.Screen()));
}

}  // namespace
}  // namespace cvn::end_to_end
