#include "tests/end_to_end/session_under_test.h"

namespace cvn::end_to_end {
namespace {

class ScreenSizeTest : public SessionTest {};

TEST_F(ScreenSizeTest, MayChangeDuringASession) {
  const auto window = desktop_.OpenTextWindow(700, 300, 20);
  ServeDesktop();
  ConnectViewer();
  ASSERT_TRUE(ViewerShowsTheScreen());

  desktop_.Resize(1200, 700);
  ASSERT_EQ(desktop_.Screen().width, 1200);
  EXPECT_TRUE(ViewerShowsTheScreen());
  desktop_.Move(window, 10, 10);
  EXPECT_TRUE(ViewerShowsTheScreen());
}

}  // namespace
}  // namespace cvn::end_to_end
