#include "tiles/adler32.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <vector>

namespace cvn::agent {
namespace {

TEST(Adler32, AgreesWithZlibAroundEveryStep) {
  std::mt19937 random(3);
  std::vector<uint8_t> mixed(100003);
  for (uint8_t& byte : mixed) byte = static_cast<uint8_t>(random());
  const std::vector<uint8_t> largest(mixed.size(), 0xFF);
  std::vector<size_t> counts = {
      5535, 5536, 5537, 5551, 5552, 5553, 5567, 5568, 11104, 16384, mixed.size() - 1};
  for (size_t count = 0; count < 130; ++count) counts.push_back(count);
  const std::vector<uint8_t>* const inputs[] = {&mixed, &largest};
  for (const size_t count : counts) {
    for (const std::vector<uint8_t>* bytes : inputs) {
      const std::span<const uint8_t> run(bytes->data() + 1, count);  // Not aligned.
      const auto expected = static_cast<uint32_t>(adler32(1, run.data(), static_cast<uInt>(count)));
      EXPECT_EQ(Adler32(run), expected) << count;
      EXPECT_EQ(PlainAdler32(run), expected) << count;
    }
  }
}

}  // namespace
}  // namespace cvn::agent
