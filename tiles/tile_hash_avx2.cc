// FNV-1a of sixteen tiles at a time, bit-identical to the plain loop.
//
// The plain step is h' = (h ^ b) * p. The xor touches only the low byte l of h, so h ^ b = h + d with
// d = (l ^ b) - l, and after n bytes h' = h * p^n + sum of d[i] * p^(n-i). Only the d need the serial chain,
// and that chain needs only the low bits of h: 16-bit work, one lane for each tile. The sum is a dot product
// of small numbers, -255 to 255, with the powers of p cut into four signed 16-bit limbs.
#include <immintrin.h>

#include <algorithm>
#include <array>

#include "base/hash.h"
#include "tiles/tile_hash.h"

namespace cvn::agent {
namespace {

constexpr size_t kTiles = 16;
constexpr size_t kLimbs = 4;
constexpr size_t kStepBytes = 16;
// 256 products of at most 255 * 32768 stay below 2^31, so a segment sums in 32 bits.
constexpr size_t kSegmentBytes = 256;
static_assert(int64_t{255} * 32768 * int64_t{kSegmentBytes} < int64_t{1} << 31);
// Up to here the baseline's four chains are as fast.
constexpr size_t kFewTiles = 4;

/// For two neighbouring bytes the limbs of their two powers, the first byte's in the lower half.
using LimbPairs = std::array<uint32_t, kLimbs>;

constexpr std::array<uint64_t, kSegmentBytes + 1> MakePowers() {
  std::array<uint64_t, kSegmentBytes + 1> powers{};
  powers[0] = 1;
  for (size_t i = 1; i < powers.size(); ++i) powers[i] = powers[i - 1] * kFnv1aPrime;
  return powers;
}
constexpr auto kPowers = MakePowers();

// Signed limbs: a limb of 32768 or more becomes negative and carries into the next; the last carry is a
// multiple of 2^64.
constexpr uint16_t Limb(uint64_t value, size_t limb) {
  for (size_t i = 0; i < limb; ++i) value = (value >> 16) + (value >> 15 & 1);
  return static_cast<uint16_t>(value);
}

constexpr std::array<LimbPairs, kSegmentBytes / 2> MakeLimbPairs() {
  std::array<LimbPairs, kSegmentBytes / 2> pairs{};
  for (size_t i = 0; i < pairs.size(); ++i) {
    for (size_t limb = 0; limb < kLimbs; ++limb) {
      const uint32_t first = Limb(kPowers[kSegmentBytes - 2 * i], limb);
      const uint32_t second = Limb(kPowers[kSegmentBytes - 2 * i - 1], limb);
      pairs[i][limb] = first | second << 16;
    }
  }
  return pairs;
}
// Entry i belongs to bytes 2i and 2i + 1 of a full segment; a shorter one uses the last entries.
constexpr auto kLimbPairs = MakeLimbPairs();

// Which tile each lane holds, after the transposition below and after pairing neighbouring bytes.
constexpr size_t kTileOfChainLane[kTiles] = {0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15};
constexpr size_t kTileOfSumLane[kTiles] = {0, 8, 1, 9, 4, 12, 5, 13, 2, 10, 3, 11, 6, 14, 7, 15};

struct Chains {
  __m256i low;  // the low 16 bits of each tile's value
  __m256i sums[kLimbs][2];
};

[[gnu::target("avx2"), gnu::always_inline]] inline __m256i LoadTwo(const uint8_t* first,
                                                                   const uint8_t* second) {
  const __m128i lower = _mm_loadu_si128(reinterpret_cast<const __m128i*>(first));
  const __m128i upper = _mm_loadu_si128(reinterpret_cast<const __m128i*>(second));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(lower), upper, 1);
}

// Four pixels of eight tiles: pixels[p] holds pixel p of each tile.
[[gnu::target("avx2"), gnu::always_inline]] inline void TransposePixels(const uint8_t* const* tiles,
                                                                        size_t offset, __m256i* pixels) {
  const __m256i row0 = LoadTwo(tiles[0] + offset, tiles[4] + offset);
  const __m256i row1 = LoadTwo(tiles[1] + offset, tiles[5] + offset);
  const __m256i row2 = LoadTwo(tiles[2] + offset, tiles[6] + offset);
  const __m256i row3 = LoadTwo(tiles[3] + offset, tiles[7] + offset);
  const __m256i early01 = _mm256_unpacklo_epi32(row0, row1);
  const __m256i early23 = _mm256_unpacklo_epi32(row2, row3);
  const __m256i late01 = _mm256_unpackhi_epi32(row0, row1);
  const __m256i late23 = _mm256_unpackhi_epi32(row2, row3);
  pixels[0] = _mm256_unpacklo_epi64(early01, early23);
  pixels[1] = _mm256_unpackhi_epi64(early01, early23);
  pixels[2] = _mm256_unpacklo_epi64(late01, late23);
  pixels[3] = _mm256_unpackhi_epi64(late01, late23);
}

// One chain step; returns d. The high bytes of the 16-bit lanes cancel in the difference.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i Step(Chains& chains, __m256i bytes) {
  const __m256i mixed = _mm256_xor_si256(chains.low, bytes);
  const __m256i difference = _mm256_sub_epi16(mixed, chains.low);
  chains.low = _mm256_mullo_epi16(mixed, _mm256_set1_epi16(static_cast<int16_t>(kFnv1aPrime & 0xffff)));
  return difference;
}

