#include "capture/gdi_screen_capturer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "testing/captured_log.h"
#include "testing/scripted_capturer.h"

namespace cvn::agent {
namespace {

constexpr int32_t kWidth = 64;
constexpr int32_t kHeight = 66;

/// A screen that shows what the test puts into `screen`, with noise in the fourth byte, as the system leaves
/// it.
struct FakeSurface final : ScreenSurface {
  ScreenCopy CopyScreen(int32_t originX, int32_t originY, bool withCursor, uint32_t& errorCode) override {
    copiedFrom = {originX, originY};
    cursorWished = withCursor;
    errorCode = 1400;
    if (next == ScreenCopy::kDone)
      for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = screen[i] | ++noise << 24;
    return next;
  }
  void PaintBlack() override { pixels.assign(pixels.size(), 0); }
  std::span<const uint32_t> Pixels() const override { return pixels; }

  std::vector<uint32_t> screen = std::vector<uint32_t>(kWidth * kHeight, 0x00123456);
  std::vector<uint32_t> pixels = std::vector<uint32_t>(kWidth * kHeight);
  ScreenCopy next = ScreenCopy::kDone;
  uint32_t noise = 0;
  bool cursorWished = false;
  std::pair<int32_t, int32_t> copiedFrom;
};

struct GdiScreenCapturerTest : testing::Test {
  GdiScreenCapturerTest() {
    auto owned = std::make_unique<FakeSurface>();
    surface = owned.get();
    capturer = std::make_unique<GdiScreenCapturer>(CaptureArea{2, -70, 9, kWidth, kHeight}, std::move(owned),
                                                   screen);
  }

  /// The pixels of a capture that must succeed.
  std::vector<uint32_t> Pixels() {
    EXPECT_TRUE(capturer->Capture(frame));
    EXPECT_EQ(frame.byteSize, 16896u);
    std::vector<uint32_t> pixels(kWidth * kHeight);
    std::memcpy(pixels.data(), frame.pixels, frame.byteSize);
    return pixels;
  }

  ScriptedScreen screen{1920, 1080};
  FakeSurface* surface = nullptr;
  std::unique_ptr<GdiScreenCapturer> capturer;
  CapturedFrame frame;
};

const std::vector<uint32_t> kBlackFrame(kWidth* kHeight, 0xff000000);
const std::vector<uint32_t> kFirstFrame(kWidth* kHeight, 0xff123456);

TEST_F(GdiScreenCapturerTest, TellsAnUnchangedScreenByItsColours) {
  EXPECT_EQ(Pixels(), kFirstFrame);
  EXPECT_FALSE(frame.unchanged);
  EXPECT_FALSE(frame.changed) << "nothing came before the first frame";
  EXPECT_EQ(Pixels(), kFirstFrame) << "also an unchanged frame is delivered whole and opaque";
  EXPECT_TRUE(frame.unchanged);

  std::vector<uint32_t> expected = kFirstFrame;
  for (const size_t i : {size_t{5 * kWidth + 63}, size_t{9 * kWidth}}) {
    surface->screen[i] = 0xff;
    expected[i] = 0xff0000ff;
  }
  EXPECT_EQ(Pixels(), expected);
  EXPECT_FALSE(frame.unchanged);
  ASSERT_TRUE(frame.changed && frame.changed->size() == 1);
  EXPECT_EQ(frame.changed->front(), (PixelRect{0, 5, kWidth, 10}));
}

TEST_F(GdiScreenCapturerTest, IsBlackWhileTheScreenCannotBeReadAndSaysSoOnce) {
  CapturedLog log;
  EXPECT_EQ(Pixels(), kFirstFrame);
  for (int run = 0; run < 2; ++run) {
    surface->next = ScreenCopy::kFailed;
    EXPECT_EQ(Pixels(), kBlackFrame);
    EXPECT_FALSE(frame.unchanged);
    EXPECT_FALSE(frame.changed);
    EXPECT_EQ(Pixels(), kBlackFrame);
    EXPECT_FALSE(frame.unchanged) << "black for want of a screen is never a resting screen";
    surface->next = ScreenCopy::kDone;
    surface->screen.assign(surface->screen.size(), run == 0 ? 0 : 0x123456);
    EXPECT_EQ(Pixels(), run == 0 ? kBlackFrame : kFirstFrame);
    EXPECT_FALSE(frame.unchanged) << "the first good frame counts as changed even when it is black";
    EXPECT_FALSE(frame.changed);
  }
  EXPECT_EQ(log.Lines(),
            std::vector<std::string>{
                "WRN [capture] GDI BitBlt failed (Win32 error 1400); black frames until it recovers"});
}

TEST_F(GdiScreenCapturerTest, LeavesTheFrameAloneWhenThereIsNoScreen) {
  Pixels();
  surface->next = ScreenCopy::kNoScreen;
  frame.byteSize = 9;
  EXPECT_FALSE(capturer->Capture(frame));
  EXPECT_EQ(frame.byteSize, 9u);
  surface->next = ScreenCopy::kDone;
  EXPECT_EQ(Pixels(), kFirstFrame);
  EXPECT_TRUE(frame.unchanged) << "compared with the last frame that was delivered";
}

TEST_F(GdiScreenCapturerTest, FollowsTheInputDesktopAndAsksForTheCursorOnlyWhenWished) {
  screen.SetAttachable(false);
  for (const bool wished : {false, true}) {
    capturer->SetShowCursor(wished);
    Pixels();
    EXPECT_EQ(surface->cursorWished, wished);
  }
  EXPECT_EQ(surface->copiedFrom, (std::pair{-70, 9}));
  EXPECT_EQ(screen.Attaches(), 2) << "every capture attaches, whatever comes of it";
}

}  // namespace
}  // namespace cvn::agent
