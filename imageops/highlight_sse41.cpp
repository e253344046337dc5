// The highlight key, SSE4.1 form: four pixels per step, the same bytes as the plain form.
//
// The luma is the plain float expression (the integer sum is below 2^24, so it converts
// exactly, and dividing by 65536 only scales it). The knee's 1 - L is formed in double by the
// plain form and then rounded to float; a single-precision subtraction rounds the same exact
// difference once (it needs at most 36 bits), so 1.0f - L is that float. The rest of the knee
// is the plain float arithmetic in the same order. The saturation rule's d m1 / m2 has a
// numerator below 2^23 and divides exactly in single precision; the HSV steps are
// imageops/hsv_sse41.h. test_glow checks all 2^24 colours at several thresholds.
#include <smmintrin.h>

#include <algorithm>
#include <cstring>

#include "imageops/highlight.h"
#include "imageops/hsv_sse41.h"
#include "vantyx.h"

namespace Vantyx {

namespace {

using hsv_sse41::Set;

struct KeyConstants {
  __m128i t_int;
  __m128 t;
  SaturationRule rule;
};

// Four BGRA pixels from `s` into `d`; `mask` holds their four mask bytes, or is null.
inline void Key4(const uint8_t* s, uint8_t* d, const int32_t* mask, const KeyConstants& k) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
  const __m128i byte = Set(0xFF);
  const __m128i b = _mm_and_si128(v, byte), g = _mm_and_si128(_mm_srli_epi32(v, 8), byte),
                r = _mm_and_si128(_mm_srli_epi32(v, 16), byte);
  const __m128i zero = _mm_setzero_si128();
  const __m128i db = _mm_min_epi32(_mm_max_epi32(_mm_sub_epi32(b, k.t_int), zero), Set(255));
  const __m128i dg = _mm_min_epi32(_mm_max_epi32(_mm_sub_epi32(g, k.t_int), zero), Set(255));
  const __m128i dr = _mm_min_epi32(_mm_max_epi32(_mm_sub_epi32(r, k.t_int), zero), Set(255));
  __m128i ob, og, orr;
  if (mask) {
    const __m128i m = _mm_loadu_si128(reinterpret_cast<const __m128i*>(mask));
    ob = _mm_srli_epi32(_mm_mullo_epi32(db, m), 8);
    og = _mm_srli_epi32(_mm_mullo_epi32(dg, m), 8);
    orr = _mm_srli_epi32(_mm_mullo_epi32(dr, m), 8);
  } else {
    const __m128i sum = _mm_add_epi32(
        _mm_add_epi32(_mm_mullo_epi32(g, Set(38665)), _mm_mullo_epi32(r, Set(19660))),
        _mm_mullo_epi32(b, Set(7209)));
    const __m128 luma =
        _mm_div_ps(_mm_mul_ps(_mm_cvtepi32_ps(sum), _mm_set1_ps(1.0f / 65536.0f)), _mm_set1_ps(255.0f));
    const __m128i lit = _mm_castps_si128(_mm_cmpge_ps(luma, k.t));
    if (_mm_testz_si128(lit, lit)) {  // all four below the threshold: black, alpha kept
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_andnot_si128(Set(0xFFFFFF), v));
      return;
    }
    const __m128 f = _mm_sub_ps(_mm_set1_ps(1.0f), luma);
    const __m128 q = _mm_mul_ps(_mm_mul_ps(_mm_mul_ps(_mm_set1_ps(2.0f), f), f), luma);
    const __m128 above = _mm_sub_ps(luma, k.t);
    const __m128i whole = _mm_castps_si128(_mm_cmpge_ps(above, q));
    const __m128 ratio = _mm_div_ps(above, q);
    auto knee = [&](__m128i c) {
      const __m128i faded = _mm_cvttps_epi32(
          _mm_add_ps(_mm_mul_ps(ratio, _mm_cvtepi32_ps(c)), _mm_set1_ps(0.49f)));
      return hsv_sse41::Select(whole, c, faded);
    };
    __m128i kb = knee(b), kg = knee(g), kr = knee(r);
    if (k.rule != SaturationRule::kNone) {
      // The thresholded colour at the knee's brightness, with at most three times the knee
      // output's saturation.
      const __m128i m1 = _mm_max_epi32(kb, _mm_max_epi32(kg, kr));
      const __m128i n1 = _mm_min_epi32(kb, _mm_min_epi32(kg, kr));
      const __m128i m2 = _mm_max_epi32(db, _mm_max_epi32(dg, dr));
      const __m128i rescale = k.rule == SaturationRule::kRescaleWhenLit ? _mm_cmpgt_epi32(m2, zero)
                                                                        : _mm_cmpgt_epi32(m1, m2);
      const __m128i m2d = _mm_max_epi32(m2, Set(1));
      auto scaled = [&](__m128i dc) {
        return hsv_sse41::Select(rescale, hsv_sse41::Div(_mm_mullo_epi32(dc, m1), m2d), dc);
      };
      __m128i hue, sat, mx;
      hsv_sse41::RgbToHsv(scaled(dr), scaled(dg), scaled(db), &hue, &sat, &mx);
      sat = _mm_min_epi32(sat, _mm_mullo_epi32(hsv_sse41::Saturation(m1, n1), Set(3)));
      hsv_sse41::HsvToRgb(hue, sat, mx, &kr, &kg, &kb);
    }
    ob = _mm_and_si128(kb, lit);
    og = _mm_and_si128(kg, lit);
    orr = _mm_and_si128(kr, lit);
  }
  const __m128i out = _mm_or_si128(_mm_or_si128(ob, _mm_slli_epi32(og, 8)),
                                   _mm_or_si128(_mm_slli_epi32(orr, 16), _mm_andnot_si128(Set(0xFFFFFF), v)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), out);
}

}  // namespace

void HighlightKeyRowSse41(const uint8_t* src_row, uint8_t* out, int32_t x_begin, int32_t x_end,
                          const uint8_t* mask_row, const MaskMap* map, int32_t threshold,
                          SaturationRule rule) {
  KeyConstants k;
  const int32_t t_int = std::clamp(threshold, -255, 255);
  k.t_int = Set(t_int);
  k.t = _mm_set1_ps(float(t_int) / 255.0f);
  k.rule = rule;
  alignas(16) int32_t m[4] = {0, 0, 0, 0};
  for (int32_t x = x_begin; x < x_end; x += 4) {
    const int32_t n = std::min(4, x_end - x);
    if (mask_row)
      for (int32_t i = 0; i < n; ++i) m[i] = mask_row[map->x0[size_t(x + i)]];
    const uint8_t* s = src_row + 4 * size_t(x);
    uint8_t* d = out + 4 * size_t(x - x_begin);
    if (n == 4) {
      Key4(s, d, mask_row ? m : nullptr, k);
      continue;
    }
    uint8_t in[16] = {}, res[16];  // the last 1..3 pixels through a copy
    std::memcpy(in, s, size_t(n) * 4);
    Key4(in, res, mask_row ? m : nullptr, k);
    std::memcpy(d, res, size_t(n) * 4);
  }
}

}  // namespace Vantyx
