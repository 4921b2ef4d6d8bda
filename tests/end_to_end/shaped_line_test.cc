#include <algorithm>
#include <optional>
#include <sstream>

#include "tests/end_to_end/photograph.h"
#include "tests/end_to_end/session_under_test.h"
#include "tests/end_to_end/slow_line.h"
#include "tests/end_to_end/typing.h"

namespace cvn::end_to_end {
namespace {

constexpr int64_t k2Mbit = 250'000;
constexpr int64_t k300Kbit = 37'500;

/// What the agent logs of a viewer's report.
struct Report {
  int receivedKbps = 0;
  int roundTripMs = 0;
  int targetKbps = 0;
  int framesPerSecond = 0;
  bool congested = false;
};

std::optional<Report> ParseReport(const std::string& line) {
  Report report;
  const auto at = [&line](const char* key) {
    const size_t found = line.find(key);
    return found == std::string::npos ? nullptr : line.c_str() + found;
  };
  const char* const begin = at("[quality] receive=");
  const char* const roundTrip = at(" rtt=");
  const char* const target = at("; target=");
  if (begin == nullptr || roundTrip == nullptr || target == nullptr) return std::nullopt;
  if (std::sscanf(begin, "[quality] receive=%d kbps", &report.receivedKbps) != 1 ||
      std::sscanf(roundTrip, " rtt=%d ms", &report.roundTripMs) != 1 ||
      std::sscanf(target, "; target=%d kbps/%d fps", &report.targetKbps, &report.framesPerSecond) != 2)
    return std::nullopt;
  report.congested = at(" (link congested)") != nullptr;
  return report;
}

/// A desktop with a film beside a text cell, shown over a line that can become slow.
class ShapedLineTest : public SessionTest {
 protected:
  void SetUp() override {
    for (int i = 0; i < 8; ++i) film_.push_back(Photograph(kFilm.width, kFilm.height, 1, 5 * i));
    filmWindow_ = desktop_.OpenPictureWindow(kFilm.x, kFilm.y, film_[0]);
    ServeDesktop();
    line_.emplace(port_);
  }

  void ShowDesktop() {
    ConnectViewer(line_->Port());
    ASSERT_TRUE(ViewerShowsTheScreen());
  }

  void PlayFilm() {
    if (!filmPace_.Due()) return;
    desktop_.Paint(filmWindow_, film_[++filmFrame_ % film_.size()]);
    if (noise_ != 0) desktop_.PaintNoise(noise_, static_cast<uint32_t>(filmFrame_));
  }

  /// Ten keys a second, and after fifteen of them a thought, in which the picture rests.
  void TypeNaturally() {
    if (!keyPace_.Due()) return;
    if (++keys_ % 20 < 15) cell_.Type();
    if (const auto age = cell_.AgeOn(canvas_)) oldest_ = std::max(oldest_, *age);
  }

  milliseconds OldestFor(milliseconds time, const std::function<void()>& meanwhile) {
    oldest_ = milliseconds(0);
    const auto end = std::chrono::steady_clock::now() + time;
    WaitUntil(time + kPatience, [&] {
      meanwhile();
      return std::chrono::steady_clock::now() > end;
    });
    std::printf("what was shown was never older than %d ms\n", static_cast<int>(oldest_.count()));
    return oldest_;
  }

  std::vector<Report> Reports() const {
    std::vector<Report> reports;
    std::istringstream log(agent_->Output());
    for (std::string line; std::getline(log, line);) {
      if (const auto report = ParseReport(line)) reports.push_back(*report);
    }
    return reports;
  }

  /// Whether a report after the first `known` ones leads to such a target while the film plays.
  bool FilmLeadsTo(size_t known, const std::function<bool(const Report&)>& target) {
    Every look{milliseconds(50)};
    return WaitUntil(kPatience, [&] {
      PlayFilm();
      if (!look.Due()) return false;
      const auto reports = Reports();
      return reports.size() > known &&
             std::any_of(reports.begin() + static_cast<ptrdiff_t>(known), reports.end(), target);
    });
  }

  std::string LogTail() const {
    const std::string log = agent_->Output();
    return log.substr(log.size() - std::min<size_t>(log.size(), 4000));
  }

  static constexpr Area kFilm{1024, 256, 384, 256};

