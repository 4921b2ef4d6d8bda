#include "session/quality_control.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/captured_log.h"
#include "testing/fake_clock.h"
#include "testing/fake_tile_transport.h"

namespace cvn::agent {
namespace {

using Texts = std::vector<std::string>;

constexpr QualityReport kGreat = {.receiveKbps = 5'000, .lossPermille = 3, .rttMs = 12};
constexpr QualityReport kBad = {.receiveKbps = 5'000, .lossPermille = 100, .rttMs = 12};

class QualityControlTest : public testing::Test {
 protected:
  CapturedFrame Frame() const {
    return {.width = 64,
            .height = 64,
            .pixels = pixels_.data(),
            .byteSize = pixels_.size(),
            .unchanged = false,
            .changed = std::nullopt};
  }
  void DropFrame() {
    transport_.SetQueuedBytes(1'000'000);
    sender_.SendFrame(Frame());
    transport_.SetQueuedBytes(0);
  }
  void SendFrame() {
    sender_.SendFrame(Frame());
    EXPECT_FALSE(sender_.WantsFrame());
  }

  FakeClock clock_;
  FakeTileTransport transport_;
  std::vector<uint8_t> pixels_ = std::vector<uint8_t>(64 * 64 * 4);
  TileStreamSender sender_{clock_, transport_, nullptr, {}};
  QualityControl quality_{clock_, transport_, sender_, false};
  CapturedLog log_;
};

TEST_F(QualityControlTest, SaysWhatItDecides) {
  quality_.Apply(kGreat, false);
  quality_.Apply({.receiveKbps = -1, .lossPermille = 1'001, .rttMs = -7, .preset = QualityPreset::kHigh},
                 false);
  quality_.Apply({.receiveKbps = 1,
                  .lossPermille = -1,
                  .rttMs = 1,
                  .preset = QualityPreset::kDataSaver,
                  .grayscale = true},
                 true);
  DropFrame();
  transport_.SetOpen(false);
  quality_.Apply({.preset = QualityPreset::kBalanced}, false);
  EXPECT_EQ(
      log_.Lines(),
      (Texts{"INF [quality] receive=5000 kbps loss=0.3% rtt=12 ms preset=High active=tiles; target=12000 "
             "kbps/30 fps",
             "INF [quality] tileQ=90 paletteColors<=256 losslessBudget=3bpp codec=jpeg",
             "INF [quality] receive=-1 kbps loss=100.0% rtt=0 ms preset=High active=tiles; target=8000 "
             "kbps/30 fps",
             "INF [quality] tileQ=90 paletteColors<=256 losslessBudget=3bpp codec=jpeg",
             "INF [quality] receive=1 kbps loss=0.0% rtt=1 ms preset=DataSaver active=tiles; target=8000 "
             "kbps/30 fps grayscale (producer overloaded)",
             "INF [quality] tileQ=72 paletteColors<=48 losslessBudget=2bpp codec=jpeg",
             "INF [quality] receive=0 kbps loss=0.0% rtt=0 ms preset=Balanced active=no tile channel; "
             "target=8000 kbps/30 fps (link congested)"}));
}

TEST_F(QualityControlTest, CapsTheTarget) {
  QualityControl relayed(clock_, transport_, sender_, true);
  EXPECT_EQ(relayed.Target(), (StreamRate{1'800, 30}));
  for (int i = 0; i < 6; ++i) {
    relayed.Apply(kGreat, false);
    quality_.Apply(kGreat, false);
  }
  EXPECT_EQ(relayed.Target(), (StreamRate{1'800, 30}));
  EXPECT_TRUE(log_.Mentions("tileQ=75 ")) << "the values follow the capped target";
  EXPECT_EQ(quality_.Target(), (StreamRate{32'000, 60}));
  quality_.SetFullFrameCapture(true);
  EXPECT_EQ(quality_.Target(), (StreamRate{12'000, 30}));
  quality_.SetFullFrameCapture(false);
  EXPECT_EQ(quality_.Target(), (StreamRate{32'000, 60}));
  for (int i = 0; i < 7; ++i) relayed.Apply(kBad, false);
  EXPECT_EQ(relayed.Target(), (StreamRate{1'800, 20})) << "each by itself";
}

TEST_F(QualityControlTest, TakesARecentDropForCongestion) {
  DropFrame();
  clock_.AdvanceMs(3'000);
  quality_.Apply(kGreat, false);
  EXPECT_EQ(quality_.Target().kbps, 8'000) << "the drain estimate is a million bytes a second";
  EXPECT_TRUE(log_.Mentions("(link congested)"));
  clock_.AdvanceMs(1);
  quality_.Apply(kBad, false);
  EXPECT_EQ(quality_.Target().kbps, 6'000) << "no longer congested, only bad";
}

TEST_F(QualityControlTest, RepaintsWhenThePictureShallLookOther) {
  SendFrame();
  quality_.Apply(kGreat, false);
  quality_.Apply(kBad, false);
  EXPECT_FALSE(sender_.WantsFrame());
  QualityReport report = kGreat;
  report.preset = QualityPreset::kBalanced;
  quality_.Apply(report, false);
  EXPECT_TRUE(sender_.WantsFrame());
  SendFrame();
  report.grayscale = true;
  quality_.Apply(report, false);
  EXPECT_TRUE(sender_.WantsFrame());
  SendFrame();
  report.viewportWidth = 640;
  quality_.Apply(report, false);
  EXPECT_FALSE(sender_.WantsFrame());
  EXPECT_EQ(quality_.Chosen(), (QualityControl::Choice{QualityPreset::kBalanced, true, 640, 0}));
}

TEST(QualityReports, KeepTheNewestInOrder) {
  QualityReports reports;
  EXPECT_TRUE(reports.TakeAll().empty());
  for (int kbps = 1; kbps <= 20; ++kbps) reports.Add({.receiveKbps = kbps});
  const auto taken = reports.TakeAll();
  ASSERT_EQ(taken.size(), 16u);
  for (size_t i = 0; i < taken.size(); ++i) EXPECT_EQ(taken[i].receiveKbps, static_cast<int>(i) + 5);
  EXPECT_TRUE(reports.TakeAll().empty());
}

}  // namespace
}  // namespace cvn::agent
