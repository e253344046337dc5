// The integer HSV conversions of imageops/colour.h in four 32-bit lanes, giving the same values.
// Only *_sse41.cpp files include this header; everything is internal to each of them.
//
// Their divisions are exact in single precision where the numerator stays below 2^23 (see
// blend_sse41.cpp): the saturation's ((mx >> 1) + mn 32640) / mx, the hue's (d 6000 + half) /
// delta, the sector h / 6000, and every component for a value of 128 m (the only values the
// effects convert back): the plain (factor 128 m + 16320) / 32640 is floor((factor m + 127.5)
// / 255), which is floor((factor m + 127) / 255) since factor m is an integer, and factor m <=
// 32640 x 255. Only (f s + 3000) / 6000 passes 2^23; its float quotient is within 0.01 of the
// true one, so truncating it is off by at most one, which the remainder corrects.
#pragma once

#include <smmintrin.h>

#include <cstdint>

namespace Vantyx {
namespace {
namespace hsv_sse41 {

inline __m128i Set(int32_t v) { return _mm_set1_epi32(v); }
inline __m128i Mul(__m128i a, __m128i b) { return _mm_mullo_epi32(a, b); }
inline __m128i Select(__m128i mask, __m128i t, __m128i f) { return _mm_blendv_epi8(f, t, mask); }

// trunc(n / d) for |n| < 2^23 and 1 <= d < 2^24.
inline __m128i Div(__m128i n, __m128i d) {
  return _mm_cvttps_epi32(_mm_div_ps(_mm_cvtepi32_ps(n), _mm_cvtepi32_ps(d)));
}

// n / 6000 for 0 <= n < 2^31.
inline __m128i Div6000(__m128i n) {
  __m128i q = _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(n), _mm_set1_ps(1.0f / 6000.0f)));
  const __m128i r = _mm_sub_epi32(n, Mul(q, Set(6000)));
  q = _mm_add_epi32(q, _mm_cmpgt_epi32(Set(0), r));        // r < 0: one less
  return _mm_sub_epi32(q, _mm_cmpgt_epi32(r, Set(5999)));  // r >= 6000: one more
}

// SaturationOfRgb from the largest and smallest channel.
inline __m128i Saturation(__m128i mx, __m128i mn) {
  const __m128i s = _mm_sub_epi32(
      Set(32640), Div(_mm_add_epi32(_mm_srai_epi32(mx, 1), Mul(mn, Set(32640))), _mm_max_epi32(mx, Set(1))));
  return _mm_andnot_si128(_mm_cmpeq_epi32(mx, mn), s);
}

// RgbToHsv: hue (0..35999; any value for a grey) and saturation; the value is mx << 7.
inline void RgbToHsv(__m128i r, __m128i g, __m128i b, __m128i* hue, __m128i* sat, __m128i* mx_out) {
  const __m128i mx = _mm_max_epi32(r, _mm_max_epi32(g, b));
  const __m128i mn = _mm_min_epi32(r, _mm_min_epi32(g, b));
  const __m128i delta = _mm_sub_epi32(mx, mn);
  // Ties go to red, then green.
  const __m128i is_r = _mm_cmpeq_epi32(mx, r), is_g = _mm_cmpeq_epi32(mx, g);
  const __m128i diff =
      Select(is_r, _mm_sub_epi32(g, b), Select(is_g, _mm_sub_epi32(b, r), _mm_sub_epi32(r, g)));
  const __m128i base = Select(is_r, Set(0), Select(is_g, Set(12000), Set(24000)));
  const __m128i num = _mm_add_epi32(Mul(diff, Set(6000)), _mm_srai_epi32(delta, 1));
  __m128i h = _mm_add_epi32(Div(num, _mm_max_epi32(delta, Set(1))), base);
  *hue = _mm_add_epi32(h, _mm_and_si128(_mm_cmpgt_epi32(Set(0), h), Set(36000)));
  *sat = Saturation(mx, mn);
  *mx_out = mx;
}

// The byte of an HSV component (factor on the 0..32640 scale, value 128 m).
inline __m128i Component(__m128i factor, __m128i m) {
  const __m128i scaled = Div(_mm_add_epi32(Mul(factor, m), Set(127)), Set(255));
  return _mm_srai_epi32(_mm_add_epi32(scaled, Set(64)), 7);
}

// HsvToRgb of (hue, sat, 128 m) to bytes r, g, b.
inline void HsvToRgb(__m128i hue, __m128i sat, __m128i m, __m128i* r, __m128i* g, __m128i* b) {
  const __m128i sector = Div(hue, Set(6000));
  const __m128i f = _mm_sub_epi32(hue, Mul(sector, Set(6000)));
  const __m128i p = Component(_mm_sub_epi32(Set(32640), sat), m);
  const __m128i q = Component(_mm_sub_epi32(Set(32640), Div6000(_mm_add_epi32(Mul(f, sat), Set(3000)))), m);
  const __m128i t = Component(
      _mm_sub_epi32(Set(32640), Div6000(_mm_add_epi32(Mul(_mm_sub_epi32(Set(6000), f), sat), Set(3000)))),
      m);
  __m128i s[6];
  for (int k = 0; k < 6; ++k) s[k] = _mm_cmpeq_epi32(sector, Set(k));
  // Sectors 0..5: (v, t, p), (q, v, p), (p, v, t), (p, q, v), (t, p, v), (v, p, q).
  const __m128i nr = Select(_mm_or_si128(s[0], s[5]), m,
                            Select(s[1], q, Select(_mm_or_si128(s[2], s[3]), p, t)));
  const __m128i ng = Select(s[0], t, Select(_mm_or_si128(s[1], s[2]), m, Select(s[3], q, p)));
  const __m128i nb = Select(_mm_or_si128(s[0], s[1]), p,
                            Select(s[2], t, Select(_mm_or_si128(s[3], s[4]), m, q)));
  const __m128i grey = _mm_cmpeq_epi32(sat, Set(0));  // every channel is the value
  *r = Select(grey, m, nr);
  *g = Select(grey, m, ng);
  *b = Select(grey, m, nb);
}

}  // namespace hsv_sse41
}  // namespace
}  // namespace Vantyx
