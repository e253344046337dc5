// Amberfade's per-pixel stages, SSE4.1 forms: four pixels per step, the same bytes as the plain
// forms (the last one to three pixels of a row run the plain per-pixel code). Table lookups stay
// scalar (four loads a step). The divisions c x Y0 / Y1 go through single precision: with
// n = c x Y0 < 2^24 and d = Y1, n + d < 2^24 (at most 255 x 65279 + 65279), so the true quotient
// lies more than half an ulp below the next integer and the rounded float truncates to the
// integer quotient.
#include <smmintrin.h>

#include "effects/amberfade/amberfade_kernels.h"
#include "effects/amberfade/amberfade_kernels_internal.h"
#include "effects/common/pixel_loops_sse41.h"
#include "imageops/pixel_ops.h"
#include "vantyx.h"

namespace Vantyx {
namespace amberfade {

namespace {

using pixel_loops::Channel;
using pixel_loops::EachQuad;

inline __m128i Set(int32_t v) { return _mm_set1_epi32(v); }
inline __m128i Mul(__m128i a, int32_t k) { return _mm_mullo_epi32(a, Set(k)); }
inline __m128i Div(__m128i n, __m128i d) {
  return _mm_cvttps_epi32(_mm_div_ps(_mm_cvtepi32_ps(n), _mm_cvtepi32_ps(d)));
}
// B, G, R (their low eight bits) over the alpha of v.
inline __m128i PackOver(__m128i b, __m128i g, __m128i r, __m128i v) {
  const __m128i byte = Set(0xFF);
  return pixel_loops::Pack(_mm_and_si128(b, byte), _mm_and_si128(g, byte), _mm_and_si128(r, byte),
                           Channel(v, 3));
}
template <class T>
inline __m128i Lookup(const T* table, __m128i i) {
  alignas(16) int32_t at[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(at), i);
  return _mm_setr_epi32(int32_t(table[at[0]]), int32_t(table[at[1]]), int32_t(table[at[2]]),
                        int32_t(table[at[3]]));
}

}  // namespace

int32_t apply_gamma_sse41(const ImageView& img, const uint32_t* table, const ProcessRect& strip) {
  if (!table) return VX_E_POINTER;
  const __m128i zero = _mm_setzero_si128();
  auto quad = [&](__m128i v, __m128i) {
    const __m128i b = Channel(v, 0), g = Channel(v, 1), r = Channel(v, 2);
    const __m128i index =
        _mm_srli_epi32(_mm_add_epi32(_mm_add_epi32(Mul(b, 7471), Mul(r, 19595)), Mul(g, 38470)), 10);
    const __m128i yg = Lookup(table, index);
    const __m128i u = _mm_srai_epi32(
        _mm_add_epi32(_mm_sub_epi32(_mm_sub_epi32(Mul(b, 41419), Mul(r, 13959)), Mul(g, 27460)), Set(0x800000)), 8);
    const __m128i w = _mm_srai_epi32(
        _mm_sub_epi32(_mm_sub_epi32(Mul(_mm_add_epi32(r, Set(256)), 32768), Mul(b, 5308)), Mul(g, 27460)), 8);
    // Each "0 when below 1" (or below 256 before the shift) is a maximum with 0 after it.
    const __m128i nb = _mm_srai_epi32(
        _mm_add_epi32(_mm_srai_epi32(Mul(_mm_sub_epi32(u, Set(32768)), 2066), 10), yg), 8);
    const __m128i ng = _mm_srai_epi32(
        _mm_add_epi32(_mm_srai_epi32(_mm_add_epi32(_mm_sub_epi32(Mul(u, -400), Mul(w, 833)), Set(0x2680000)), 10), yg), 8);
    const __m128i nr = _mm_srai_epi32(
        _mm_add_epi32(_mm_srai_epi32(Mul(_mm_sub_epi32(w, Set(32768)), 1634), 10), yg), 8);
    return PackOver(_mm_max_epi32(nb, zero), _mm_max_epi32(ng, zero), _mm_max_epi32(nr, zero), v);
  };
  return EachQuad(img, img, img, strip, quad, [&](const uint8_t*, const uint8_t*, uint8_t* p) {
    detail::GammaPixel(p, table);
  });
}

int32_t adjust_temperature_sse41(const ImageView& img, const TemperatureTable& t, const ProcessRect& strip) {
  const __m128i zero = _mm_setzero_si128(), top = Set(255);
  const __m128 fb = _mm_set1_ps(t.factor[0]), fg = _mm_set1_ps(t.factor[1]), fr = _mm_set1_ps(t.factor[2]);
  auto quad = [&](__m128i v, __m128i) {
    const __m128i b0 = Channel(v, 0), g0 = Channel(v, 1), r0 = Channel(v, 2);
    const __m128i y0 = _mm_srli_epi32(_mm_add_epi32(_mm_add_epi32(Mul(r0, 19660), Mul(b0, 7209)), Mul(g0, 38665)), 8);
    // trunc(c x factor) as the table holds it: one single-precision product, in 0..255.
    const __m128i b = _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(b0), fb));
    const __m128i g = _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(g0), fg));
    const __m128i r = _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(r0), fr));
    const __m128i y1 = _mm_srli_epi32(_mm_add_epi32(_mm_add_epi32(Mul(r, 19660), Mul(b, 7209)), Mul(g, 38665)), 8);
    const __m128i keep = _mm_or_si128(_mm_cmpeq_epi32(y0, zero), _mm_cmpeq_epi32(y1, zero));
    const __m128i d = _mm_max_epi32(y1, Set(1));
    auto back = [&](__m128i c) {
      return _mm_blendv_epi8(_mm_min_epi32(Div(_mm_mullo_epi32(c, y0), d), top), c, keep);
    };
    return PackOver(back(b), back(g), back(r), v);
  };
  return EachQuad(img, img, img, strip, quad, [&](const uint8_t*, const uint8_t*, uint8_t* p) {
    detail::TemperaturePixel(p, t);
  });
}

