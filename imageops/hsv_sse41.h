// The integer HSV conversions of imageops/colour.h in four 32-bit lanes, giving the same values.
// Only *_sse41.cpp files include this header; everything is internal to each of them.
//
// Their divisions are exact in single precision where the numerator stays below 2^23 (see
// blend_sse41.cpp): the saturation's ((mx >> 1) + mn 32640) / mx, the hue's (d 6000 + half) /
// delta, the sector h / 6000, and every component for a value of 128 m (the only values the
// effects convert back): the plain (factor 128 m + 16320) / 32640 is floor((factor m + 127.5)
// / 255), which is floor((factor m + 127) / 255) since factor m is an integer, and factor m <=
// 32640 x 255. Only (f s + 3000) / 6000 passes 2^23; its float quotient is within 0.01 of the
// true one, so truncating it is off by at most one, which the remainder corrects. The same
// correction serves HsvToRgbOfValue, for any value 0..32640 (Infrared moves the value): there
// the components' (factor v + 16320) / 32640 stays below 2^31 with a quotient below 2^20.
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

// n / D for 0 <= n < 2^31 and a quotient below 2^20.
template <int32_t D>
inline __m128i DivBy(__m128i n) {
  __m128i q = _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(n), _mm_set1_ps(1.0f / float(D))));
  const __m128i r = _mm_sub_epi32(n, Mul(q, Set(D)));
  q = _mm_add_epi32(q, _mm_cmpgt_epi32(Set(0), r));         // r < 0: one less
  return _mm_sub_epi32(q, _mm_cmpgt_epi32(r, Set(D - 1)));  // r >= D: one more
}
inline __m128i Div6000(__m128i n) { return DivBy<6000>(n); }

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

// The three component factors of HsvToRgb on the 0..32640 scale: 32640 - s for p, and the
// factors of q and t; `sector` is hue / 6000.
inline void Factors(__m128i hue, __m128i sat, __m128i* sector, __m128i* fp, __m128i* fq,
                    __m128i* ft) {
  *sector = Div(hue, Set(6000));
  const __m128i f = _mm_sub_epi32(hue, Mul(*sector, Set(6000)));
  *fp = _mm_sub_epi32(Set(32640), sat);
  *fq = _mm_sub_epi32(Set(32640), Div6000(_mm_add_epi32(Mul(f, sat), Set(3000))));
  *ft = _mm_sub_epi32(Set(32640), Div6000(_mm_add_epi32(Mul(_mm_sub_epi32(Set(6000), f), sat), Set(3000))));
}

// The channels of sectors 0..5 from the value v and the components p, q, t (bytes), v itself
// for a grey (saturation 0).
inline void Sectors(__m128i sector, __m128i sat, __m128i v, __m128i p, __m128i q, __m128i t,
                    __m128i* r, __m128i* g, __m128i* b) {
  __m128i s[6];
  for (int k = 0; k < 6; ++k) s[k] = _mm_cmpeq_epi32(sector, Set(k));
  // Sectors 0..5: (v, t, p), (q, v, p), (p, v, t), (p, q, v), (t, p, v), (v, p, q).
  const __m128i nr = Select(_mm_or_si128(s[0], s[5]), v,
                            Select(s[1], q, Select(_mm_or_si128(s[2], s[3]), p, t)));
  const __m128i ng = Select(s[0], t, Select(_mm_or_si128(s[1], s[2]), v, Select(s[3], q, p)));
  const __m128i nb = Select(_mm_or_si128(s[0], s[1]), p,
                            Select(s[2], t, Select(_mm_or_si128(s[3], s[4]), v, q)));
  const __m128i grey = _mm_cmpeq_epi32(sat, Set(0));  // every channel is the value
  *r = Select(grey, v, nr);
  *g = Select(grey, v, ng);
  *b = Select(grey, v, nb);
}

// HsvToRgb of (hue, sat, 128 m) to bytes r, g, b.
inline void HsvToRgb(__m128i hue, __m128i sat, __m128i m, __m128i* r, __m128i* g, __m128i* b) {
  __m128i sector, fp, fq, ft;
  Factors(hue, sat, &sector, &fp, &fq, &ft);
  Sectors(sector, sat, m, Component(fp, m), Component(fq, m), Component(ft, m), r, g, b);
}

// HsvToRgb of (hue, sat, v) for any value v in 0..32640, to bytes r, g, b.
inline void HsvToRgbOfValue(__m128i hue, __m128i sat, __m128i v, __m128i* r, __m128i* g,
                            __m128i* b) {
  __m128i sector, fp, fq, ft;
  Factors(hue, sat, &sector, &fp, &fq, &ft);
  auto byte = [](__m128i c) { return _mm_srai_epi32(_mm_add_epi32(c, Set(64)), 7); };
  auto component = [&](__m128i factor) {
    return byte(DivBy<32640>(_mm_add_epi32(Mul(factor, v), Set(16320))));
  };
  Sectors(sector, sat, byte(v), component(fp), component(fq), component(ft), r, g, b);
}

}  // namespace hsv_sse41
}  // namespace
}  // namespace Vantyx
