#include "view/view_summary.h"

#include <algorithm>

#include "view/text.h"

namespace cvn::view {
namespace {

double Milliseconds(int64_t nanoseconds) {
  return static_cast<double>(nanoseconds) / 1e6;
}

long long Number(int64_t value) {
  return static_cast<long long>(value);
}

std::string PictureLine(const ViewSummary& summary) {
  if (summary.size.Pixels() == 0) return "picture   none\n";
  const std::string size = FormatText("picture   %dx%d, ", summary.size.width, summary.size.height);
  if (summary.times.firstFullNs == 0) return size + "never full\n";
  return size + FormatText("first full %.1f ms after connecting\n",
                           Milliseconds(summary.times.firstFullNs - summary.connectNs));
}

std::string ExactnessLine(const ViewSummary& summary) {
  if (summary.size.Pixels() == 0) return "";
  const PictureTimes& times = summary.times;
  const std::string rest = FormatText("%lld of %lld pixels were not at the end\n",
                                      Number(summary.inexactPixels), Number(summary.size.Pixels()));
  if (times.firstExactNs == 0) return "exact     never: " + rest;
  const std::string first = FormatText("exact     first %.1f ms after connecting",
                                       Milliseconds(times.firstExactNs - summary.connectNs));
  if (summary.inexactPixels > 0) return first + ", but " + rest;
  if (times.lastLossyTileNs == 0) return first + "; no tile was lossy\n";
  return first + FormatText("; at the end %.1f ms after the last lossy tile\n",
                            Milliseconds(times.lastExactNs - times.lastLossyTileNs));
}

/// "5 (palette 3, lossless 1, JPEG 1, WebP 0)" of one of the figures that are kept by coding.
std::string Mix(const ViewStatistics& statistics, int64_t CodingStatistics::*figure) {
  int64_t sum = 0;
  for (const CodingStatistics& coding : statistics.codings) sum += coding.*figure;
  const auto of = [&](agent::TileCoding coding) { return Number(statistics.Of(coding).*figure); };
  return FormatText("%lld (palette %lld, lossless %lld, JPEG %lld, WebP %lld)", Number(sum),
                    of(agent::TileCoding::kPalette), of(agent::TileCoding::kLossless),
                    of(agent::TileCoding::kJpeg), of(agent::TileCoding::kWebp));
}

}  // namespace

std::string SummaryText(const ViewSummary& summary) {
  const ViewStatistics& statistics = summary.statistics;
  const double seconds = Milliseconds(std::max<int64_t>(summary.endNs - summary.connectNs, 1)) / 1000;
  std::string text = PictureLine(summary) + ExactnessLine(summary);
  text += FormatText("frames    %lld (keyframes %lld, heartbeats %lld)\n", Number(statistics.frames),
                     Number(statistics.keyframes), Number(statistics.heartbeats));
  text += "tiles     " + Mix(statistics, &CodingStatistics::tiles) + "\n";
  text += "payload   " + Mix(statistics, &CodingStatistics::payloadBytes) + " bytes\n";
  text +=
      FormatText("bytes     %lld in %lld messages, %.1f kB/s\n", Number(statistics.messageBytes),
                 Number(statistics.messages), static_cast<double>(statistics.messageBytes) / 1000 / seconds);
  text += FormatText("ended     after %.2f s: %s\n", seconds, EndText(summary.end));
  return text;
}

}  // namespace cvn::view
