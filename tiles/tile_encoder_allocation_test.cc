// A screen at rest is looked at many times a second for hours: it must not touch the heap.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "testing/tile_encoder_fixture.h"

namespace {

thread_local int allocations = 0;

}  // namespace

void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace cvn::agent {
namespace {

TEST_F(TileEncoderTest, ScreenAtRestAllocatesNothing) {
  TileScreen screen = TileScreen::OfTiles(40, 3);
  auto encoder = Started(screen);
  const PixelRect everything{0, 0, screen.Grid().Width(), screen.Grid().Height()};
  const std::span<const PixelRect> hint(&everything, 1);
  const int before = allocations;
  for (int i = 0; i < 3; ++i) {
    const bool quiet = encoder->Encode(screen.Bytes()).tiles.empty() &&
                       encoder->Encode(screen.Bytes(), hint).tiles.empty() &&
                       encoder->Encode(screen.Bytes(), std::span<const PixelRect>()).tiles.empty();
    ASSERT_TRUE(quiet);
  }
  EXPECT_EQ(allocations, before);

  screen.Flatten(7, 77);
  encoder->Encode(screen.Bytes());
  EXPECT_NE(allocations, before) << "the count works";
}

}  // namespace
}  // namespace cvn::agent
