#include "session/capture_source.h"

#include <gtest/gtest.h>

#include "testing/captured_log.h"
#include "testing/scripted_capturer.h"

namespace cvn::agent {
namespace {

using Texts = std::vector<std::string>;

/// Knows only what it is.
class DuplicatingCapturer final : public ScreenCapturer {
 public:
  int32_t OriginX() const override { return 0; }
  int32_t OriginY() const override { return 0; }
  int32_t Width() const override { return 0; }
  int32_t Height() const override { return 0; }
  int32_t MonitorIndex() const override { return 0; }
  bool UsesDesktopDuplication() const override { return true; }
  void SetShowCursor(bool) override {}
  bool Capture(CapturedFrame&) override { return false; }
};

class CaptureSourceTest : public testing::Test {
 protected:
  CaptureSource WithDuplication() {
    CaptureBackends backends = screen_.Backends();
    backends.duplication = [this](int32_t, std::string& error) {
      error = refusal_;
      return refusal_.empty() ? std::make_unique<DuplicatingCapturer>() : nullptr;
    };
    return CaptureSource(std::move(backends));
  }

  ScriptedScreen screen_{64, 64};
  std::string refusal_;
  CapturedLog log_;
};

TEST_F(CaptureSourceTest, SaysNothingOfDuplicationOnAHostWithoutIt) {
  CaptureSource source(screen_.Backends());
  EXPECT_TRUE(source.Open(0, 0));
  EXPECT_FALSE(source.DuplicationRetryDue(1'000'000));
  EXPECT_TRUE(source.Rebuild(0));
  EXPECT_EQ(screen_.CapturersMade(), 2);
  EXPECT_EQ(log_.Lines(), Texts{});
}

TEST_F(CaptureSourceTest, TakesACapturerThatThrowsForOneThatCannotBeMade) {
  CaptureSource source(
      {.duplication = nullptr, .fallback = [](int32_t, std::string&) -> std::unique_ptr<ScreenCapturer> {
         throw std::runtime_error("no memory for a picture");
       }});
  EXPECT_FALSE(source.Open(0, 0));
  EXPECT_EQ(log_.Lines(), Texts{"WRN [session] no capturer for monitor 0: no memory for a picture"});
}

TEST_F(CaptureSourceTest, KeepsWhatItHasWhenNothingBetterCanBeMade) {
  CaptureSource source(screen_.Backends());
  ASSERT_TRUE(source.Open(0, 0));
  screen_.SetCreatable(false);
  EXPECT_FALSE(source.Rebuild(0));
  EXPECT_FALSE(source.Open(-1, 0));
  EXPECT_EQ(source.Capturer().MonitorIndex(), 0);
  EXPECT_EQ(log_.Lines(), Texts{"WRN [session] no capturer for monitor -1: scripted failure"});
}

TEST_F(CaptureSourceTest, TriesDuplicationAgainEveryTwentySeconds) {
  CaptureSource source = WithDuplication();
  refusal_ = "busy";
  EXPECT_TRUE(source.Open(0, 5'000));
  EXPECT_FALSE(source.Capturer().UsesDesktopDuplication());
  EXPECT_FALSE(source.DuplicationRetryDue(24'999));
  EXPECT_TRUE(source.DuplicationRetryDue(25'000));
  EXPECT_FALSE(source.RetryDuplication(0, 25'000));
  EXPECT_FALSE(source.DuplicationRetryDue(44'999));
  refusal_ = "rotated";
  EXPECT_FALSE(source.RetryDuplication(0, 45'000));
  refusal_ = "";
  EXPECT_TRUE(source.RetryDuplication(0, 65'000));
  EXPECT_TRUE(source.Capturer().UsesDesktopDuplication());
  EXPECT_FALSE(source.DuplicationRetryDue(1'000'000));
  EXPECT_EQ(log_.Lines(),
            (Texts{"WRN [session] DXGI Desktop Duplication unavailable (busy), falling back to GDI BitBlt",
                   "WRN [session] Desktop Duplication still unavailable (busy); staying on GDI",
                   "WRN [session] DXGI Desktop Duplication unavailable (rotated), falling back to GDI BitBlt",
                   "INF [session] Desktop Duplication recovered; back off the GDI full-frame path"}));
}

TEST_F(CaptureSourceTest, RebuildsWithDuplicationOnlyWhereThatHasWorked) {
  CaptureSource source = WithDuplication();
  refusal_ = "busy";
  source.Open(0, 0);
  refusal_ = "";
  EXPECT_TRUE(source.Rebuild(0));
  EXPECT_FALSE(source.Capturer().UsesDesktopDuplication());
  source.Open(0, 0);
  EXPECT_TRUE(source.Rebuild(0));
  EXPECT_TRUE(source.Capturer().UsesDesktopDuplication());
  refusal_ = "busy";
  EXPECT_TRUE(source.Rebuild(0));
  EXPECT_FALSE(source.Capturer().UsesDesktopDuplication()) << "a picture by the fallback beats none";
}

}  // namespace
}  // namespace cvn::agent
