#include "view/view_end.h"

#include <gtest/gtest.h>

namespace cvn::view {
namespace {

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kStart = 1'000'000 * kMs;

TEST(ViewEnd, IsDecidedByWhatComesFirst) {
  const ViewLimits noLimit;
  const ViewLimits idle{.durationNs = {}, .untilIdle = true};
  const ViewLimits second{.durationNs = 1000 * kMs, .untilIdle = false};
  const ViewLimits both{.durationNs = 1000 * kMs, .untilIdle = true};
  const ViewSituation ready{.pictureReady = true,
                            .startNs = kStart,
                            .lastChangeNs = kStart + 100 * kMs,
                            .lastArrivalNs = kStart + 100 * kMs};
  const auto with = [](ViewSituation situation, bool ViewSituation::*flag, bool value = true) {
    situation.*flag = value;
    return situation;
  };
  const ViewSituation notReady = with(ready, &ViewSituation::pictureReady, false);
  const ViewSituation nothingYet{.startNs = kStart};
  const struct {
    const char* what;
    ViewLimits limits;
    ViewSituation situation;
    int64_t afterMs;
    ViewEnd end;
  } rows[] = {
      {"no limit goes on however long it rests", noLimit, ready, 1'000'000, ViewEnd::kGoesOn},
      {"failure beats everything", idle,
       with(with(ready, &ViewSituation::failed), &ViewSituation::disconnected), 9999, ViewEnd::kFailed},
      {"time not yet up", second, nothingYet, 999, ViewEnd::kGoesOn},
      {"time up", second, nothingYet, 1000, ViewEnd::kTimeIsUp},
      {"rest too short", idle, ready, 599, ViewEnd::kGoesOn},
      {"rest long enough", idle, ready, 600, ViewEnd::kIdle},
      {"rest before the time is up", both, ready, 600, ViewEnd::kIdle},
      {"no rest within a frame", idle, with(ready, &ViewSituation::frameInTheMaking), 600, ViewEnd::kGoesOn},
      {"silence after something", idle, notReady, 30'100, ViewEnd::kSilence},
      {"silence from the start", idle, nothingYet, 30'000, ViewEnd::kSilence},
      {"silence within a frame", idle, with(ready, &ViewSituation::frameInTheMaking), 30'100,
       ViewEnd::kSilence},
      {"silence bothers nobody without --until-idle", noLimit, nothingYet, 100'000, ViewEnd::kGoesOn},
  };
  for (const auto& row : rows)
    EXPECT_EQ(DecideEnd(row.limits, row.situation, kStart + row.afterMs * kMs), row.end) << row.what;
}

}  // namespace
}  // namespace cvn::view