int32_t weight_blue_sse41(const ImageView& blurred, const ImageView& dst, const BlueWeights& w,
                          const ProcessRect& strip) {
  const __m128i zero = _mm_setzero_si128(), top = Set(255);
  // Steps 1 and 2 on the blurred pixels, then the weighted sum.
  auto quad = [&](__m128i v, __m128i) {
    const __m128i b = Channel(v, 0), g0 = Channel(v, 1), r0 = Channel(v, 2);
    const __m128i y0 = _mm_add_epi32(_mm_add_epi32(Mul(r0, 19660), Mul(g0, 38665)), Mul(b, 7209));
    const __m128i g = Lookup(w.green, g0), r = Lookup(w.red, r0);
    const __m128i y1 = _mm_srli_epi32(_mm_add_epi32(_mm_add_epi32(Mul(b, 7209), Mul(r, 19660)), Mul(g, 38665)), 8);
    const __m128i rescale = _mm_andnot_si128(_mm_cmpeq_epi32(y1, zero), _mm_cmpgt_epi32(y0, top));
    const __m128i y0s = _mm_srli_epi32(y0, 8), d = _mm_max_epi32(y1, Set(1));
    auto back = [&](__m128i c) {
      return _mm_blendv_epi8(c, _mm_min_epi32(Div(_mm_mullo_epi32(c, y0s), d), top), rescale);
    };
    return PackOver(back(b), back(g), back(r), v);
  };
  const int32_t rc = EachQuad(blurred, blurred, blurred, strip, quad,
                              [&](const uint8_t*, const uint8_t*, uint8_t* p) { detail::BluePixel(p, w); });
  return rc < 0 ? rc : weighting_sum_sse41(blurred, dst, w.tint16, w.result16, strip);
}

}  // namespace amberfade
}  // namespace Vantyx
