#include "agent/selftest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "agent/host_platform.h"
#include "testing/fake_clock.h"
#include "testing/scripted_capturer.h"

namespace cvn::agent {
namespace {

/// The host's codec with what can be wrong with one.
class FaultyCodec final : public TileImageCodec {
 public:
  bool encodesJpeg = true;
  bool encodesWebp = true;
  bool decodes = true;
  bool decodesOthersPixels = false;
  std::function<void()> onEncode = [] {};

  std::vector<uint8_t> EncodeJpeg(std::span<const uint8_t> pixels, int width, int height,
                                  int quality) override {
    onEncode();
    return encodesJpeg ? codec_->EncodeJpeg(pixels, width, height, quality) : std::vector<uint8_t>();
  }
  bool Decode(std::span<const uint8_t> payload, int width, int height,
              std::vector<uint8_t>& pixels) override {
    if (!decodes || !codec_->Decode(payload, width, height, pixels)) return false;
    if (decodesOthersPixels) std::ranges::reverse(pixels);
    return true;
  }
  std::optional<std::vector<uint8_t>> EncodeWebp(std::span<const uint8_t> pixels, int width, int height,
                                                 int quality) override {
    if (!encodesWebp) return std::nullopt;
    return codec_->EncodeWebp(pixels, width, height, quality);
  }

 private:
  std::unique_ptr<TileImageCodec> codec_ = CreateHostPlatform()->CreateImageCodec();
};

/// A capturer whose frames a test spoils: `spoil` sees each, with its pixels in `pixels`.
class SpoiltCapturer final : public ScreenCapturer {
 public:
  SpoiltCapturer(std::unique_ptr<ScreenCapturer> capturer, std::vector<uint8_t>& pixels,
                 std::function<void(CapturedFrame&)> spoil)
      : capturer_(std::move(capturer)), pixels_(pixels), spoil_(std::move(spoil)) {}

  int32_t OriginX() const override { return capturer_->OriginX(); }
  int32_t OriginY() const override { return capturer_->OriginY(); }
  int32_t Width() const override { return capturer_->Width(); }
  int32_t Height() const override { return capturer_->Height(); }
  int32_t MonitorIndex() const override { return capturer_->MonitorIndex(); }
  bool UsesDesktopDuplication() const override { return capturer_->UsesDesktopDuplication(); }
  void SetShowCursor(bool show) override { capturer_->SetShowCursor(show); }
  bool Capture(CapturedFrame& frame) override {
    if (!capturer_->Capture(frame)) return false;
    pixels_.assign(frame.pixels, frame.pixels + frame.byteSize);
    frame.pixels = pixels_.data();
    spoil_(frame);
    return true;
  }

 private:
  std::unique_ptr<ScreenCapturer> capturer_;
  std::vector<uint8_t>& pixels_;
  std::function<void(CapturedFrame&)> spoil_;
};

/// A machine of 4 x 2 tiles, one of them beyond every palette and budget.
struct Machine {
  Machine() {
    screen.PaintEach({0, 0, 64, 64}, [random = std::mt19937(5)](int32_t, int32_t) mutable {
      return static_cast<uint32_t>(random()) & 0xffffff;
    });
    parts.backends = screen.Backends();
  }

  void SpoilFrames(std::function<void(CapturedFrame&)> spoil) {
    parts.backends.fallback = [this, spoil](int32_t monitor, std::string& error) {
      return std::make_unique<SpoiltCapturer>(screen.Backends().fallback(monitor, error), pixels, spoil);
    };
  }