// Two bytes of every tile, packed as the low and high bytes of 16-bit lanes.
[[gnu::target("avx2"), gnu::always_inline]] inline void AddBytePair(Chains& chains, __m256i bytePairs,
                                                                    const LimbPairs& limbs) {
  const __m256i first = Step(chains, _mm256_and_si256(bytePairs, _mm256_set1_epi16(0xff)));
  const __m256i second = Step(chains, _mm256_srli_epi16(bytePairs, 8));
  const __m256i lower = _mm256_unpacklo_epi16(first, second);
  const __m256i upper = _mm256_unpackhi_epi16(first, second);
  for (size_t limb = 0; limb < kLimbs; ++limb) {
    const __m256i powers = _mm256_set1_epi32(static_cast<int32_t>(limbs[limb]));
    __m256i* sums = chains.sums[limb];
    sums[0] = _mm256_add_epi32(sums[0], _mm256_madd_epi16(lower, powers));
    sums[1] = _mm256_add_epi32(sums[1], _mm256_madd_epi16(upper, powers));
  }
}

[[gnu::target("avx2"), gnu::always_inline]] inline void AddStep(Chains& chains, const uint8_t* const* tiles,
                                                                size_t offset, const LimbPairs* limbs) {
  __m256i early[4];
  __m256i late[4];
  TransposePixels(tiles, offset, early);
  TransposePixels(tiles + 8, offset, late);
  for (size_t pixel = 0; pixel < 4; ++pixel, limbs += 2) {
    const __m256i blueGreen = _mm256_blend_epi16(early[pixel], _mm256_slli_epi32(late[pixel], 16), 0xaa);
    const __m256i redAlpha = _mm256_blend_epi16(_mm256_srli_epi32(early[pixel], 16), late[pixel], 0xaa);
    AddBytePair(chains, blueGreen, limbs[0]);
    AddBytePair(chains, redAlpha, limbs[1]);
  }
}

[[gnu::target("avx2")]] __m256i LowBits(const uint64_t* hashes) {
  alignas(32) uint16_t lanes[kTiles];
  for (size_t lane = 0; lane < kTiles; ++lane)
    lanes[lane] = static_cast<uint16_t>(hashes[kTileOfChainLane[lane]]);
  return _mm256_load_si256(reinterpret_cast<const __m256i*>(lanes));
}

[[gnu::target("avx2")]] void Fold(const Chains& chains, size_t bytes, uint64_t* hashes) {
  alignas(32) int32_t sums[kLimbs][kTiles];
  for (size_t limb = 0; limb < kLimbs; ++limb) {
    _mm256_store_si256(reinterpret_cast<__m256i*>(sums[limb]), chains.sums[limb][0]);
    _mm256_store_si256(reinterpret_cast<__m256i*>(sums[limb] + 8), chains.sums[limb][1]);
  }
  for (size_t lane = 0; lane < kTiles; ++lane) {
    uint64_t& hash = hashes[kTileOfSumLane[lane]];
    hash *= kPowers[bytes];
    for (size_t limb = 0; limb < kLimbs; ++limb)
      hash += static_cast<uint64_t>(int64_t{sums[limb][lane]}) << (16 * limb);
  }
}

// `bytes` is a multiple of kStepBytes, at most kSegmentBytes.
[[gnu::target("avx2")]] void AddSegment(const uint8_t* const* tiles, size_t offset, size_t bytes,
                                        uint64_t* hashes) {
  Chains chains = {};
  chains.low = LowBits(hashes);
  const LimbPairs* const limbs = &kLimbPairs[(kSegmentBytes - bytes) / 2];
  for (size_t at = 0; at < bytes; at += kStepBytes) AddStep(chains, tiles, offset + at, limbs + at / 2);
  Fold(chains, bytes, hashes);
}

// One line of at most kTiles tiles. Absent tiles are stood in for by the last one, and forgotten.
[[gnu::target("avx2")]] void AddLine(const uint8_t* firstByte, size_t lineBytes, std::span<uint64_t> hashes) {
  const uint8_t* tiles[kTiles];
  uint64_t lanes[kTiles];
  for (size_t i = 0; i < kTiles; ++i) {
    const size_t tile = std::min(i, hashes.size() - 1);
    tiles[i] = firstByte + tile * lineBytes;
    lanes[i] = hashes[tile];
  }
  for (size_t offset = 0; offset < lineBytes; offset += kSegmentBytes)
    AddSegment(tiles, offset, std::min(kSegmentBytes, lineBytes - offset), lanes);
  std::copy_n(lanes, hashes.size(), hashes.begin());
}

}  // namespace

[[gnu::target("avx2")]] void FnvRunAvx2(const TileRun& run, std::span<uint64_t> hashes) {
  if (hashes.size() <= kFewTiles || run.tileLineBytes % kStepBytes != 0) return FnvRunBaseline(run, hashes);
  for (int line = 0; line < run.lines; ++line) {
    const uint8_t* next = run.firstByte + static_cast<size_t>(line) * run.strideBytes;
    for (size_t tile = 0; tile < hashes.size(); tile += kTiles, next += kTiles * run.tileLineBytes)
      AddLine(next, run.tileLineBytes, hashes.subspan(tile, std::min(kTiles, hashes.size() - tile)));
  }
}

}  // namespace cvn::agent
