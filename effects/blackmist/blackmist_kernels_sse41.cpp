// "adjust color", SSE4.1 form: four pixels per step, the same bytes as the plain form.
//
// The tint colour depends only on a pixel's largest channel, so it comes from a 256-entry table
// of the plain HsvToRgb. The mix is the plain form's float arithmetic; clamping to 0..255 in
// float before truncating gives the plain clamp of the truncation for every value, NaN
// included (maxps returns its second operand, 0, for a NaN).
//
// The HSV round trip works in 32-bit lanes. Its divisions are exact in single precision where
// the numerator stays below 2^23 (see blend_sse41.cpp): the saturation's ((mx >> 1) + mn 32640)
// / mx, the hue's (d 6000 + half) / delta, the sector h / 6000, and every HSV component: with
// value = 128 m the plain (factor 128 m + 16320) / 32640 is floor((factor m + 127.5) / 255),
// which is floor((factor m + 127) / 255) since factor m is an integer, and factor m <= 32640 x
// 255. Only (f s + 3000) / 6000 passes 2^23; its float quotient is within 0.01 of the true one,
// so truncating it is off by at most one, which the remainder corrects.
#include <smmintrin.h>

#include <cstring>

#include "effects/blackmist/blackmist_kernels.h"
#include "vantyx.h"

