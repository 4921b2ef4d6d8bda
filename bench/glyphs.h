#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace cvn::bench {

/// How a text looks: pixel height of a line's letters, stroke width in pixels, and whether the three colour
/// stripes of a pixel are covered each by its own share.
struct TextLook {
  double sizePixels = 14;
  double strokePixels = 1.3;
  bool subPixel = false;
  /// Otherwise every letter takes the same width.
  bool proportional = false;
};

/// The picture of one letter: for every pixel how much of its red, green and blue stripe is ink, 0..255.
struct Glyph {
  int width = 0;
  int height = 0;
  /// To the next letter, in pixels.
  double advance = 0;
  std::vector<std::array<uint8_t, 3>> coverage;
};

/// Draws `letter` (ASCII; unknown ones are boxes) from its strokes, smoothed at the edges, shifted right by
/// `shiftPixels`, 0 to 1.
Glyph DrawGlyph(char letter, const TextLook& look, double shiftPixels);

}  // namespace cvn::bench
