#include "session/control_dispatch.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "testing/captured_log.h"
#include "testing/fake_tile_transport.h"
#include "testing/scripted_capturer.h"

namespace cvn::agent {
namespace {

using Texts = std::vector<std::string>;

class ControlDispatchTest : public testing::Test {
 protected:
  void Handle(const std::string& json, bool viewOnly = false) {
    ControlDispatch dispatch(viewOnly, parts_);
    dispatch.HandleControlMessage({reinterpret_cast<const uint8_t*>(json.data()), json.size()});
  }
  void Handle(int32_t type, bool viewOnly = false) {
    Handle("{\"t\":" + std::to_string(type) + "}", viewOnly);
  }

  /// "index/count" of each monitor list sent since the last call; what else was sent is "?".
  Texts SentLists() {
    Texts lists;
    for (const auto& payload : control_.TakeMessages()) {
      const std::optional<ControlMessage> message = DecodeControlMessage(payload);
      const bool list = message && message->type == 9;
      lists.push_back(list ? std::to_string(message->index) + "/" + std::to_string(message->count) : "?");
    }
    return lists;
  }
  bool TakeWake() { return requests_.supporterActed.exchange(false); }

  ScriptedScreen screen_{{{0, 0, 64, 64}, {64, 0, 128, 64}}};
  FakeTileTransport control_;
  FakeTileTransport tiles_;
  SessionRequests requests_{0};
  const ControlDispatchParts parts_ = {
      .displays = screen_, .control = control_, .tiles = tiles_, .requests = requests_};
  CapturedLog log_;
};

TEST_F(ControlDispatchTest, DropsWhatIsNoMessage) {
  for (const char* payload : {"", "[]", "{\"t\":16}x", "{"}) Handle(payload);
  EXPECT_EQ(log_.Count("WRN [session] bad control message"), 4u);
  EXPECT_FALSE(requests_.repaint);
}

TEST_F(ControlDispatchTest, PassesOnlyWhatConcernsThePictureWhenViewOnly) {
  const struct {
    int32_t type;
    bool allowed;
  } rows[] = {{-2147483647 - 1, false},
              {-28, false},
              {-16, false},
              {-1, false},
              {0, false},
              {3, false},
              {4, true},
              {5, true},
              {6, false},
              {9, false},
              {10, true},
              {11, false},
              {13, false},
              {15, false},
              {16, true},
              {17, false},
              {36, false},
              {2147483647, false}};
  for (const auto& row : rows) {
    const std::string line = "WRN [session] viewer command rejected: " + std::to_string(row.type);
    Handle(row.type, false);
    EXPECT_EQ(log_.Count(line), 0u) << row.type;
    TakeWake();
    Handle(row.type, true);
    EXPECT_EQ(log_.Count(line), row.allowed ? 0u : 1u) << row.type;
    EXPECT_TRUE(row.allowed || !TakeWake()) << row.type;
  }
}

TEST_F(ControlDispatchTest, SelectsOnlyMonitorsThatExist) {
  const struct {
    const char* json;
    int32_t monitor;
    Texts answer;
    bool wakes;
  } rows[] = {
      {"{\"t\":5,\"index\":1}", 1, {"1/2"}, true},    {"{\"t\":5,\"index\":2}", 1, {}, false},
      {"{\"t\":5,\"index\":-2}", 1, {}, false},       {"{\"t\":5,\"index\":1}", 1, {"1/2"}, false},
      {"{\"t\":5,\"index\":-1}", -1, {"-1/2"}, true}, {"{\"t\":5}", 0, {"0/2"}, true},
  };
  for (const auto& row : rows) {
    Handle(row.json);
    EXPECT_EQ(requests_.monitor, row.monitor) << row.json;
    EXPECT_EQ(SentLists(), row.answer) << row.json;
    EXPECT_EQ(TakeWake(), row.wakes) << row.json;
  }
  EXPECT_EQ(log_.Lines(), Texts{});
}

TEST_F(ControlDispatchTest, NamesAllDisplaysForAMonitorThatIsNotThere) {
  requests_.monitor = 7;
  ControlDispatch(false, parts_).SendMonitorList();
  EXPECT_EQ(SentLists(), Texts{"-1/2"});
}

TEST_F(ControlDispatchTest, AsksForARepaintOnlyOfAnOpenStream) {
  tiles_.SetOpen(false);
  Handle(16);
  EXPECT_FALSE(requests_.repaint);
  EXPECT_FALSE(TakeWake());
  EXPECT_EQ(log_.Lines(), Texts{});
  tiles_.SetOpen(true);
  Handle(16);
  EXPECT_TRUE(requests_.repaint);
  EXPECT_TRUE(TakeWake());
  EXPECT_EQ(log_.Lines(), Texts{"INF [tiles] repaint requested by the supporter"});
}

TEST_F(ControlDispatchTest, PassesReportsOnInOrder) {
  Handle(
      R"({"t":4,"kbps":1500,"lossPermille":7,"rttMs":30,"preset":"datasaver","gray":true,"vw":800,"vh":600})");
  Handle(4, true);
  const auto reports = requests_.qualityReports.TakeAll();
  ASSERT_EQ(reports.size(), 2u);
  const QualityReport& first = reports[0];
  EXPECT_EQ((std::vector<int32_t>{first.receiveKbps, first.lossPermille, first.rttMs, first.viewportWidth,
                                  first.viewportHeight}),
            (std::vector<int32_t>{1'500, 7, 30, 800, 600}));
  EXPECT_EQ(first.preset, QualityPreset::kDataSaver);
  EXPECT_TRUE(first.grayscale);
  EXPECT_EQ(reports[1].receiveKbps, 0);
}

TEST_F(ControlDispatchTest, ShowsAndHidesTheCursor) {
  Handle("{\"t\":10,\"show\":true}");
  EXPECT_TRUE(requests_.showCursor);
  EXPECT_TRUE(TakeWake());
  Handle("{\"t\":10}");
  EXPECT_FALSE(requests_.showCursor);
}

TEST_F(ControlDispatchTest, WakesTheLoopForWhatTheScreenWillAnswer) {
  for (const int32_t type : {0, 1, 2, 11, 13}) {
    Handle(type);
    EXPECT_TRUE(requests_.signal.WaitFor(std::chrono::seconds(10))) << type;
    EXPECT_TRUE(TakeWake()) << type;
  }
  for (const int32_t type : {3, 4, 6, 9, 17, -1}) {
    Handle(type);
    EXPECT_FALSE(TakeWake()) << type;
  }
  EXPECT_EQ(log_.Lines(), Texts{});
  EXPECT_EQ(SentLists(), Texts{});
}

}  // namespace
}  // namespace cvn::agent
