#include "bench/screen_content.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <string>

#include "bench/glyphs.h"

namespace cvn::bench {
namespace {

struct Color {
  int red;
  int green;
  int blue;
};

struct Box {
  int x;
  int y;
  int width;
  int height;
};

class Painter {
 public:
  Painter(int width, int height, uint32_t seed)
      : screen_{width, height,
                std::vector<uint8_t>(static_cast<size_t>(width) * static_cast<size_t>(height) * 4)},
        random_(seed) {}

  int Width() const { return screen_.width; }
  int Height() const { return screen_.height; }
  Screen Take() { return std::move(screen_); }
  /// 0 to `below` - 1. The standard distributions differ between libraries.
  int Random(int below) { return static_cast<int>(random_() % static_cast<uint32_t>(below)); }

  void Set(int x, int y, Color color) {
    if (x < 0 || y < 0 || x >= Width() || y >= Height()) return;
    uint8_t* pixel = PixelAt(x, y);
    pixel[0] = static_cast<uint8_t>(std::clamp(color.blue, 0, 255));
    pixel[1] = static_cast<uint8_t>(std::clamp(color.green, 0, 255));
    pixel[2] = static_cast<uint8_t>(std::clamp(color.red, 0, 255));
    pixel[3] = 255;
  }

  void Fill(Box box, Color color) { Shade(box, color, color); }

  /// From `top` to `bottom`.
  void Shade(Box box, Color top, Color bottom) {
    for (int y = 0; y < box.height; ++y) {
      const auto mix = [&](int from, int to) { return from + (to - from) * y / std::max(box.height - 1, 1); };
      const Color color{mix(top.red, bottom.red), mix(top.green, bottom.green), mix(top.blue, bottom.blue)};
      for (int x = 0; x < box.width; ++x) Set(box.x + x, box.y + y, color);
    }
  }

  void Frame(Box box, Color color) {
    Fill({box.x, box.y, box.width, 1}, color);
    Fill({box.x, box.y + box.height - 1, box.width, 1}, color);
    Fill({box.x, box.y, 1, box.height}, color);
    Fill({box.x + box.width - 1, box.y, 1, box.height}, color);
  }

  /// Returns where the text ends.
  double Write(double x, int y, std::string_view text, Color ink, const TextLook& look) {
    for (const char letter : text) {
      const double snapped = look.proportional ? std::floor(x * 4) / 4 : std::floor(x);
      const int whole = static_cast<int>(std::floor(snapped));
      const Glyph& glyph = GlyphOf(letter, look, snapped - whole);
      Blend(whole, y, glyph, ink);
      x += look.proportional ? glyph.advance : std::round(glyph.advance);
    }
    return x;
  }

 private:
  uint8_t* PixelAt(int x, int y) {
    return &screen_
                .pixels[(static_cast<size_t>(y) * static_cast<size_t>(Width()) + static_cast<size_t>(x)) * 4];
  }

  const Glyph& GlyphOf(char letter, const TextLook& look, double shift) {
    const auto key = std::tuple(letter, look.sizePixels, look.strokePixels, look.subPixel, shift);
    const auto found = glyphs_.find(key);
    return found != glyphs_.end() ? found->second : glyphs_[key] = DrawGlyph(letter, look, shift);
  }

  void Blend(int left, int top, const Glyph& glyph, Color ink) {
    for (int y = 0; y < glyph.height; ++y) {
      for (int x = 0; x < glyph.width; ++x) {
        if (left + x < 0 || left + x >= Width() || top + y < 0 || top + y >= Height()) continue;
        const auto& share = glyph.coverage[static_cast<size_t>(y * glyph.width + x)];
        const uint8_t* under = PixelAt(left + x, top + y);
        const auto mix = [&](int ground, int over, int cover) {
          return ground + (over - ground) * cover / 255;
        };
        Set(left + x, top + y,
            {mix(under[2], ink.red, share[0]), mix(under[1], ink.green, share[1]),
             mix(under[0], ink.blue, share[2])});
      }
    }
  }

