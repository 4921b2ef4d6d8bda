#include "view/view_summary.h"

#include <algorithm>

#include "view/text.h"

namespace cvn::view {
namespace {

double Milliseconds(int64_t nanoseconds) {
  return static_cast<double>(nanoseconds) / 1e6;
}

std::string PictureLine(const ViewSummary& summary) {
  if (summary.size.Pixels() == 0) return "picture   none\n";
  const std::string size = FormatText("picture   %dx%d, ", summary.size.width, summary.size.height);
  if (summary.firstFullPictureNs == 0) return size + "never full\n";
  return size + FormatText("first full %.1f ms after connecting\n",
                           Milliseconds(summary.firstFullPictureNs - summary.connectNs));
}

}  // namespace

std::string SummaryText(const ViewSummary& summary) {
  const ViewStatistics& statistics = summary.statistics;
  const auto number = [](int64_t value) { return static_cast<long long>(value); };
  const double seconds = Milliseconds(std::max<int64_t>(summary.endNs - summary.connectNs, 1)) / 1000;
  std::string text = PictureLine(summary);
  text += FormatText("frames    %lld (keyframes %lld, heartbeats %lld)\n", number(statistics.frames),
                     number(statistics.keyframes), number(statistics.heartbeats));
  text += FormatText("tiles     %lld (palette %lld, lossless %lld)\n",
                     number(statistics.paletteTiles + statistics.losslessTiles),
                     number(statistics.paletteTiles), number(statistics.losslessTiles));
  text += FormatText("bytes     %lld in %lld messages (payload %lld), %.1f kB/s\n",
                     number(statistics.messageBytes), number(statistics.messages),
                     number(statistics.payloadBytes),
                     static_cast<double>(statistics.messageBytes) / 1000 / seconds);
  text += FormatText("ended     after %.2f s: %s\n", seconds, EndText(summary.end));
  return text;
}

}  // namespace cvn::view
