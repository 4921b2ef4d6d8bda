#include "tests/end_to_end/photograph.h"

#include "tests/end_to_end/session_under_test.h"
#include "tests/end_to_end/typing.h"

namespace cvn::end_to_end {
namespace {

constexpr int kTileSize = 64;
constexpr Area kPortrait{192, 128, 384, 512};
constexpr Area kLandscape{1000, 500, 520, 300};  // shares its edge tiles with text
constexpr double kGoodDecibels = 30;
constexpr milliseconds kLongestRest{3000};

class PhotographTest : public SessionTest {
 protected:
  /// The rest is for sanitizers and Wine on a busy machine, not for the programs.
  static milliseconds RestPatience() { return BuiltWithSanitizers() ? kPatience : kLongestRest; }

  static bool IsNear(const Area& area, int x, int y) {
    const auto down = [](int value) { return value / kTileSize * kTileSize; };
    return x >= down(area.x) && x < down(area.x + area.width + kTileSize - 1) && y >= down(area.y) &&
           y < down(area.y + area.height + kTileSize - 1);
  }

  /// What lies in no tile of a photograph.
  static Picture TextOf(Picture screen) {
    for (int y = 0; y < screen.height; ++y) {
      for (int x = 0; x < screen.width; ++x) {
        if (IsNear(kPortrait, x, y) || IsNear(kLandscape, x, y)) {
          screen.pixels[static_cast<size_t>(y * screen.width + x)] = 0;
        }
      }
    }
    return screen;
  }

  void ExpectGoodAtOnce(const Picture& shown) const {
    const Picture screen = desktop_.Screen();
    EXPECT_EQ(Difference(TextOf(screen), TextOf(shown)), Difference(screen, screen)) << "in the text";
    for (const Area& area : {kPortrait, kLandscape}) {
      EXPECT_GE(PeakSignalToNoise(screen, shown, area), kGoodDecibels);
    }
    EXPECT_NE(shown, screen) << "nothing was sent as a photograph";
  }

  /// `meanwhile` is called again and again.
  void ExpectExactSoon(const std::function<void()>& meanwhile) {
    const auto begin = std::chrono::steady_clock::now();
    const bool exact = WaitUntil(RestPatience(), [&] {
      meanwhile();
      return canvas_.Read() == desktop_.Screen();
    });
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - begin;
    EXPECT_TRUE(exact) << Difference(desktop_.Screen(), canvas_.Read().value_or(Picture()));
    std::printf("exact %.0f ms after the picture\n", taken.count());
  }

  void ExpectFirstPictureSharpens(const std::function<void()>& meanwhile) {
    ServeDesktop();
    ConnectViewer();
    ASSERT_TRUE(WaitUntil(kPatience, [this] { return canvas_.IsFull(); }));
    ExpectGoodAtOnce(canvas_.Read().value());
    ExpectExactSoon(meanwhile);
  }

  Desktop::WindowId text_ = desktop_.OpenTextWindow(901, 457, 40);
  Desktop::WindowId portrait_ =
      desktop_.OpenPictureWindow(kPortrait.x, kPortrait.y, Photograph(kPortrait.width, kPortrait.height, 1));
  Desktop::WindowId landscape_ = desktop_.OpenPictureWindow(
      kLandscape.x, kLandscape.y, Photograph(kLandscape.width, kLandscape.height, 2));
};

TEST_F(PhotographTest, IsGoodAtOnceAndExactAfterARest) {
  ExpectFirstPictureSharpens([] {});
  desktop_.Paint(portrait_, Photograph(kPortrait.width, kPortrait.height, 3));
  ExpectExactSoon([] {});
}

TEST_F(PhotographTest, BecomesExactWhileACaretBlinksElsewhere) {
  const Picture caret{2, 14, std::vector<uint32_t>(28, 0x000000)};
  const Picture paper{2, 14, std::vector<uint32_t>(28, 0xffffff)};
  const auto window = desktop_.OpenPictureWindow(700, 900, paper);
  Every halfSecond{milliseconds(500)};
  bool on = false;
  const auto blink = [&] {
    if (halfSecond.Due()) desktop_.Paint(window, (on = !on) ? caret : paper);
  };
  ExpectFirstPictureSharpens(blink);
  desktop_.Paint(portrait_, Photograph(kPortrait.width, kPortrait.height, 3));
  ExpectExactSoon(blink);
}

}  // namespace
}  // namespace cvn::end_to_end
