#include "base/hash.h"

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

namespace cvn::agent {
namespace {

std::span<const uint8_t> BytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// The input of xxHash's own sanity table.
std::vector<uint8_t> SanityBytes(size_t count) {
  std::vector<uint8_t> bytes(count);
  uint64_t generator = 2654435761;
  for (uint8_t& byte : bytes) {
    byte = static_cast<uint8_t>(generator >> 56);
    generator *= 11400714785074694797u;
  }
  return bytes;
}

TEST(Xxh64, EqualsTheReferenceAroundEveryBlockSize) {
  const struct {
    size_t byteCount;
    uint64_t hash;
  } rows[] = {
      {0, 0xef46db3751d8e999},  {3, 0xff7e1959cb50794a},  {4, 0x9136a0dca57457ee},
      {8, 0xcdbcf538e71d1348},  {31, 0x299b39a290e6d783}, {32, 0x18b216492bb44b70},
      {33, 0x55c8dc3e578f5b59}, {63, 0xa9efbe0fa0f3f4e7}, {222, 0xb641ae8cb691c174},
  };
  for (const auto& row : rows) EXPECT_EQ(Xxh64(SanityBytes(row.byteCount)), row.hash) << row.byteCount;
}

TEST(Fnv1a64, EqualsThePublishedValueOfFoobarInTwoParts) {
  EXPECT_EQ(Fnv1a64(BytesOf("bar"), Fnv1a64(BytesOf("foo"))), 0x85944171f73967e8);
}

}  // namespace
}  // namespace cvn::agent
