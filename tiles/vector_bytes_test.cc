#include "tiles/vector_bytes.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

namespace cvn::agent {
namespace {

TEST(VectorBytes, CommonPrefixEndsAtTheFirstDifference) {
  std::array<uint8_t, 32> a{};
  a.fill(7);
  for (unsigned differsAt = 0; differsAt <= 32; ++differsAt) {
    std::array<uint8_t, 32> b = a;
    for (unsigned i = differsAt; i < 32; i += 3) b[i] = 8;
    EXPECT_EQ(NativeLanes::CommonPrefix32(a.data(), b.data()), differsAt);
    EXPECT_EQ(PortableLanes::CommonPrefix32(a.data(), b.data()), differsAt);
  }
}

TEST(VectorBytes, MasksMarkNumbersInUseAndWhereBytesChange) {
  std::mt19937 random(4);
  for (int round = 0; round < 2000; ++round) {
    std::array<uint16_t, 32> numbers{};
    std::array<uint8_t, 65> bytes{};
    uint32_t nonZero = 0;
    uint64_t changes = 0;
    for (unsigned i = 0; i < 32; ++i) {
      numbers[i] = static_cast<uint16_t>(random() % 3 == 0 ? 1U << random() % 16 : 0);
      if (numbers[i] != 0) nonZero |= 1U << i;
    }
    for (unsigned i = 0; i < 64; ++i) {
      bytes[i + 1] = static_cast<uint8_t>(bytes[i] + (random() % 4 == 0 ? 1 : 0));
      if (bytes[i + 1] != bytes[i]) changes |= uint64_t{1} << i;
    }
    ASSERT_EQ(NativeLanes::NonZeroMask32(numbers.data()), nonZero);
    ASSERT_EQ(PortableLanes::NonZeroMask32(numbers.data()), nonZero);
    ASSERT_EQ(NativeLanes::ByteChangeMask64(bytes.data() + 1), changes);
    ASSERT_EQ(PortableLanes::ByteChangeMask64(bytes.data() + 1), changes);
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
  for (size_t count = 1; count < 600; count += 7) {
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
