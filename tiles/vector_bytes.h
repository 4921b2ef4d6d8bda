#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace cvn::agent {

/// The few wide operations that the hot loops of exact coding are written with. `NativeLanes` are the widest
/// that every processor of this kind has; all give the same answers.
struct PortableLanes {
  /// How many of the first 32 bytes agree, 0..32.
  static unsigned CommonPrefix32(const uint8_t* a, const uint8_t* b) {
    unsigned common = 0;
    for (unsigned i = 0; i < 32 && common == i; i += 8) common += CommonPrefix8(a + i, b + i);
    return common;
  }

  /// Whether 64 bytes agree.
  static bool Same64(const uint8_t* a, const uint8_t* b) { return std::memcmp(a, b, 64) == 0; }

  /// Whether `count` bytes agree.
  static bool SameBytes(const uint8_t* a, const uint8_t* b, size_t count) {
    return std::memcmp(a, b, count) == 0;
  }

  /// Bit i tells that number i of 32 is not 0.
  static uint32_t NonZeroMask32(const uint16_t* numbers) {
    uint32_t mask = 0;
    for (unsigned i = 0; i < 32; ++i) mask |= (numbers[i] != 0 ? 1U : 0U) << i;
    return mask;
  }

  /// Bit i tells that byte i of 64 differs from the one before it; a byte must stand before the first.
  static uint64_t ByteChangeMask64(const uint8_t* bytes) {
    uint64_t mask = 0;
    for (unsigned i = 0; i < 64; ++i) mask |= static_cast<uint64_t>(bytes[i] != *(bytes + i - 1)) << i;
    return mask;
  }

  /// Bit i tells that pixel i of 64 differs from the one before it; bit 0 is always set.
  static uint64_t ChangeMask64(const uint8_t* pixels) {
    uint64_t mask = 1;
    for (unsigned i = 1; i < 64; ++i)
      mask |= static_cast<uint64_t>(Pixel(pixels, i) != Pixel(pixels, i - 1)) << i;
    return mask;
  }

 private:
  static unsigned CommonPrefix8(const uint8_t* a, const uint8_t* b) {
    uint64_t x = 0;
    uint64_t y = 0;
    std::memcpy(&x, a, 8);
    std::memcpy(&y, b, 8);
    const int equalBits =
        std::endian::native == std::endian::little ? std::countr_zero(x ^ y) : std::countl_zero(x ^ y);
    return static_cast<unsigned>(equalBits) / 8;
  }

  static uint32_t Pixel(const uint8_t* pixels, unsigned index) {
    uint32_t pixel = 0;
    std::memcpy(&pixel, pixels + 4 * index, 4);
    return pixel;
  }
};

#if defined(__SSE2__)

struct Sse2Lanes {
  static unsigned CommonPrefix32(const uint8_t* a, const uint8_t* b) {
    const uint64_t equal = EqualMask16(a, b) | EqualMask16(a + 16, b + 16) << 16;
    return static_cast<unsigned>(std::countr_zero(~equal | uint64_t{1} << 32));
  }

  static bool Same64(const uint8_t* a, const uint8_t* b) {
    return _mm_movemask_epi8(Equal64(a, b)) == 0xFFFF;
  }

  static bool SameBytes(const uint8_t* a, const uint8_t* b, size_t count) {
    // A row of a tile at a time: where in it they differ is not to be foreseen, that they do is.
    for (; count >= 256; count -= 256, a += 256, b += 256) {
      __m128i equal = Equal64(a, b);
      for (size_t i = 64; i < 256; i += 64) equal = _mm_and_si128(equal, Equal64(a + i, b + i));
      if (_mm_movemask_epi8(equal) != 0xFFFF) return false;
    }
    for (; count >= 64; count -= 64, a += 64, b += 64)
      if (!Same64(a, b)) return false;
    return std::memcmp(a, b, count) == 0;
  }

  static uint32_t NonZeroMask32(const uint16_t* numbers) {
    return NonZeroMask16(numbers) | NonZeroMask16(numbers + 16) << 16;
  }

  static uint64_t ByteChangeMask64(const uint8_t* bytes) {
    uint64_t equal = 0;
    for (unsigned i = 0; i < 64; i += 16) {
      const __m128i lanes = _mm_cmpeq_epi8(Load(bytes + i), Load(bytes + i - 1));
      equal |= static_cast<uint64_t>(_mm_movemask_epi8(lanes)) << i;
    }
    return ~equal;
  }

  static uint64_t ChangeMask64(const uint8_t* pixels) {
    uint64_t equal = Equal16(pixels + 4, pixels);
    equal |= Equal16(pixels + 68, pixels + 64) << 16;
    equal |= Equal16(pixels + 132, pixels + 128) << 32;
    const uint64_t last = Equal16(pixels + 192, pixels + 188);  // Pixels 48..63, not to read pixel 64.
    return ~(((equal << 1) & 0x0000FFFFFFFFFFFFU) | last << 48) | 1;
  }

 private:
  static __m128i Load(const void* from) { return _mm_loadu_si128(static_cast<const __m128i*>(from)); }

  static uint64_t EqualMask16(const uint8_t* a, const uint8_t* b) {
    return static_cast<uint64_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(Load(a), Load(b))));
  }

  static uint32_t NonZeroMask16(const uint16_t* numbers) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i low = _mm_cmpeq_epi16(Load(numbers), zero);
    const __m128i high = _mm_cmpeq_epi16(Load(numbers + 8), zero);
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(low, high))) ^ 0xFFFFU;
  }

  static __m128i EqualPixels(const uint8_t* a, const uint8_t* b) { return _mm_cmpeq_epi32(Load(a), Load(b)); }

  /// All ones where all of four runs of 16 bytes agree.
  static __m128i Equal64(const uint8_t* a, const uint8_t* b) {
    const __m128i low = _mm_and_si128(EqualPixels(a, b), EqualPixels(a + 16, b + 16));
    const __m128i high = _mm_and_si128(EqualPixels(a + 32, b + 32), EqualPixels(a + 48, b + 48));
    return _mm_and_si128(low, high);
  }

  /// Bit i tells whether pixel i of `a` equals pixel i of `b`, for 16 pixels.
  static uint64_t Equal16(const uint8_t* a, const uint8_t* b) {
    const __m128i low = _mm_packs_epi32(EqualPixels(a, b), EqualPixels(a + 16, b + 16));
    const __m128i high = _mm_packs_epi32(EqualPixels(a + 32, b + 32), EqualPixels(a + 48, b + 48));
    return static_cast<uint64_t>(_mm_movemask_epi8(_mm_packs_epi16(low, high)));
  }
};

using NativeLanes = Sse2Lanes;

#else

using NativeLanes = PortableLanes;

#endif

}  // namespace cvn::agent
