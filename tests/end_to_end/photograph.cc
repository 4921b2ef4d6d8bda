#include "tests/end_to_end/photograph.h"

#include <algorithm>
#include <cmath>

namespace cvn::end_to_end {
namespace {

/// 0 to 255, for a point of a grid.
double Chance(uint32_t x, uint32_t y, uint32_t seed) {
  uint32_t mixed = x * 0x9E3779B1U ^ y * 0x85EBCA77U ^ seed * 0xC2B2AE3DU;
  mixed = (mixed ^ mixed >> 15) * 0x2C1B3C6DU;
  mixed = (mixed ^ mixed >> 12) * 0x297A2D39U;
  return (mixed ^ mixed >> 15) & 0xff;
}

/// Chance at points `size` pixels apart, smooth between them.
double Smooth(int x, int y, int size, uint32_t seed) {
  const auto column = static_cast<uint32_t>(x / size);
  const auto row = static_cast<uint32_t>(y / size);
  const auto ease = [](double share) { return share * share * (3 - 2 * share); };
  const double right = ease(static_cast<double>(x % size) / size);
  const double below = ease(static_cast<double>(y % size) / size);
  const double top = std::lerp(Chance(column, row, seed), Chance(column + 1, row, seed), right);
  const double bottom = std::lerp(Chance(column, row + 1, seed), Chance(column + 1, row + 1, seed), right);
  return std::lerp(top, bottom, below);
}

uint32_t ColorAt(int x, int y, uint32_t seed) {
  const double light =
      0.6 * Smooth(x, y, 90, seed) + 0.3 * Smooth(x, y, 23, seed + 1) + 0.1 * Smooth(x, y, 7, seed + 2);
  const double warmth = 0.3 * (Smooth(x, y, 140, seed + 3) - 128);
  const auto channel = [&](double value, uint32_t which) {
    const double grain = Chance(static_cast<uint32_t>(x), static_cast<uint32_t>(y), seed + which) / 64 - 2;
    return static_cast<uint32_t>(std::clamp(value + grain, 0.0, 255.0));
  };
  return channel(light + warmth, 4) << 16 | channel(light, 5) << 8 | channel(light - warmth, 6);
}

}  // namespace

Picture Photograph(int width, int height, uint32_t seed, int left) {
  Picture picture{width, height, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) picture.pixels.push_back(ColorAt(left + x, y, seed));
  }
  return picture;
}

double PeakSignalToNoise(const Picture& one, const Picture& other, const Area& area) {
  double error = 0;
  for (int y = area.y; y < area.y + area.height; ++y) {
    for (int x = area.x; x < area.x + area.width; ++x) {
      for (const int shift : {0, 8, 16}) {
        const auto value = [&](const Picture& picture) {
          return static_cast<double>(picture.At(x, y) >> shift & 0xff);
        };
        error += std::pow(value(one) - value(other), 2);
      }
    }
  }
  return 10 * std::log10(255.0 * 255.0 * 3 * area.width * area.height / error);
}

}  // namespace cvn::end_to_end
