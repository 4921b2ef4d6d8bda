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

TEST(Xxh64, EqualsPublishedValuesOfText) {
  EXPECT_EQ(Xxh64({}), 0xef46db3751d8e999);
  EXPECT_EQ(Xxh64(BytesOf("a")), 0xd24ec4f1a98c6e5b);
  EXPECT_EQ(Xxh64(BytesOf("abc")), 0x44bc2cf5ad770999);
  EXPECT_EQ(Xxh64(BytesOf("Nobody inspects the spammish repetition")), 0xfbcea83c8a378bf1);
}

TEST(Xxh64, EqualsTheReferenceAroundEveryBlockSize) {
  const struct {
    size_t byteCount;
    uint64_t hash;
  } rows[] = {
      {1, 0xe934a84adb052768},   {3, 0xff7e1959cb50794a},   {4, 0x9136a0dca57457ee},
      {7, 0x6c83909a9f01ed25},   {8, 0xcdbcf538e71d1348},   {12, 0x0723bf50086ead9a},
      {14, 0x8282dcc4994e35c8},  {31, 0x299b39a290e6d783},  {32, 0x18b216492bb44b70},
      {33, 0x55c8dc3e578f5b59},  {63, 0xa9efbe0fa0f3f4e7},  {64, 0xef558f8acac2b5cd},
      {222, 0xb641ae8cb691c174}, {256, 0x5e3f5bf94d574981},
  };
  for (const auto& row : rows) EXPECT_EQ(Xxh64(SanityBytes(row.byteCount)), row.hash) << row.byteCount;
}

TEST(Fnv1a64, EqualsPublishedValuesAndContinues) {
  EXPECT_EQ(Fnv1a64({}), 0xcbf29ce484222325);
  EXPECT_EQ(Fnv1a64(BytesOf("foobar")), 0x85944171f73967e8);
  EXPECT_EQ(Fnv1a64(BytesOf("bar"), Fnv1a64(BytesOf("foo"))), 0x85944171f73967e8);
}

}  // namespace
}  // namespace cvn::agent