  std::vector<Picture> film_;
  size_t filmFrame_ = 0;
  Every filmPace_{milliseconds(50)};
  Every keyPace_{milliseconds(100)};
  int keys_ = 0;
  milliseconds oldest_{0};
  Desktop::WindowId text_ = desktop_.OpenTextWindow(101, 57, 30);
  CounterCell cell_{desktop_, 192, 704};
  Desktop::WindowId filmWindow_ = 0;
  Desktop::WindowId noise_ = 0;
  std::optional<SlowLine> line_;
};

TEST_F(ShapedLineTest, IsFollowedDownTheLadderAndUpAgain) {
  noise_ = desktop_.OpenNoiseWindow(1024, 640, 256, 256);  // more than the slow lines carry on every rung
  ShowDesktop();
  line_->Limit(k2Mbit);
  ASSERT_TRUE(FilmLeadsTo(Reports().size(), [](const Report& report) {
    return report.congested && report.targetKbps == 1800 && report.framesPerSecond == 15;
  })) << LogTail();

  line_->Limit(SlowLine::kUnlimited);
  EXPECT_TRUE(FilmLeadsTo(Reports().size(), [](const Report& report) {
    return report.targetKbps == 4000 && report.framesPerSecond == 24;
  })) << LogTail();

  line_->Limit(k300Kbit);
  ASSERT_TRUE(FilmLeadsTo(Reports().size(), [](const Report& report) {
    return report.congested && report.targetKbps == 300 && report.framesPerSecond == 8;
  })) << LogTail();
  EXPECT_TRUE(AgentLogs("INF [quality] tileQ=55 paletteColors<=4 losslessBudget=0bpp codec=webp\n"));
}

TEST_F(ShapedLineTest, ShowsWhatIsTypedWithinASecond) {
  ShowDesktop();
  line_->Limit(k300Kbit);
  ASSERT_TRUE(FilmLeadsTo(Reports().size(), [](const Report& report) { return report.targetKbps == 300; }));
  // What was on its way when the line became slow has to arrive first.
  cell_.Type();
  ASSERT_TRUE(WaitUntil(kPatience, [this] { return cell_.NewestIsOn(canvas_); }));
  EXPECT_LT(OldestFor(seconds(5), [this] { TypeNaturally(); }), seconds(1)) << LogTail();
  EXPECT_LT(OldestFor(seconds(4),
                      [this] {
                        PlayFilm();
                        TypeNaturally();
                      }),
            seconds(1))
      << LogTail();
}

TEST_F(ShapedLineTest, MayBeLongWithoutBeingTakenForSlow) {
  line_->Delay(milliseconds(100));
  ShowDesktop();
  const size_t known = Reports().size();
  Every look{milliseconds(50)};
  EXPECT_TRUE(WaitUntil(kPatience, [&] {
    TypeNaturally();
    return look.Due() && Reports().size() >= known + 3;
  }));
  for (const Report& report : Reports()) {
    EXPECT_GE(report.targetKbps, 12000) << LogTail();
  }
  EXPECT_GE(Reports().back().roundTripMs, 100);
  EXPECT_LT(Reports().back().roundTripMs, 250);
  EXPECT_LT(oldest_, milliseconds(500));
}

TEST_F(ShapedLineTest, LetsControlMessagesOvertakeTiles) {
  WireClient client(LocalSocket::Connected(line_->Port()).value());
  ASSERT_TRUE(client.Next(kPatience));
  line_->Limit(k300Kbit);
  for (int round = 0; round < 5; ++round) {
    int tileMessages = 0;
    const auto answer = [&] {
      PlayFilm();
      const auto frame = client.Next(milliseconds(20));
      if (frame && frame->channel == 1) ++tileMessages;
      return frame && frame->channel == 0;
    };
    ASSERT_FALSE(WaitUntil(milliseconds(500), answer));
    client.SendControl(R"({"t":5,"index":0})");
    const auto asked = std::chrono::steady_clock::now();
    ASSERT_TRUE(WaitUntil(kPatience, answer));
    const auto taken = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - asked);
    std::printf("answered after %d ms, %d tile messages meanwhile\n", static_cast<int>(taken.count()),
                tileMessages);
    EXPECT_LT(taken, seconds(1));
    EXPECT_GT(tileMessages, 0) << "no tiles flowed";
  }
}

}  // namespace
}  // namespace cvn::end_to_end
