#include "tiles/adler32.h"

#include <algorithm>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace cvn::agent {
namespace {

constexpr uint32_t kModulus = 65521;
/// The most bytes whose sums stay below 2^32 without a reduction.
constexpr size_t kBytesBetweenReductions = 5552;

struct Sums {
  uint32_t bytes = 1;
  uint32_t running = 0;

  void Add(std::span<const uint8_t> run) {
    for (const uint8_t byte : run) {
      bytes += byte;
      running += bytes;
    }
  }
  void Reduce() {
    bytes %= kModulus;
    running %= kModulus;
  }
  uint32_t Checksum() const { return running << 16 | bytes; }
};

#if defined(__x86_64__)

constexpr size_t kLaneBytes = 32;
constexpr size_t kVectorBytesBetweenReductions = kBytesBetweenReductions / kLaneBytes * kLaneBytes;

[[gnu::target("avx2")]] uint32_t SumOfLanes(__m256i lanes) {
  const __m128i four = _mm_add_epi32(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
  const __m128i two = _mm_add_epi32(four, _mm_shuffle_epi32(four, 0x4E));
  return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_add_epi32(two, _mm_shuffle_epi32(two, 0xB1))));
}

/// Adds whole vectors: each contributes 32 times the byte sum before it, and its bytes weighted 32 down to 1.
[[gnu::target("avx2")]] void AddVectors(Sums& sums, const uint8_t* bytes, size_t vectors) {
  const __m256i weights = _mm256_setr_epi8(32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16,
                                           15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
  const __m256i ones = _mm256_set1_epi16(1);
  __m256i byteSum = _mm256_setzero_si256();
  __m256i sumsBefore = _mm256_setzero_si256();
  __m256i weighted = _mm256_setzero_si256();
  for (size_t i = 0; i < vectors; ++i) {
    const __m256i run = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + i * kLaneBytes));
    sumsBefore = _mm256_add_epi32(sumsBefore, byteSum);
    byteSum = _mm256_add_epi32(byteSum, _mm256_sad_epu8(run, _mm256_setzero_si256()));
    weighted = _mm256_add_epi32(weighted, _mm256_madd_epi16(_mm256_maddubs_epi16(run, weights), ones));
  }
  sums.running += sums.bytes * static_cast<uint32_t>(vectors * kLaneBytes);
  sums.running += SumOfLanes(sumsBefore) * static_cast<uint32_t>(kLaneBytes) + SumOfLanes(weighted);
  sums.bytes += SumOfLanes(byteSum);
}

uint32_t Avx2Adler32(std::span<const uint8_t> bytes) {
  Sums sums;
  while (bytes.size() >= kLaneBytes) {
    const size_t vectors = std::min(bytes.size(), kVectorBytesBetweenReductions) / kLaneBytes;
    AddVectors(sums, bytes.data(), vectors);
    sums.Reduce();
    bytes = bytes.subspan(vectors * kLaneBytes);
  }
  sums.Add(bytes);
  sums.Reduce();
  return sums.Checksum();
}

using Checksum = uint32_t (*)(std::span<const uint8_t>);

Checksum FastestChecksum() {
  return __builtin_cpu_supports("avx2") ? Avx2Adler32 : PlainAdler32;
}

#else

using Checksum = uint32_t (*)(std::span<const uint8_t>);

Checksum FastestChecksum() {
  return PlainAdler32;
}

#endif

}  // namespace

uint32_t PlainAdler32(std::span<const uint8_t> bytes) {
  Sums sums;
  while (!bytes.empty()) {
    const size_t count = std::min(bytes.size(), kBytesBetweenReductions);
    sums.Add(bytes.first(count));
    sums.Reduce();
    bytes = bytes.subspan(count);
  }
  return sums.Checksum();
}

uint32_t Adler32(std::span<const uint8_t> bytes) {
  static const Checksum kFastest = FastestChecksum();
  return kFastest(bytes);
}

}  // namespace cvn::agent
