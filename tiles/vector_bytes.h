#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace cvn::agent {

/// The few wide operations that the hot loops of exact coding are written with. Every set of lanes gives the
/// same answers; loops take one as a template parameter, so that tests can compare them.
///
/// `CommonPrefix16`: how many of the first 16 bytes agree, 0..16. `SameBytes`: whether `count` bytes agree.
/// `ChangeMask64`: bit i (1..63) is set when pixel i of 64 pixels differs from pixel i - 1; bit 0 is always
/// set.
struct PortableLanes {
  static unsigned CommonPrefix16(const uint8_t* a, const uint8_t* b) {
    const unsigned first = CommonPrefix8(a, b);
    return first < 8 ? first : 8 + CommonPrefix8(a + 8, b + 8);
  }

  static bool SameBytes(const uint8_t* a, const uint8_t* b, size_t count) {
    return std::memcmp(a, b, count) == 0;
  }

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
  static unsigned CommonPrefix16(const uint8_t* a, const uint8_t* b) {
    const __m128i equal = _mm_cmpeq_epi8(Load(a), Load(b));
    return static_cast<unsigned>(
        std::countr_zero(static_cast<unsigned>(_mm_movemask_epi8(equal)) ^ 0x1FFFFU));
  }

  static bool SameBytes(const uint8_t* a, const uint8_t* b, size_t count) {
    for (; count >= 64; count -= 64, a += 64, b += 64)
      if (!Same64(a, b)) return false;
    for (; count >= 16; count -= 16, a += 16, b += 16)
      if (CommonPrefix16(a, b) != 16) return false;
    return std::memcmp(a, b, count) == 0;
  }

  static uint64_t ChangeMask64(const uint8_t* pixels) {
    uint64_t equal = Equal16(pixels + 4, pixels);
    equal |= Equal16(pixels + 68, pixels + 64) << 16;
    equal |= Equal16(pixels + 132, pixels + 128) << 32;
    const uint64_t last = Equal16(pixels + 192, pixels + 188);  // Pixels 48..63, not to read pixel 64.
    return ~(((equal << 1) & 0x0000FFFFFFFFFFFFU) | last << 48) | 1;
  }

 private:
  static __m128i Load(const uint8_t* bytes) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
  }

  static __m128i EqualPixels(const uint8_t* a, const uint8_t* b) { return _mm_cmpeq_epi32(Load(a), Load(b)); }

  static bool Same64(const uint8_t* a, const uint8_t* b) {
    const __m128i low = _mm_and_si128(EqualPixels(a, b), EqualPixels(a + 16, b + 16));
    const __m128i high = _mm_and_si128(EqualPixels(a + 32, b + 32), EqualPixels(a + 48, b + 48));
    return _mm_movemask_epi8(_mm_and_si128(low, high)) == 0xFFFF;
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
