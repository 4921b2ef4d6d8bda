#include "tiles/vector_bytes.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

namespace cvn::agent {
namespace {

TEST(VectorBytes, CommonPrefixEndsAtTheFirstDifference) {
  std::array<uint8_t, 16> a{};
  a.fill(7);
  for (unsigned differsAt = 0; differsAt <= 16; ++differsAt) {
    std::array<uint8_t, 16> b = a;
    for (unsigned i = differsAt; i < 16; i += 3) b[i] = 8;
    EXPECT_EQ(NativeLanes::CommonPrefix16(a.data(), b.data()), differsAt);
    EXPECT_EQ(PortableLanes::CommonPrefix16(a.data(), b.data()), differsAt);
  }
}

TEST(VectorBytes, ChangeMaskMarksWhereRunsBegin) {
  std::mt19937 random(9);
  for (int round = 0; round < 2000; ++round) {
    std::vector<uint32_t> pixels(64);  // Of exactly this size, for the address sanitizer.
    uint64_t expected = 1;
    for (size_t i = 0; i < 64; ++i) {
      const bool changes = i == 0 || random() % 3 == 0;
      pixels[i] = changes ? (i == 0 ? 5U : pixels[i - 1] ^ 1U << random() % 32) : pixels[i - 1];
      if (changes) expected |= uint64_t{1} << i;
    }
    const auto* bytes = reinterpret_cast<const uint8_t*>(pixels.data());
    ASSERT_EQ(NativeLanes::ChangeMask64(bytes), expected);
    ASSERT_EQ(PortableLanes::ChangeMask64(bytes), expected);
  }
}

TEST(VectorBytes, SameBytesFindsADifferenceAnywhere) {
  for (size_t count = 0; count < 150; ++count) {
    std::vector<uint8_t> a(count, 1);
    std::vector<uint8_t> b = a;
    EXPECT_TRUE(NativeLanes::SameBytes(a.data(), b.data(), count));
    for (size_t i = 0; i < count; ++i) {
      b[i] = 0x81;
      EXPECT_FALSE(NativeLanes::SameBytes(a.data(), b.data(), count)) << i << " of " << count;
      b[i] = 1;
    }
  }
}

}  // namespace
}  // namespace cvn::agent
