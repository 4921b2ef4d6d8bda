#include "bench/glyphs.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace cvn::bench {
namespace {

struct Point {
  double x;
  double y;
};

struct Segment {
  Point from;
  Point to;
};

struct Strokes {
  char letter;
  /// Polylines of points "xy" on a grid 5 wide and 10 high, y upwards, the baseline at 2; ';' lifts the pen.
  std::string_view path;
};

constexpr Strokes kFont[] = {
    {'a', "16 36 45 42;44 14 03 12 32 43"},
    {'b', "08 02 32 43 45 36 06"},
    {'c', "46 16 05 03 12 42"},
    {'d', "48 42 12 03 05 16 46"},
    {'e', "04 44 45 36 16 05 03 12 42"},
    {'f', "38 28 17 12;06 36"},
    {'g', "46 16 05 03 12 42;46 41 30 00"},
    {'h', "08 02;06 36 45 42"},
    {'i', "26 22;28 28"},
    {'j', "36 31 20 00;38 38"},
    {'k', "08 02;46 04 42"},
    {'l', "18 28 22 32"},
    {'m', "02 06 16 25 22;25 36 45 42"},
    {'n', "02 06 36 45 42"},
    {'o', "16 36 45 43 32 12 03 05 16"},
    {'p', "00 06 36 45 43 32 02"},
    {'q', "40 46 16 05 03 12 42"},
    {'r', "02 06;05 16 36"},
    {'s', "46 16 05 14 34 43 32 02"},
    {'t', "18 13 22 42;06 36"},
    {'u', "06 03 12 42;46 42"},
    {'v', "06 22 46"},
    {'w', "06 12 25 32 46"},
    {'x', "06 42;46 02"},
    {'y', "06 22;46 10"},
    {'z', "06 46 02 42"},
    {'A', "02 28 42;14 34"},
    {'B', "02 08 38 47 46 35 05;35 44 43 32 02"},
    {'C', "47 38 18 07 03 12 32 43"},
    {'D', "02 08 28 46 44 22 02"},
    {'E', "48 08 02 42;05 35"},
    {'F', "48 08 02;05 35"},
    {'G', "47 38 18 07 03 12 32 43 45 25"},
    {'H', "08 02;48 42;05 45"},
    {'I', "28 22"},
    {'J', "38 33 22 02"},
    {'K', "08 02;48 05 42"},
    {'L', "08 02 42"},
    {'M', "02 08 25 48 42"},
    {'N', "02 08 42 48"},
    {'O', "18 38 47 43 32 12 03 07 18"},
    {'P', "02 08 38 47 46 35 05"},
    {'R', "02 08 38 47 46 35 05;25 42"},
    {'S', "47 38 18 07 06 34 43 32 12 03"},
    {'T', "08 48;28 22"},
    {'U', "08 03 12 32 43 48"},
    {'V', "08 22 48"},
    {'W', "08 12 26 32 48"},
    {'X', "08 42;48 02"},
    {'Z', "08 48 02 42"},
    {'0', "18 38 47 43 32 12 03 07 18;13 37"},
    {'1', "06 28 22;02 42"},
    {'2', "07 18 38 47 46 02 42"},
    {'3', "08 48 25 35 44 43 32 02"},
    {'4', "38 04 44;38 32"},
    {'5', "48 08 05 35 44 43 32 02"},
    {'6', "38 18 06 03 12 32 43 44 35 05"},
    {'7', "08 48 12"},
    {'8', "18 38 47 46 35 15 06 07 18;15 04 03 12 32 43 44 35"},
    {'9', "45 15 06 07 18 38 47 44 22"},
    {' ', ""},
    {'.', "22 22"},
    {',', "22 11"},
    {'-', "14 34"},
    {'_', "01 41"},
    {'=', "03 43;05 45"},
    {'+', "04 44;26 22"},
    {'*', "05 45;17 33;37 13"},
    {'/', "01 48"},
    {'(', "38 26 23 31"},
    {')', "18 26 23 11"},
    {'{', "38 27 26 15 24 23 32"},
    {'}', "18 27 26 35 24 23 12"},
    {'[', "38 18 11 31"},
    {']', "18 38 31 11"},
    {'<', "46 04 42"},
    {'>', "06 44 02"},
    {':', "23 23;25 25"},
    {';', "22 11;25 25"},
    {'"', "18 16;38 36"},
    {'$', "46 16 05 14 34 43 32 02;27 21"},
    {'#', "12 17;32 37;04 44;06 46"},
};

std::vector<Segment> SegmentsOf(char letter) {
  const auto found = std::ranges::find(kFont, letter, &Strokes::letter);
  const std::string_view path = found == std::end(kFont) ? "02 08 48 42 02" : found->path;
  std::vector<Segment> segments;
  for (size_t i = 0; i + 4 < path.size(); i += 3) {
    if (path[i + 2] == ';') continue;
    const auto at = [&](size_t k) {
      return Point{static_cast<double>(path[k] - '0'), static_cast<double>(path[k + 1] - '0')};
    };
    segments.push_back({at(i), at(i + 3)});
  }
  return segments;
}

double Distance(Point p, const Segment& s) {
  const double dx = s.to.x - s.from.x;
  const double dy = s.to.y - s.from.y;
  const double square = dx * dx + dy * dy;
  const double along = square == 0 ? 0 : ((p.x - s.from.x) * dx + (p.y - s.from.y) * dy) / square;
  const double nearest = std::clamp(along, 0.0, 1.0);
  return std::hypot(p.x - s.from.x - nearest * dx, p.y - s.from.y - nearest * dy);
}

double InkAt(Point p, const std::vector<Segment>& segments, double strokePixels) {
  double distance = 1e9;
  for (const Segment& segment : segments) distance = std::min(distance, Distance(p, segment));
  return std::clamp(strokePixels / 2 - distance + 0.5, 0.0, 1.0);
}

double WidthInUnits(char letter, const TextLook& look) {
  if (!look.proportional) return 6;
  if (std::string_view("iIl.,:; j'").find(letter) != std::string_view::npos) return 3.4;
  return std::string_view("mwMW").find(letter) != std::string_view::npos ? 6.8 : 5.6;
}

}  // namespace

Glyph DrawGlyph(char letter, const TextLook& look, double shiftPixels) {
  const double scale = look.sizePixels / 10;
  std::vector<Segment> segments = SegmentsOf(letter);
  const double left = (WidthInUnits(letter, look) - 4) / 2;
  for (Segment& segment : segments)
    for (Point* point : {&segment.from, &segment.to})
      *point = {std::round((point->x + left) * scale * 2) / 2 + shiftPixels,
                std::round((9.5 - point->y) * scale * 2) / 2};
  Glyph glyph;
  glyph.advance = WidthInUnits(letter, look) * scale;
  glyph.width = static_cast<int>(std::ceil(glyph.advance + 2));
  glyph.height = static_cast<int>(std::ceil(look.sizePixels));
  for (int y = 0; y < glyph.height; ++y) {
    for (int x = 0; x < glyph.width; ++x) {
      std::array<uint8_t, 3> stripes{};
      for (size_t stripe = 0; stripe < 3; ++stripe) {
        const double offset = look.subPixel ? (static_cast<double>(stripe) * 2 + 1) / 6 : 0.5;
        stripes[stripe] = static_cast<uint8_t>(
            std::lround(255 * InkAt({x + offset, y + 0.5}, segments, look.strokePixels)));
      }
      glyph.coverage.push_back(stripes);
    }
  }
  return glyph;
}

}  // namespace cvn::bench
