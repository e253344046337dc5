// The Infrared kernels, SSE4.1 form: four pixels per step, one pixel per 32-bit lane, with the
// plain arithmetic lane by lane (the HSV helpers of imageops/hsv_sse41.h, the same float
// operations in the same order). The tails run the plain per-pixel code.
#include <smmintrin.h>

#include <cstdint>

#include "effects/common/pixel_loops_sse41.h"
#include "effects/infrared/infrared_kernels.h"
#include "effects/infrared/infrared_kernels_internal.h"
#include "imageops/hsv_sse41.h"
#include "vantyx.h"

namespace Vantyx {
namespace infrared {

using hsv_sse41::Set;
using pixel_loops::Channel;
using pixel_loops::EachQuad;
using pixel_loops::Pack;

namespace {

// B, G and R of each pixel (no constant at namespace scope: its initializer would run on any
// processor).
inline __m128i ColourBytes() { return Set(0x00FFFFFF); }

// The squared redmean distance of four pixels to the limit colour p, as the plain Distance:
// the divisions by 2 and 256 are exact scalings, the same as the plain form's.
inline __m128 Distance(const int32_t* p, __m128i r, __m128i g, __m128i b) {
  const __m128i dr = _mm_sub_epi32(Set(p[0]), r), dg = _mm_sub_epi32(Set(p[1]), g),
                db = _mm_sub_epi32(Set(p[2]), b);
  const __m128 rbar = _mm_mul_ps(_mm_cvtepi32_ps(_mm_add_epi32(Set(p[0]), r)), _mm_set1_ps(0.5f));
  const __m128 step = _mm_set1_ps(1.0f / 256.0f);
  const __m128 red = _mm_mul_ps(
      _mm_mul_ps(_mm_add_ps(rbar, _mm_set1_ps(512.0f)), _mm_cvtepi32_ps(_mm_mullo_epi32(dr, dr))),
      step);
  const __m128 green = _mm_mul_ps(_mm_set1_ps(4.0f), _mm_cvtepi32_ps(_mm_mullo_epi32(dg, dg)));
  const __m128 blue = _mm_mul_ps(
      _mm_mul_ps(_mm_sub_ps(_mm_set1_ps(767.0f), rbar), _mm_cvtepi32_ps(_mm_mullo_epi32(db, db))),
      step);
  return _mm_add_ps(_mm_add_ps(red, green), blue);
}

// The shared RgbToHsv with the plain helper's hue -1 for a grey (saturation 0 exactly then):
// the band tests and the hue shift read it.
inline void RgbToHsv(__m128i r, __m128i g, __m128i b, __m128i* hue, __m128i* sat, __m128i* mx) {
  hsv_sse41::RgbToHsv(r, g, b, hue, sat, mx);
  *hue = _mm_or_si128(*hue, _mm_cmpeq_epi32(*sat, _mm_setzero_si128()));
}

// Lanes whose hue lies in the band.
inline __m128i InBand(__m128i h, const HueBand& band) {
  const __m128i from = _mm_cmpgt_epi32(h, Set(band.h1 - 1)), to = _mm_cmplt_epi32(h, Set(band.h2 + 1));
  if (band.h1 < band.h2) return _mm_and_si128(from, to);
  if (band.h1 > band.h2) return _mm_or_si128(from, to);
  return _mm_cmplt_epi32(_mm_abs_epi32(_mm_sub_epi32(h, Set(band.h1))), Set(361));
}

}  // namespace

int32_t extract_hue_band_sse41(const ImageView& src, const ImageView& dst, const HueBand& band,
                               const ProcessRect& strip) {
  if (band.whole) return extract_hue_band_plain(src, dst, band, strip);  // a copy
  const __m128 tolerance = _mm_set1_ps(static_cast<float>(band.tolerance)), one = _mm_set1_ps(1.0f);
  const __m128i alpha = _mm_set1_epi32(int32_t(0xFF000000u));
  return EachQuad(
      src, src, dst, strip,
      [&](__m128i v, __m128i) {
        const __m128i r = Channel(v, 2), g = Channel(v, 1), b = Channel(v, 0);
        __m128i h, sat, mx;
        RgbToHsv(r, g, b, &h, &sat, &mx);
        const __m128i inside = InBand(h, band);
        if (_mm_movemask_epi8(inside) == 0xFFFF) return v;
        const __m128 dist = _mm_min_ps(Distance(band.p1, r, g, b), Distance(band.p2, r, g, b));
        const __m128 q = _mm_div_ps(_mm_cvtepi32_ps(_mm_cvttps_epi32(dist)), tolerance);
        const __m128 scaled = _mm_mul_ps(_mm_sub_ps(one, q), _mm_cvtepi32_ps(sat));
        const __m128i kept =
            _mm_and_si128(_mm_castps_si128(_mm_cmpge_ps(scaled, one)), _mm_cvttps_epi32(scaled));
        __m128i r2, g2, b2;
        hsv_sse41::HsvToRgb(h, kept, mx, &r2, &g2, &b2);
        const __m128i out = _mm_or_si128(Pack(b2, g2, r2, _mm_setzero_si128()), _mm_and_si128(v, alpha));
        return _mm_blendv_epi8(out, v, inside);
      },
      [&](const uint8_t* s, const uint8_t*, uint8_t* d) { detail::BandPixel(s, d, band); });
}

// S < L, L = ceil(threshold x 32640), without the division: with N = (mx >> 1) + 32640 mn,
// S = 32640 - floor(N / mx) < L exactly when N >= (32641 - L) mx. A grey pixel (S = 0) is
// removed for L >= 1; for L = 0 only black passes the test, and black stays black.
int32_t remove_low_saturation_sse41(const ImageView& img, float threshold,
                                    const ProcessRect& strip) {
  const float limit_f = threshold * 32640.0f;
  int32_t limit = static_cast<int32_t>(limit_f);
  if (static_cast<float>(limit) < limit_f) ++limit;
  const __m128i factor = Set(32641 - limit), colour = ColourBytes();
  return EachQuad(
      img, img, img, strip,
      [&](__m128i v, __m128i) {
        const __m128i r = Channel(v, 2), g = Channel(v, 1), b = Channel(v, 0);
        const __m128i mx = _mm_max_epi32(r, _mm_max_epi32(g, b));
        const __m128i mn = _mm_min_epi32(r, _mm_min_epi32(g, b));
        const __m128i n = _mm_add_epi32(_mm_srai_epi32(mx, 1), _mm_mullo_epi32(mn, Set(32640)));
        const __m128i low = _mm_cmpgt_epi32(_mm_add_epi32(n, Set(1)), _mm_mullo_epi32(factor, mx));
        return _mm_andnot_si128(_mm_and_si128(low, colour), v);
      },
      [&](const uint8_t*, const uint8_t*, uint8_t* p) { detail::RemovePixel(p, limit_f); });
}

int32_t extract_background_sse41(const ImageView& foreground, const ImageView& scaled,
                                 const ImageView& dst, const ProcessRect& strip) {
  const __m128i colour = ColourBytes();
  return EachQuad(
      foreground, scaled, dst, strip,
      [&](__m128i f, __m128i s) {
        const __m128i dark = _mm_cmpeq_epi32(_mm_and_si128(f, colour), _mm_setzero_si128());
        return _mm_blendv_epi8(_mm_andnot_si128(colour, s), s, dark);
      },
      detail::BackgroundPixel);
}

int32_t adjust_hsv_sse41(const ImageView& img, const HsvShift& shift, const ProcessRect& strip) {
  const __m128i full = Set(32640), zero = _mm_setzero_si128(), colour = ColourBytes();
  const __m128i dv = Set(shift.value), ds = Set(shift.saturation);
  const __m128 quarter = _mm_set1_ps(0.25f), dh = _mm_set1_ps(static_cast<float>(shift.hue));
  return EachQuad(
      img, img, img, strip,
      [&](__m128i v, __m128i) {
        // Black stays black (V = 0), which most pixels are after the low saturation went.
        if (_mm_testz_si128(v, colour)) return v;
        __m128i h, s, mx;
        RgbToHsv(Channel(v, 2), Channel(v, 1), Channel(v, 0), &h, &s, &mx);
        const __m128i value = _mm_slli_epi32(mx, 7);
        const __m128i v2 = _mm_andnot_si128(
            _mm_cmpeq_epi32(value, zero), _mm_min_epi32(_mm_max_epi32(_mm_add_epi32(value, dv), zero), full));
        const __m128i s2 = _mm_min_epi32(_mm_max_epi32(_mm_add_epi32(s, ds), zero), full);
        __m128i h2 = _mm_cvttps_epi32(_mm_add_ps(_mm_mul_ps(_mm_cvtepi32_ps(h), quarter), dh));
        h2 = _mm_sub_epi32(h2, _mm_and_si128(_mm_cmpgt_epi32(h2, Set(35999)), Set(36000)));
        __m128i r, g, b;
        hsv_sse41::HsvToRgbOfValue(h2, s2, v2, &r, &g, &b);
        return _mm_or_si128(Pack(b, g, r, zero), _mm_andnot_si128(colour, v));
      },
      [&](const uint8_t*, const uint8_t*, uint8_t* p) { detail::AdjustPixel(p, shift); });
}

int32_t combine_layers_sse41(const ImageView& foreground, const ImageView& background,
                             const ImageView& dst, const ProcessRect& strip) {
  return EachQuad(
      foreground, background, dst, strip, [](__m128i f, __m128i b) { return _mm_adds_epu8(f, b); },
      detail::CombinePixel);
}

}  // namespace infrared
}  // namespace Vantyx
