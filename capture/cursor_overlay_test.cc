#include "capture/cursor_overlay.h"

#include <gtest/gtest.h>

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
  const struct {
    const char* what;
    int32_t x, y;
    PixelRect covered;
    uint32_t firstPixel;
  } rows[] = {
      {"inside", 5, 4, {3, 3, 6, 5}, 0xff100000},
      {"at the top left", 0, 0, {0, 0, 1, 1}, 0xff600000},
      {"at the bottom right", 10, 8, {8, 7, 10, 8}, 0xff100000},
      {"left of the picture", -1, 4, {}, 0},
      {"far below it", 5, 2000, {}, 0},
  };
  for (const auto& row : rows) {
    KeptFrame frame = Picture();
    const std::vector<uint32_t> clean = Pixels(frame);
    CursorOverlay overlay;
    overlay.SetImage(kArrow);
    overlay.Draw(frame, row.x, row.y);
    EXPECT_EQ(overlay.Covered(), row.covered) << row.what;

    std::vector<uint32_t> drawn = Pixels(frame);
    if (!row.covered.Empty()) {
      EXPECT_EQ(frame.Row(row.covered.top)[static_cast<size_t>(row.covered.left)], row.firstPixel)
          << row.what;
    }
    for (int32_t y = row.covered.top; y < row.covered.bottom; ++y)
      for (int32_t x = row.covered.left; x < row.covered.right; ++x) {
        const auto at = static_cast<size_t>(y) * 10 + static_cast<size_t>(x);
        EXPECT_EQ(drawn[at] & 0xffff, 0u) << row.what;
        drawn[at] = clean[at];
      }
    EXPECT_EQ(drawn, clean) << row.what << ": drew outside what it covers";

    overlay.Lift(frame);
    EXPECT_EQ(Pixels(frame), clean) << row.what;
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
      {0xffffffff, 0x80808080, 0xffffffff},  // half white on white
      {0xffffffff, 0x10ffffff, 0xffffffff},  // more colour than alpha saturates
  };
  for (const auto& row : rows) {
    KeptFrame frame;
    frame.Resize(2, 2);
    frame.Row(0)[0] = row.under;
    CursorOverlay overlay;
    overlay.SetImage({.width = 1, .height = 1, .hotX = 0, .hotY = 0, .pixels = {row.over}});
    overlay.Draw(frame, 0, 0);
    EXPECT_EQ(frame.Row(0)[0], row.expected) << std::hex << frame.Row(0)[0] << " for " << row.expected;
  }
}

}  // namespace
}  // namespace cvn::agent