  ScriptedScreen screen{256, 128};
  FaultyCodec codec;
  FakeClock clock;
  std::vector<uint8_t> pixels;
  SelftestParts parts = {.displays = screen,
                         .backends = {},
                         .fallbackName = "scripted",
                         .codec = &codec,
                         .clock = clock,
                         .wait = [](std::chrono::milliseconds) {}};
};

TEST(Selftest, ReportsWhatAPersonWantsToKnow) {
  Machine machine;
  machine.screen.SetMonitors({{100, 0, 228, 128}, {-28, 0, 100, 128}});
  machine.screen.PaintEach({-28, 0, 36, 64}, [random = std::mt19937(5)](int32_t, int32_t) mutable {
    return static_cast<uint32_t>(random()) & 0xffffff;
  });
  machine.parts.wait = [&](std::chrono::milliseconds) { machine.screen.Fill({90, 90, 92, 92}, 0xff0000); };
  std::ostringstream out;
  EXPECT_TRUE(TestCaptureAndCodecs(machine.parts, out));
  // In this order; sizes of JPEG and WebP are the libraries' own affair.
  const char* const parts[] = {
      "capture     : scripted\n"
      "monitors    : 2\n"
      "            : 0 is 128x128 at -28,0\n"
      "            : 1 is 128x128 at 100,0\n"
      "area        : 256x128 at -28,0 (all displays)\n"
      "first frame : 256x128 in 0.0 ms\n"
      "jpeg codec  : ",
      " B at q80 for a photograph of 64x64 pixels\n"
      "webp codec  : libwebp, ",
      " B vs JPEG ",
      " B at q80 (",
      "% smaller)\n"
      "decode check: the test photograph as JPEG: ",
      "decode check: the test photograph as WebP: ",
      "grid        : 4 x 2 tiles of 64x64\n"
      "keyframe    : 8 tiles (7 palette, 0 lossless, 1 JPEG, 0 WebP), ",
      " B, 0.0 ms\n"
      "static frame: 0 tiles, 0 B, 0.0 ms\n"
      "decode check: 1 JPEG and WebP tiles of the keyframe, worst brightness ",
      "            : 7 palette and lossless tiles not decoded: only the viewer can\n"
      "next frame  : 256x128 in 0.0 ms\n"
      "High        : q90, 256 colours, 3 bpp: keyframe ",
      "(1 tiles)\nBalanced    : q80, 128 colours, 3 bpp: keyframe ",
      "(1 tiles)\nDataSaver   : q72,  48 colours, 2 bpp: keyframe ",
      "(1 tiles)\nSELFTEST OK\n"};
  size_t from = 0;
  for (const std::string part : parts) {
    const size_t found = out.str().find(part, from);
    ASSERT_NE(found, std::string::npos) << part << "\nis not, or not there, in\n" << out.str();
    from = found + part.size();
  }
  EXPECT_EQ(from, out.str().size()) << out.str();
}

TEST(Selftest, SaysWhatIsMissingAndFailsForWhatIsBroken) {
  struct Case {
    const char* what;
    void (*change)(Machine&);
    bool healthy;
    const char* line;
  };
  const Case cases[] = {
      {"no capturer", [](Machine& m) { m.screen.SetCreatable(false); }, false,
       "capture     : cannot start: scripted failure\nSELFTEST FAILED\n"},
      {"no frame", [](Machine& m) { m.screen.SetCapturable(false); }, false,
       "first frame : none in 40 attempts\nSELFTEST FAILED\n"},
      {"no second frame", [](Machine& m) { m.parts.wait = [&m](auto) { m.screen.SetCapturable(false); }; },
       false, "next frame  : none in 40 attempts\nSELFTEST FAILED\n"},
      {"a frame that is late",
       [](Machine& m) {
         m.screen.SetCapturable(false);
         m.parts.wait = [&m](auto) { m.screen.SetCapturable(true); };
       },
       true, "first frame : 256x128"},
      {"a screen that shows nothing",
       [](Machine& m) {
         m.screen.Fill({0, 0, 256, 128}, 0);
       },
       true, "in 0.0 ms, all of one colour: an empty screen, or one that cannot be read\n"},
      {"a short frame", [](Machine& m) { m.SpoilFrames([](CapturedFrame& frame) { --frame.byteSize; }); },
       false, "self-test   : cannot go on: frame smaller than the configured grid\nSELFTEST FAILED\n"},
      {"pixels that change between two captures",
       [](Machine& m) {
         m.SpoilFrames([](CapturedFrame&) {});
         m.codec.onEncode = [&m] {
           if (!m.pixels.empty()) m.pixels.back() ^= 1;
         };
       },
       false, "0.0 ms (WRONG: a static screen must cost nothing)\n"},
      {"Desktop Duplication refused",
       [](Machine& m) {
         m.parts.backends.duplication = [](int32_t, std::string& error) {
           error = "not here";
           return nullptr;
         };
       },
       true, "capture     : scripted (no Desktop Duplication: not here)\n"},
      {"Desktop Duplication", [](Machine& m) { m.parts.backends.duplication = m.parts.backends.fallback; },
       true, "capture     : DXGI Desktop Duplication\n"},
      {"an input desktop out of reach", [](Machine& m) { m.screen.SetAttachable(false); }, true,
       "desktop     : the one that receives input cannot be reached"},
      {"a monitor", [](Machine& m) { m.parts.monitor = 0; }, true, "256x128 at 0,0 (monitor 0)\n"},
      {"a monitor that is not there", [](Machine& m) { m.parts.monitor = 7; }, true,
       "256x128 at 0,0 (all displays, since there is no monitor 7)\n"},
      {"strips", [](Machine& m) { m.parts.strips = 3; }, true, "grid        : 1 x 3 tiles of 256x43\n"},
      {"no codec", [](Machine& m) { m.parts.codec = nullptr; }, true,
       "photo codec : unavailable (lossless only)\n"},
      {"no JPEG", [](Machine& m) { m.codec.encodesJpeg = false; }, false, "jpeg codec  : cannot encode"},
      {"no WebP", [](Machine& m) { m.codec.encodesWebp = false; }, true,
       "webp codec  : unavailable (photographic tiles fall back to JPEG)\n"},
      {"payloads that do not decode", [](Machine& m) { m.codec.decodes = false; }, false,
       "decode check: 1 of 1 JPEG and WebP tiles of the keyframe cannot be decoded\n"},
      {"the test photograph decoded wrong", [](Machine& m) { m.codec.decodesOthersPixels = true; }, false,
       "decode check: the test photograph as WebP is "},
      {"screen tiles decoded wrong", [](Machine& m) { m.codec.decodesOthersPixels = true; }, false,
       " dB, less than 25\n"},
      {"a screen that changes its size",
       [](Machine& m) {
         m.SpoilFrames([first = true](CapturedFrame& frame) mutable {
           if (!std::exchange(first, false)) frame.height /= 2;
         });
       },
       true, "presets     : not measured: the screen has just changed its size\nSELFTEST OK\n"},
  };
  for (const Case& c : cases) {
    Machine machine;
    c.change(machine);
    std::ostringstream out;
    EXPECT_EQ(TestCaptureAndCodecs(machine.parts, out), c.healthy) << c.what << "\n" << out.str();
    EXPECT_NE(out.str().find(c.line), std::string::npos) << c.what << "\n" << out.str();
    EXPECT_TRUE(out.str().ends_with(c.healthy ? "\nSELFTEST OK\n" : "\nSELFTEST FAILED\n")) << out.str();
  }
}

}  // namespace
}  // namespace cvn::agent
