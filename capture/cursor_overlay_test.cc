#include "capture/cursor_overlay.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace cvn::agent {
namespace {

/// A 10x8 picture whose pixels are all different.
KeptFrame Picture() {
  KeptFrame frame;
  frame.Resize(10, 8);
  for (int32_t y = 0; y < 8; ++y)
    for (int32_t x = 0; x < 10; ++x)
      frame.Row(y)[static_cast<size_t>(x)] = kOpaque | static_cast<uint32_t>(y * 10 + x);
  return frame;
}

std::vector<uint32_t> Pixels(KeptFrame& frame) {
  std::vector<uint32_t> pixels;
  for (int32_t y = 0; y < frame.Height(); ++y)
    pixels.insert(pixels.end(), frame.Row(y).begin(), frame.Row(y).end());
  return pixels;
}

/// 3x2, pointing with its pixel (2, 1); every pixel opaque and different.
const CursorImage kArrow = {
    .width = 3,
    .height = 2,
    .hotX = 2,
    .hotY = 1,
    .pixels = {0xff100000, 0xff200000, 0xff300000, 0xff400000, 0xff500000, 0xff600000}};

TEST(CursorOverlay, DrawsAtTheHotspotIsCutAtEveryEdgeAndLiftsWithoutATrace) {
  for (int32_t y = -3; y < 12; ++y)
    for (int32_t x = -3; x < 14; ++x) {
      KeptFrame frame = Picture();
      const std::vector<uint32_t> clean = Pixels(frame);
      std::vector<uint32_t> expected = clean;
      PixelRect covered = {10, 8, 0, 0};
      for (int32_t i = 0; i < 6; ++i) {
        const int32_t atX = x - 2 + i % 3, atY = y - 1 + i / 3;
        if (atX < 0 || atX >= 10 || atY < 0 || atY >= 8) continue;
        expected[static_cast<size_t>(atY * 10 + atX)] = kArrow.pixels[static_cast<size_t>(i)];
        covered = {std::min(covered.left, atX), std::min(covered.top, atY), atX + 1, atY + 1};
      }
      CursorOverlay overlay;
      overlay.SetImage(kArrow);
      overlay.Draw(frame, x, y);
      EXPECT_EQ(Pixels(frame), expected) << x << "," << y;
      EXPECT_EQ(overlay.Covered(), covered.Empty() ? PixelRect{} : covered) << x << "," << y;
      overlay.Lift(frame);
      EXPECT_EQ(Pixels(frame), clean) << x << "," << y;
      EXPECT_TRUE(overlay.Covered().Empty());
    }
}

TEST(CursorOverlay, BlendsPremultipliedColours) {
  const struct {
    uint32_t under, over, expected;
  } rows[] = {
      {0xff204060, 0x00000000, 0xff204060},  // transparent
      {0xff204060, 0xff112233, 0xff112233},  // opaque
      {0xffc86400, 0x80400000, 0xffa43200},  // half: 64 + 200 * 127 / 255, 100 * 127 / 255
      {0xffffffff, 0x10ffffff, 0xffffffff},  // more colour than alpha saturates
  };
  for (const auto& row : rows) {
    KeptFrame frame;
    frame.Resize(2, 2);
    frame.Row(0)[0] = row.under;
    CursorOverlay overlay;
    overlay.SetImage({.width = 1, .height = 1, .hotX = 0, .hotY = 0, .pixels = {row.over}});
    overlay.Draw(frame, 0, 0);
    EXPECT_EQ(frame.Row(0)[0], row.expected);
  }
}

}  // namespace
}  // namespace cvn::agent