  Screen screen_;
  std::mt19937 random_;
  std::map<std::tuple<char, double, double, bool, double>, Glyph> glyphs_;
};

std::string Word(Painter& painter) {
  static constexpr const char* kWords[] = {
      "the",    "of",     "window", "and",   "to",      "session", "in",     "report",
      "screen", "that",   "for",    "agent", "Total",   "with",    "change", "on",
      "are",    "system", "value",  "by",    "machine", "this",    "from",   "Each",
      "number", "or",     "update", "which", "support", "time",    "user",   "is"};
  return kWords[painter.Random(static_cast<int>(std::size(kWords)))];
}

std::string Number(Painter& painter, int digits) {
  std::string number;
  for (int i = 0; i < digits; ++i) number += static_cast<char>('0' + painter.Random(10));
  return number;
}

void PaintTerminal(Painter& painter) {
  constexpr Color kInks[] = {{204, 204, 204}, {204, 204, 204}, {78, 200, 80},
                             {90, 140, 230},  {220, 200, 90},  {220, 80, 80}};
  const TextLook look{16, 1.3, false, false};
  painter.Fill({0, 0, painter.Width(), painter.Height()}, {12, 12, 16});
  for (int y = 4; y < painter.Height(); y += 18) {
    double x = 4;
    const double end = painter.Width() * (painter.Random(10) < 7 ? 0.55 : 0.9);
    if (painter.Random(9) == 0) continue;
    while (x < end) {
      const Color ink = kInks[painter.Random(6)];
      x = painter.Write(x, y, painter.Random(4) == 0 ? Number(painter, 5) + " " : Word(painter) + " ", ink,
                        look);
    }
  }
}

void PaintDocument(Painter& painter) {
  const TextLook body{15, 1.2, true, true};
  const TextLook heading{26, 2.6, true, true};
  const int left = painter.Width() / 6;
  const int right = painter.Width() - left;
  painter.Fill({0, 0, painter.Width(), painter.Height()}, {225, 225, 228});
  painter.Shade({0, 0, painter.Width(), 60}, {250, 250, 252}, {214, 216, 222});
  painter.Fill({left - 60, 80, right - left + 120, painter.Height()}, {255, 255, 255});
  int y = 110;
  while (y < painter.Height()) {
    if (painter.Random(12) == 0) {
      painter.Write(left, y, Word(painter) + " " + Word(painter) + " " + Word(painter), {30, 60, 120},
                    heading);
      y += 40;
    }
    double x = left;
    const double end = painter.Random(6) == 0 ? left + (right - left) * 0.4 : right - 60;
    while (x < end)
      x = painter.Write(x, y, Word(painter) + (painter.Random(9) == 0 ? ", " : " "), {20, 20, 20}, body);
    y += painter.Random(6) == 0 ? 34 : 22;
  }
}

void PaintCode(Painter& painter) {
  constexpr Color kInks[] = {
      {212, 212, 212}, {86, 156, 214}, {206, 145, 120}, {78, 201, 176}, {156, 220, 254}};
  constexpr const char* kSigns[] = {"(", ") {", ";", " = ", ", ", ") + ", "->", "[0]", " < "};
  const TextLook look{15, 1.25, true, false};
  painter.Fill({0, 0, painter.Width(), painter.Height()}, {30, 30, 30});
  painter.Fill({0, 0, 220, painter.Height()}, {37, 37, 38});
  int indent = 0;
  for (int y = 6, line = 1; y < painter.Height(); y += 19, ++line) {
    painter.Write(14, y, Word(painter) + "." + Word(painter), {200, 200, 200}, look);
    painter.Write(232, y, std::to_string(100 + line), {110, 118, 129}, look);
    indent = std::clamp(indent + painter.Random(3) - 1, 0, 5);
    if (painter.Random(6) == 0) continue;
    double x = 280 + indent * 36;
    for (int i = 2 + painter.Random(7); i > 0; --i) {
      x = painter.Write(x, y, Word(painter), kInks[painter.Random(5)], look);
      x = painter.Write(x, y, kSigns[painter.Random(9)], kInks[0], look);
    }
  }
}

void PaintSpreadsheet(Painter& painter) {
  constexpr int kCellWidth = 86;
  constexpr int kCellHeight = 21;
  const TextLook look{13, 1.15, false, true};
  painter.Fill({0, 0, painter.Width(), painter.Height()}, {255, 255, 255});
  for (int y = 0; y < painter.Height(); y += kCellHeight) {
    for (int x = 0; x < painter.Width(); x += kCellWidth) {
      const bool header = y == 0 || x == 0;
      if (header) painter.Shade({x, y, kCellWidth, kCellHeight}, {244, 245, 247}, {226, 229, 234});
      painter.Frame({x, y, kCellWidth + 1, kCellHeight + 1}, {212, 212, 216});
      if (!header && painter.Random(5) == 0) continue;
      const std::string text =
          header ? Word(painter) : Number(painter, 2 + painter.Random(4)) + "." + Number(painter, 2);
      const bool negative = painter.Random(8) == 0;
      painter.Write(x + kCellWidth - 7.0 - 7.0 * static_cast<double>(text.size()), y + 4, text,
                    negative ? Color{192, 0, 0} : Color{33, 33, 33}, look);
    }
  }
}

/// Waves of many sizes, edges where they cross zero, and noise in the last bits.
void PaintPhotograph(Painter& painter) {
  struct Wave {
    double x, y, phase, weight;
  };
  std::vector<Wave> waves;
  for (int i = 0; i < 14; ++i) {
    const double size = 0.004 * std::pow(1.45, i);
    const double angle = painter.Random(628) / 100.0;
    waves.push_back(
        {size * std::cos(angle), size * std::sin(angle), painter.Random(628) / 100.0, 40.0 / (1 + i * 0.7)});
  }
  for (int y = 0; y < painter.Height(); ++y) {
    for (int x = 0; x < painter.Width(); ++x) {
      double light = 0;
      for (const Wave& wave : waves) light += wave.weight * std::sin(x * wave.x + y * wave.y + wave.phase);
      const double hue = std::sin(x * 0.003 + 1.7) * 30 + std::cos(y * 0.005) * 25;
      const int edge = std::fmod(std::abs(light), 40.0) < 20 ? 12 : 0;
      const auto noisy = [&](double value) { return static_cast<int>(value) + edge + painter.Random(5) - 2; };
      painter.Set(x, y, {noisy(120 + light + hue), noisy(115 + light * 0.9), noisy(110 + light * 0.8 - hue)});
    }
  }
}

void PaintFlat(Painter& painter) {
  painter.Shade({0, 0, painter.Width(), painter.Height()}, {32, 70, 120}, {10, 24, 50});
  for (int i = 0; i < 7; ++i) {
    const Box window{painter.Random(painter.Width()) - 200, painter.Random(painter.Height()) - 100,
                     300 + painter.Random(600), 200 + painter.Random(400)};
    const int gray = 200 + painter.Random(56);
    painter.Fill(window, {gray, gray, gray + 2});
    painter.Shade({window.x, window.y, window.width, 28}, {90, 120, 170}, {60, 84, 130});
    painter.Frame(window, {40, 40, 48});
  }
}

}  // namespace

std::string_view NameOf(ScreenStyle style) {
  constexpr std::string_view kNames[] = {"terminal", "document", "code", "spreadsheet", "photograph", "flat"};
  return kNames[static_cast<size_t>(style)];
}

Screen MakeScreen(ScreenStyle style, int width, int height, uint32_t seed) {
  constexpr void (*kPaint[])(Painter&) = {PaintTerminal,    PaintDocument,   PaintCode,
                                          PaintSpreadsheet, PaintPhotograph, PaintFlat};
  Painter painter(width, height, seed);
  kPaint[static_cast<size_t>(style)](painter);
  return painter.Take();
}

std::vector<agent::PixelView> TilesOf(const Screen& screen, int tileSize) {
  std::vector<agent::PixelView> tiles;
  for (int y = 0; y + tileSize <= screen.height; y += tileSize)
    for (int x = 0; x + tileSize <= screen.width; x += tileSize)
      tiles.push_back(screen.Part(x, y, tileSize, tileSize));
  return tiles;
}

}  // namespace cvn::bench
