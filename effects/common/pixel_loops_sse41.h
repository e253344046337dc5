// The fast forms' walk over a strip: four BGRA32 pixels per step in one register, the last
// one to three pixels of a row through the plain per-pixel code. Only *_sse41.cpp files
// include this header; everything in it has internal linkage.
#pragma once

#include <smmintrin.h>

#include <cstdint>

#include "effects/common/pixel_loops.h"

namespace Vantyx {
namespace pixel_loops {
namespace {

inline __m128i Load(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline void Store(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// Byte c of four pixels, one per 32-bit lane.
inline __m128i Channel(__m128i v, int c) {
  return _mm_and_si128(_mm_srli_epi32(v, 8 * c), _mm_set1_epi32(0xFF));
}

// Four pixels from their channels, one per lane (each 0..255).
inline __m128i Pack(__m128i b, __m128i g, __m128i r, __m128i a) {
  return _mm_or_si128(_mm_or_si128(b, _mm_slli_epi32(g, 8)),
                      _mm_or_si128(_mm_slli_epi32(r, 16), _mm_slli_epi32(a, 24)));
}

// Stores quad(a, b) over the strip, four pixels at a time, and runs tail(pa, pb, pd) per pixel
// on the rest. `a` and `b` are only read (they may be `d` itself).
template <class Quad, class Tail>
int32_t EachQuad(const ImageView& a, const ImageView& b, const ImageView& d,
                 const ProcessRect& strip, const Quad& quad, const Tail& tail) {
  Area area;
  const int32_t rc = PrepareBgra({&a, &b, &d}, strip, &area);
  if (rc != 0 || area.Empty()) return rc;
  const int32_t width = area.right - area.left;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    const uint8_t* pa = a.At(area.left, y);
    const uint8_t* pb = b.At(area.left, y);
    uint8_t* pd = d.At(area.left, y);
    int32_t x = 0;
    for (; x + 4 <= width; x += 4, pa += 16, pb += 16, pd += 16)
      Store(pd, quad(Load(pa), Load(pb)));
    for (; x < width; ++x, pa += 4, pb += 4, pd += 4) tail(pa, pb, pd);
  }
  return 0;
}

}  // namespace
}  // namespace pixel_loops
}  // namespace Vantyx