namespace Vantyx {
namespace blackmist {

namespace {

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
  q = _mm_add_epi32(q, _mm_cmpgt_epi32(Set(0), r));                           // r < 0: one less
  return _mm_sub_epi32(q, _mm_cmpgt_epi32(r, Set(5999)));                     // r >= 6000: one more
}

// The byte of an HSV component (factor on the 0..32640 scale, value 128 m).
inline __m128i Component(__m128i factor, __m128i m) {
  const __m128i scaled = Div(_mm_add_epi32(Mul(factor, m), Set(127)), Set(255));
  return _mm_srai_epi32(_mm_add_epi32(scaled, Set(64)), 7);
}

// Four pixels' r, g, b (0..255) through RgbToHsv and back through HsvToRgb.
inline void RoundTrip(__m128i* r, __m128i* g, __m128i* b) {
  const __m128i mx = _mm_max_epi32(*r, _mm_max_epi32(*g, *b));
  const __m128i mn = _mm_min_epi32(*r, _mm_min_epi32(*g, *b));
  const __m128i delta = _mm_sub_epi32(mx, mn);
  const __m128i grey = _mm_cmpeq_epi32(delta, Set(0));
  const __m128i sat = _mm_sub_epi32(
      Set(32640), Div(_mm_add_epi32(_mm_srai_epi32(mx, 1), Mul(mn, Set(32640))), _mm_max_epi32(mx, Set(1))));
  // Hue: ties go to red, then green.
  const __m128i is_r = _mm_cmpeq_epi32(mx, *r), is_g = _mm_cmpeq_epi32(mx, *g);
  const __m128i diff =
      Select(is_r, _mm_sub_epi32(*g, *b), Select(is_g, _mm_sub_epi32(*b, *r), _mm_sub_epi32(*r, *g)));
  const __m128i base = Select(is_r, Set(0), Select(is_g, Set(12000), Set(24000)));
  const __m128i num = _mm_add_epi32(Mul(diff, Set(6000)), _mm_srai_epi32(delta, 1));
  __m128i h = _mm_add_epi32(Div(num, _mm_max_epi32(delta, Set(1))), base);
  h = _mm_add_epi32(h, _mm_and_si128(_mm_cmpgt_epi32(Set(0), h), Set(36000)));

  const __m128i sector = Div(h, Set(6000));
  const __m128i f = _mm_sub_epi32(h, Mul(sector, Set(6000)));
  const __m128i p = Component(_mm_sub_epi32(Set(32640), sat), mx);
  const __m128i q = Component(_mm_sub_epi32(Set(32640), Div6000(_mm_add_epi32(Mul(f, sat), Set(3000)))), mx);
  const __m128i t = Component(
      _mm_sub_epi32(Set(32640), Div6000(_mm_add_epi32(Mul(_mm_sub_epi32(Set(6000), f), sat), Set(3000)))),
      mx);
  __m128i s[6];
  for (int k = 0; k < 6; ++k) s[k] = _mm_cmpeq_epi32(sector, Set(k));
  auto any = [](__m128i a, __m128i b2) { return _mm_or_si128(a, b2); };
  // Sectors 0..5: (v, t, p), (q, v, p), (p, v, t), (p, q, v), (t, p, v), (v, p, q).
  const __m128i nr = Select(any(s[0], s[5]), mx, Select(s[1], q, Select(any(s[2], s[3]), p, t)));
  const __m128i ng = Select(s[0], t, Select(any(s[1], s[2]), mx, Select(s[3], q, p)));
  const __m128i nb = Select(any(s[0], s[1]), p, Select(s[2], t, Select(any(s[3], s[4]), mx, q)));
  *r = Select(grey, mx, nr);
  *g = Select(grey, mx, ng);
  *b = Select(grey, mx, nb);
}

// Four BGRA pixels in place.
inline void TintFour(uint8_t* px, const TintTable& table, __m128 keep, __m128 amount,
                     __m128 brightness) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(px));
  const __m128i byte = Set(0xFF);
  __m128i c[3] = {_mm_and_si128(_mm_srli_epi32(v, 16), byte),  // r, g, b
                  _mm_and_si128(_mm_srli_epi32(v, 8), byte), _mm_and_si128(v, byte)};
  alignas(16) int32_t m[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(m), _mm_max_epi32(c[0], _mm_max_epi32(c[1], c[2])));
  const __m128 lo = _mm_setzero_ps(), hi = _mm_set1_ps(255.0f);
  for (int i = 0; i < 3; ++i) {
    const int32_t* t = table.rgb[i];
    const __m128i tint = _mm_setr_epi32(t[m[0]], t[m[1]], t[m[2]], t[m[3]]);
    const __m128 mix = _mm_add_ps(_mm_mul_ps(_mm_cvtepi32_ps(c[i]), keep),
                                  _mm_mul_ps(_mm_cvtepi32_ps(tint), amount));
    c[i] = _mm_cvttps_epi32(_mm_min_ps(_mm_max_ps(mix, lo), hi));
  }
  RoundTrip(&c[0], &c[1], &c[2]);
  for (int i = 0; i < 3; ++i) c[i] = _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(c[i]), brightness));
  const __m128i out = _mm_or_si128(_mm_or_si128(c[2], _mm_slli_epi32(c[1], 8)),
                                   _mm_or_si128(_mm_slli_epi32(c[0], 16), _mm_andnot_si128(Set(0xFFFFFF), v)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(px), out);
}

}  // namespace

int32_t adjust_color_sse41(const ImageView& img, float amount, float hue, float brightness,
                           const ProcessRect& strip) {
  if (!img.data) return VX_E_POINTER;
  if (img.format != PIXEL_BGRA32) return VX_E_INVALIDARG;
  const Area area = Clip(AreaOf(strip), img);
  if (area.Empty()) return VX_OK;
  TintTable table;
  BuildTintTable(amount, hue, &table);
  const __m128 keep = _mm_set1_ps(1.0f - amount), amt = _mm_set1_ps(amount);
  const __m128 bright = _mm_set1_ps(brightness);
  const int32_t n = area.right - area.left;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    uint8_t* p = img.At(area.left, y);
    int32_t x = 0;
    for (; x + 4 <= n; x += 4) TintFour(p + 4 * x, table, keep, amt, bright);
    if (x < n) {  // the last 1..3 pixels through a copy
      uint8_t tail[16] = {};
      const size_t bytes = size_t(n - x) * 4;
      std::memcpy(tail, p + 4 * x, bytes);
      TintFour(tail, table, keep, amt, bright);
      std::memcpy(p + 4 * x, tail, bytes);
    }
  }
  return VX_OK;
}

}  // namespace blackmist
}  // namespace Vantyx
