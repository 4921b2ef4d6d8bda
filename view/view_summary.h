#pragma once

#include <cstdint>
#include <string>

#include "view/picture_size.h"
#include "view/view_end.h"
#include "view/view_statistics.h"

namespace cvn::view {

/// What the summary tells of a session. Times are the clock's nanoseconds.
struct ViewSummary {
  ViewStatistics statistics;
  /// 0x0 when no picture arrived.
  PictureSize size;
  ViewEnd end = ViewEnd::kGoesOn;
  int64_t connectNs = 0;
  int64_t endNs = 0;
  PictureTimes times;
  /// Of the picture at the end, those that are missing included.
  int64_t inexactPixels = 0;
};

/// A few lines for a person, each with its line end.
std::string SummaryText(const ViewSummary& summary);

}  // namespace cvn::view
