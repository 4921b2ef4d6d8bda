#include "capture/linux/x11_screen_capturer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "capture/capture_area.h"
#include "capture/linux/x11_display_system.h"
#include "testing/eventually.h"
#include "testing/linux/captured_screen.h"
#include "testing/linux/x11_test_client.h"
#include "testing/private_display.h"

namespace cvn::agent {
namespace {

TEST(X11ScreenCapturer, TellsWhatChanged) {
  CapturedScreen screen;
  ASSERT_TRUE(screen.ShowsTheServersPixels());
  EXPECT_FALSE(screen.frame.unchanged || screen.frame.changed) << "nothing came before the first frame";
  for (const bool differs : {true, false}) {
    screen.client.Fill({10, 20, 30, 40}, 0xffffff);
    screen.client.Fill({600, 400, 610, 430}, 0x336699);
    ASSERT_TRUE(screen.ShowsTheServersPixels());
    EXPECT_EQ(screen.frame.unchanged, !differs) << "the second time it is painted over with what was there";
    EXPECT_EQ(screen.ChangedPixels(), differs ? 20 * 20 + 10 * 30 : 0);
  }
}

class X11ScreenCapturerOn : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(ServersWithout, X11ScreenCapturerOn,
                         testing::Values("", "MIT-SHM", "DAMAGE", "XFIXES", "RANDR"));

TEST_P(X11ScreenCapturerOn, KeepsTheServersPixelsThroughAnyDrawing) {
  const std::string without = GetParam();
  CapturedScreen screen(without.empty() ? std::vector<std::string>{}
                                        : std::vector{std::string("-extension"), without});
  RandomPainter painter(screen.client, 11);
  ASSERT_TRUE(screen.ShowsTheServersPixels());
  for (int round = 0; round < 50; ++round) {
    const std::vector<uint32_t> before = screen.FramePixels();
    for (int32_t i = painter.UpTo(round % 10 == 0 ? 100 : 5); i > 0; --i) painter.Paint();
    ASSERT_TRUE(screen.ShowsTheServersPixels()) << "round " << round;
    const std::vector<uint32_t> after = screen.FramePixels();
    ASSERT_TRUE(!screen.frame.unchanged || after == before);
    ASSERT_TRUE(HintCovers(before, after, screen.frame)) << "round " << round;
    ASSERT_TRUE(screen.Capture());
    EXPECT_TRUE(screen.frame.unchanged);
  }
}

TEST(X11ScreenCapturer, LosesNothingThatIsDrawnWhileItReads) {
  CapturedScreen screen;
  std::atomic<bool> drawing = true;
  std::atomic<int> captures = 0;
  std::thread busy([&] {
    X11TestClient client(screen.server.Name());
    RandomPainter painter(client, 5);
    for (int i = 0; i < 2000 || captures < 30; ++i) {
      painter.Paint();
      if (i % 7 == 0) client.Sync();
    }
    client.Sync();
    drawing = false;
    // The windows live as long as their client.
    Eventually([&] { return !screen.capturer; });
  });
  while (drawing) captures += screen.capturer->Capture(screen.frame) ? 1 : 0;
  EXPECT_TRUE(screen.ShowsTheServersPixels());
  screen.capturer.reset();
  busy.join();
}

TEST(X11ScreenCapturer, CapturesMonitorsByTheirOrderAndFollowsTheirChanges) {
  CapturedScreen screen;
  RandomPainter painter(screen.client, 3);
  for (int i = 0; i < 60; ++i) painter.Paint();
  screen.client.SetMonitor("right", {320, 10, 639, 480});
  screen.client.SetMonitor("lower", {0, 200, 320, 480});
  screen.client.SwitchOutputOff();
  screen.client.Sync();
  EXPECT_EQ(OrderedMonitors(*screen.displays),
            (std::vector<PixelRect>{{0, 200, 320, 480}, {320, 10, 639, 480}}));

  const auto showsArea = [&](int32_t index, const PixelRect& area) {
    EXPECT_TRUE(screen.ShowsTheServersPixels());
    EXPECT_EQ(screen.capturer->MonitorIndex(), index);
    EXPECT_EQ(screen.Area(), area);
  };
  screen.Recreate(5);
  showsArea(-1, kScreen);
  screen.Recreate(1);
  showsArea(1, {320, 10, 638, 480});
  screen.client.Fill({300, 0, 330, 20}, 0x99aabb);
  showsArea(1, {320, 10, 638, 480});
  EXPECT_EQ(screen.ChangedPixels(), 10 * 10) << "the rest is on another monitor";

  screen.client.SetMonitor("upper", {0, 0, 320, 200});
  showsArea(1, {0, 200, 320, 480});
  EXPECT_FALSE(screen.frame.unchanged || screen.frame.changed) << "nothing is known about another area";
  screen.client.DeleteMonitor("lower");
  screen.client.DeleteMonitor("right");
  showsArea(-1, kScreen);
  screen.client.SetMonitor("right", {320, 10, 639, 480});
  showsArea(1, {320, 10, 638, 480});
}

TEST(X11ScreenCapturer, SurvivesChangesOfTheScreensSize) {
  CapturedScreen screen({}, -1);
  screen.capturer->SetShowCursor(true);
  screen.client.WarpTo(600, 470);
  ASSERT_TRUE(screen.Capture());
  screen.capturer->SetShowCursor(false);
  screen.client.SwitchOutputOff();
  RandomPainter painter(screen.client, 9);
  for (const auto& [width, height] :
       {std::pair<uint16_t, uint16_t>{300, 200}, {640, 480}, {401, 399}, {64, 65}}) {
    for (int i = 0; i < 20; ++i) painter.Paint();
    screen.client.ResizeScreen(width, height);
    for (int i = 0; i < 20; ++i) painter.Paint();
    ASSERT_TRUE(screen.ShowsTheServersPixels()) << width << "x" << height;
    EXPECT_EQ(screen.Area(), (PixelRect{0, 0, width & ~1, height & ~1}));
    EXPECT_FALSE(screen.frame.unchanged || screen.frame.changed);
    painter.Paint();
    ASSERT_TRUE(screen.ShowsTheServersPixels());
  }

  screen.client.ResizeScreen(40, 30);
  screen.client.Fill({0, 0, 40, 30}, 0x123456);
  ASSERT_TRUE(screen.Capture());
  EXPECT_EQ(screen.Area(), (PixelRect{0, 0, 1024, 768}));
  const std::vector<uint32_t> pixels = screen.FramePixels();
  EXPECT_EQ(std::ranges::count(pixels, 0xff123456), 40 * 30);
  EXPECT_EQ(std::ranges::count(pixels, 0xff000000), 1024 * 768 - 40 * 30) << "no screen there";
}

/// The size changes between any two requests of a capture.
TEST(X11ScreenCapturer, SurvivesChangesOfTheScreensSizeWhileItReads) {
  CapturedScreen screen({}, -1);
  screen.client.SwitchOutputOff();
  std::atomic<bool> resizing = true;
  std::thread resizer([&] {
    X11TestClient client(screen.server.Name());
    for (uint32_t i = 0; i < 400; ++i) {
      client.ResizeScreen(i % 2 == 0 ? 320 : 640, i % 3 == 0 ? 240 : 480);
      client.Fill({static_cast<int32_t>(i % 200), 0, 300, 200}, i * 12345);
    }
    client.Sync();
    resizing = false;
  });
  std::vector<uint32_t> before;
  while (resizing) {
    if (!screen.capturer->Capture(screen.frame)) continue;
    const std::vector<uint32_t> after = screen.FramePixels();
    EXPECT_TRUE(HintCovers(before, after, screen.frame));
    before = after;
  }
  resizer.join();
  EXPECT_FALSE(before.empty());
  EXPECT_TRUE(screen.ShowsTheServersPixels());
}

TEST(X11ScreenCapturer, DrawsTheCursorWithoutTouchingThePictureBeneath) {
  CapturedScreen screen;
  screen.client.Fill(kScreen, 0x404040);
  screen.client.SetCursor(0xff, 0, 0, 5, 3);
  screen.client.WarpTo(100, 200);
  ASSERT_TRUE(screen.ShowsTheServersPixels()) << "not shown unless wished";

  const auto showsCursorAt = [&](const PixelRect& area) {
    std::vector<uint32_t> expected = screen.client.Pixels(kScreen);
    for (int32_t y = area.top; y < area.bottom; ++y)
      std::fill_n(expected.begin() + y * 640 + area.left, area.Width(), 0xffff0000);
    EXPECT_TRUE(screen.FramePixels() == expected);
  };
  const auto capturedChange = [&] {
    const std::vector<uint32_t> before = screen.FramePixels();
    EXPECT_TRUE(screen.Capture());
    EXPECT_TRUE(HintCovers(before, screen.FramePixels(), screen.frame));
    return screen.ChangedPixels();
  };

  screen.capturer->SetShowCursor(true);
  EXPECT_EQ(capturedChange(), 16 * 16);
  showsCursorAt({95, 197, 111, 213});
  EXPECT_EQ(capturedChange(), 0);
  EXPECT_TRUE(screen.frame.unchanged);
  screen.client.WarpTo(639, 0);
  EXPECT_EQ(capturedChange(), 16 * 16 + 6 * 13) << "what it left and what it entered, cut at the edge";
  showsCursorAt({634, 0, 640, 13});

  screen.client.Fill({630, 5, 640, 8}, 0x00ff00);
  EXPECT_EQ(capturedChange(), 10 * 3);
  showsCursorAt({634, 0, 640, 13});  // it rests while something is drawn beneath
  screen.client.SetCursor(0xff, 0, 0, 15, 15);
  capturedChange();
  showsCursorAt({624, 0, 640, 1});  // another picture in the same place

  screen.capturer->SetShowCursor(false);
  EXPECT_EQ(capturedChange(), 16);
  showsCursorAt({});
}

TEST(X11ScreenCapturer, TellsWhoWaitsThatTheScreenWasTouched) {
  CapturedScreen screen;
  ASSERT_TRUE(screen.Capture());
  const auto settle = [] { std::this_thread::sleep_for(std::chrono::milliseconds(30)); };
  settle();
  ASSERT_EQ(screen.touches, 0);
  for (int32_t size = 10; size <= 20; size += 10) {
    screen.client.Fill({0, 0, size, size}, 0xff);
    screen.client.Sync();
    EXPECT_TRUE(Eventually([&] { return screen.touches == 1; }));
  }
  settle();
  EXPECT_EQ(screen.touches, 1) << "once until the next capture";
  ASSERT_TRUE(screen.Capture());
  ASSERT_TRUE(screen.Capture());
  screen.client.PointTo(50, 50);
  screen.client.Sync();
  settle();
  EXPECT_EQ(screen.touches, 1) << "all captured, and the cursor is not shown";
  screen.capturer->SetShowCursor(true);
  for (int turn = 0; turn < 50; ++turn) ASSERT_TRUE(screen.Capture());
  settle();
  EXPECT_EQ(screen.touches, 1) << "asking for the pointer is no touch";
  screen.client.PointTo(60, 50);
  screen.client.Sync();
  EXPECT_TRUE(Eventually([&] { return screen.touches == 2; }));
  ASSERT_TRUE(screen.Capture());
  screen.client.SetCursor(1, 2, 3, 0, 0);
  screen.client.Sync();
  EXPECT_TRUE(Eventually([&] { return screen.touches == 3; }));
}

TEST(X11ScreenCapturer, WakesWhoWaitsForWhateverTheLastPictureLacks) {
  CapturedScreen screen;
  ASSERT_TRUE(screen.Capture());
  for (uint32_t round = 1; round <= 300; ++round) {
    std::atomic<bool> painting = true;
    std::thread painter([&] {
      screen.client.Fill(kScreen, round * 5000);
      screen.client.Sync();
      screen.client.Fill({0, 0, 5, 5}, round);
      screen.client.Sync();
      painting = false;
    });
    int touchesBefore = 0;
    do {
      touchesBefore = screen.touches;
      EXPECT_TRUE(screen.capturer->Capture(screen.frame));
    } while (painting);
    painter.join();
    if (screen.FramePixels() != screen.client.Pixels(kScreen)) {
      ASSERT_TRUE(Eventually([&] { return screen.touches > touchesBefore; })) << "round " << round;
    }
  }
}

TEST(X11ScreenCapturer, OutlivesItsServer) {
  CapturedScreen screen;
  screen.capturer->SetShowCursor(true);
  ASSERT_TRUE(screen.Capture());
  std::atomic<bool> capturing = true;
  std::thread killer([&] {
    screen.server.Kill();
    capturing = false;
  });
  bool failed = false;
  while (capturing) failed = !screen.capturer->Capture(screen.frame);
  killer.join();
  EXPECT_TRUE(Eventually([&] { return failed || !screen.capturer->Capture(screen.frame); }));
  EXPECT_FALSE(screen.capturer->Capture(screen.frame));
  screen.capturer->SetShowCursor(false);
  EXPECT_FALSE(screen.capturer->Capture(screen.frame));
  EXPECT_TRUE(screen.displays->Monitors().empty());
  EXPECT_TRUE(screen.displays->VirtualDesktop().Empty());
  EXPECT_TRUE(screen.displays->AttachToInputDesktop());
  EXPECT_LE(screen.touches, 3) << "a dead connection is not an endless touch";
}

TEST(X11ScreenCapturer, SaysWhyItCannotBeMade) {
  CapturedScreen screen;
  std::string error;
  EXPECT_FALSE(CreateX11CaptureBackends(*screen.displays, {}, ":54321").fallback(0, error));
  EXPECT_EQ(error, "could not connect to the X server \":54321\"");
  EXPECT_FALSE(CreateX11DisplaySystem(error, "nonsense"));
  EXPECT_EQ(error, "\"nonsense\" is not the name of an X display");
  EXPECT_FALSE(CreateX11DisplaySystem(error, screen.server.Name() + ".7"));
  EXPECT_EQ(error, "the X server \"" + screen.server.Name() + ".7\" has no such screen");

  PrivateDisplay shallow("320x240x16");
  EXPECT_FALSE(CreateX11CaptureBackends(*screen.displays, {}, shallow.Name()).fallback(0, error));
  EXPECT_EQ(
      error,
      "the X screen's pixels (depth 16) cannot be captured: 32 bits with one byte for each color are needed");
}

}  // namespace
}  // namespace cvn::agent
