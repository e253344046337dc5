// The integer HSV helpers of imageops/colour.h in four 32-bit lanes, with the same results for
// every input they take in the effects: bytes 0..255, saturation and value 0..32640, hue
// 0..35999 (or anything when the saturation is 0, the grey case). Only *_sse41.cpp files include
// this header; everything in it has internal linkage.
//
// SSE4.1 has no integer division. A float division truncated gives trunc(n / d) exactly for
// |n| < 2^23 and 1 <= d < 2^24 in every rounding mode (imageops/blend_sse41.cpp gives the
// argument): the saturation's ((mx >> 1) + 32640 mn) / mx, the hue's (6000 diff + half) / delta
// and the sector h / 6000 stay below that. The larger numerators are divided by a constant:
// (f s + 3000) / 6000 (below 2^28) and the components' (factor v + 16320) / 32640 (below 2^31).
// There the product with the float reciprocal is within 0.01 of the quotient, so its truncation
// is the quotient or one off, and one look at the remainder puts it right.
#pragma once

#include <smmintrin.h>

#include <cstdint>

namespace Vantyx {
namespace colour_sse41 {
namespace {

inline __m128i Set(int32_t v) { return _mm_set1_epi32(v); }
inline __m128i Mul(__m128i a, __m128i b) { return _mm_mullo_epi32(a, b); }
// mask ? t : f, lane by lane (masks are whole lanes).
inline __m128i Select(__m128i mask, __m128i t, __m128i f) { return _mm_blendv_epi8(f, t, mask); }

// trunc(n / d) for |n| < 2^23 and 1 <= d < 2^24.
inline __m128i DivSmall(__m128i n, __m128i d) {
  return _mm_cvttps_epi32(_mm_div_ps(_mm_cvtepi32_ps(n), _mm_cvtepi32_ps(d)));
}

// n / D for 0 <= n < 2^31 and a quotient below 2^20 (the truncated float product is then the
// quotient or one off).
template <int32_t D>
inline __m128i DivBy(__m128i n) {
  __m128i q = _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(n), _mm_set1_ps(1.0f / float(D))));
  const __m128i r = _mm_sub_epi32(n, Mul(q, Set(D)));
  q = _mm_add_epi32(q, _mm_cmpgt_epi32(Set(0), r));      // r < 0: one less
  return _mm_sub_epi32(q, _mm_cmpgt_epi32(r, Set(D - 1)));  // r >= D: one more
}

// SaturationOfRgb from the largest and the smallest channel (0 where they are equal).
inline __m128i Saturation(__m128i mx, __m128i mn) {
  const __m128i num = _mm_add_epi32(_mm_srai_epi32(mx, 1), Mul(mn, Set(32640)));
  const __m128i s = _mm_sub_epi32(Set(32640), DivSmall(num, _mm_max_epi32(mx, Set(1))));
  return _mm_andnot_si128(_mm_cmpeq_epi32(mx, mn), s);
}

// RgbToHsv: hue 0..35999 or -1 for grey, saturation, value = largest channel << 7.
inline void RgbToHsv(__m128i r, __m128i g, __m128i b, __m128i* hue, __m128i* sat,
                     __m128i* value) {
  const __m128i mx = _mm_max_epi32(r, _mm_max_epi32(g, b));
  const __m128i mn = _mm_min_epi32(r, _mm_min_epi32(g, b));
  const __m128i delta = _mm_sub_epi32(mx, mn);
  // Ties go to red, then green.
  const __m128i is_r = _mm_cmpeq_epi32(mx, r), is_g = _mm_cmpeq_epi32(mx, g);
  const __m128i diff =
      Select(is_r, _mm_sub_epi32(g, b), Select(is_g, _mm_sub_epi32(b, r), _mm_sub_epi32(r, g)));
  const __m128i base = Select(is_r, Set(0), Select(is_g, Set(12000), Set(24000)));
  const __m128i num = _mm_add_epi32(Mul(diff, Set(6000)), _mm_srai_epi32(delta, 1));
  const __m128i h = _mm_add_epi32(DivSmall(num, _mm_max_epi32(delta, Set(1))), base);
  const __m128i wrapped = _mm_add_epi32(h, _mm_and_si128(_mm_cmpgt_epi32(Set(0), h), Set(36000)));
  *hue = Select(_mm_cmpeq_epi32(mx, mn), Set(-1), wrapped);
  *sat = Saturation(mx, mn);
  *value = _mm_slli_epi32(mx, 7);
}

// One component on the 0..32640 scale: (factor v + 16320) / 32640.
inline __m128i Component(__m128i factor, __m128i v) {
  return DivBy<32640>(_mm_add_epi32(Mul(factor, v), Set(16320)));
}

// HsvToRgb to bytes r, g, b.
inline void HsvToRgb(__m128i hue, __m128i sat, __m128i v, __m128i* r, __m128i* g, __m128i* b) {
  const __m128i full = Set(32640);
  const __m128i sector = DivSmall(hue, Set(6000));
  const __m128i f = _mm_sub_epi32(hue, Mul(sector, Set(6000)));
  const __m128i p = Component(_mm_sub_epi32(full, sat), v);
  const __m128i q =
      Component(_mm_sub_epi32(full, DivBy<6000>(_mm_add_epi32(Mul(f, sat), Set(3000)))), v);
  const __m128i t = Component(
      _mm_sub_epi32(full, DivBy<6000>(_mm_add_epi32(Mul(_mm_sub_epi32(Set(6000), f), sat),
                                                     Set(3000)))),
      v);
  __m128i s[6];
  for (int k = 0; k < 6; ++k) s[k] = _mm_cmpeq_epi32(sector, Set(k));
  // Sectors 0..5: (v, t, p), (q, v, p), (p, v, t), (p, q, v), (t, p, v), (v, p, q).
  const __m128i nr = Select(_mm_or_si128(s[0], s[5]), v,
                            Select(s[1], q, Select(_mm_or_si128(s[2], s[3]), p, t)));
  const __m128i ng = Select(s[0], t, Select(_mm_or_si128(s[1], s[2]), v, Select(s[3], q, p)));
  const __m128i nb = Select(_mm_or_si128(s[0], s[1]), p,
                            Select(s[2], t, Select(_mm_or_si128(s[3], s[4]), v, q)));
  const __m128i grey = _mm_cmpeq_epi32(sat, _mm_setzero_si128());
  const __m128i round = Set(64);
  *r = _mm_srai_epi32(_mm_add_epi32(Select(grey, v, nr), round), 7);
  *g = _mm_srai_epi32(_mm_add_epi32(Select(grey, v, ng), round), 7);
  *b = _mm_srai_epi32(_mm_add_epi32(Select(grey, v, nb), round), 7);
}

}  // namespace
}  // namespace colour_sse41
}  // namespace Vantyx
