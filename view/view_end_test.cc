#include "view/view_end.h"

#include <gtest/gtest.h>

namespace cvn::view {
namespace {

TEST(ViewEnd, IsDecidedByWhatComesFirst) {
  constexpr int64_t kMs = 1'000'000;
  constexpr int64_t kStart = 1'000'000 * kMs;
  constexpr int64_t kChange = kStart + 100 * kMs;
  const ViewLimits none;
  const ViewLimits idle{.durationNs = {}, .untilIdle = true};
  const ViewLimits both{.durationNs = 1000 * kMs, .untilIdle = true};
  const ViewSituation nothing{.startNs = kStart};
  const ViewSituation partial{.startNs = kStart, .lastChangeNs = kChange, .lastArrivalNs = kChange};
  ViewSituation ready = partial;
  ready.pictureReady = true;
  ViewSituation within = ready;
  within.frameInTheMaking = true;
  ViewSituation failed = ready;
  failed.failed = failed.interrupted = failed.disconnected = true;
  const struct {
    ViewLimits limits;
    ViewSituation situation;
    int64_t afterMs;
    ViewEnd end;
  } rows[] = {
      {none, ready, 1'000'000, ViewEnd::kGoesOn}, {none, nothing, 100'000, ViewEnd::kGoesOn},
      {idle, failed, 9999, ViewEnd::kFailed},     {both, partial, 999, ViewEnd::kGoesOn},
      {both, partial, 1000, ViewEnd::kTimeIsUp},  {both, ready, 599, ViewEnd::kGoesOn},
      {both, ready, 600, ViewEnd::kIdle},         {idle, within, 600, ViewEnd::kGoesOn},
      {idle, within, 30'100, ViewEnd::kSilence},  {idle, partial, 30'099, ViewEnd::kGoesOn},
      {idle, partial, 30'100, ViewEnd::kSilence}, {idle, nothing, 30'000, ViewEnd::kSilence},
  };
  for (const auto& row : rows)
    EXPECT_EQ(DecideEnd(row.limits, row.situation, kStart + row.afterMs * kMs), row.end)
        << "row " << &row - rows;
}

}  // namespace
}  // namespace cvn::view
