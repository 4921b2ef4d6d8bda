#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "tiles/pixel_view.h"

namespace cvn::bench {

/// Kinds of screen that people look at, each with the colours and repetitions of its own.
enum class ScreenStyle {
  /// Coloured text of fixed width on black, edges smoothed in gray.
  kTerminal,
  /// Proportional text on a white page at quarter-pixel positions with sub-pixel smoothing, under a tool bar.
  kDocument,
  /// Program text in syntax colours on a dark ground, sub-pixel smoothing, line numbers.
  kCode,
  /// A grid of numbers with shaded headers.
  kSpreadsheet,
  /// Soft shapes, fine detail and sensor noise.
  kPhotograph,
  /// Windows without text: flat areas, frames and gradients.
  kFlat,
};

inline constexpr ScreenStyle kAllScreenStyles[] = {ScreenStyle::kTerminal,   ScreenStyle::kDocument,
                                                   ScreenStyle::kCode,       ScreenStyle::kSpreadsheet,
                                                   ScreenStyle::kPhotograph, ScreenStyle::kFlat};

std::string_view NameOf(ScreenStyle style);

/// A picture as a capturer delivers it: B, G, R, 255 rows without gaps.
struct Screen {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> pixels;

  agent::PixelView All() const { return Part(0, 0, width, height); }
  /// Must lie inside.
  agent::PixelView Part(int x, int y, int partWidth, int partHeight) const {
    const size_t stride = static_cast<size_t>(width) * 4;
    return {pixels.data() + static_cast<size_t>(y) * stride + static_cast<size_t>(x) * 4, partWidth,
            partHeight, stride};
  }
};

/// The same screen for the same arguments, on every machine.
Screen MakeScreen(ScreenStyle style, int width, int height, uint32_t seed = 1);

/// All whole tiles of the screen, row by row.
std::vector<agent::PixelView> TilesOf(const Screen& screen, int tileSize);

}  // namespace cvn::bench
