#pragma once

#include <cstdint>
#include <span>

namespace cvn::agent {

inline constexpr uint64_t kFnv1aOffsetBasis = 0xcbf29ce484222325;
inline constexpr uint64_t kFnv1aPrime = 0x100000001b3;

/// 64-bit FNV-1a (Fowler, Noll, Vo), continuing from `hash` so that a tile's rows form one run.
constexpr uint64_t Fnv1a64(std::span<const uint8_t> bytes, uint64_t hash = kFnv1aOffsetBasis) {
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * kFnv1aPrime;
  return hash;
}

/// XXH64 with seed 0 (xxHash, https://github.com/Cyan4973/xxHash/blob/dev/doc/xxhash_spec.md).
uint64_t Xxh64(std::span<const uint8_t> bytes);

}  // namespace cvn::agent
