// The Halation kernels, SSE4.1 form: four pixels per step, one pixel per 32-bit lane, with the
// plain arithmetic lane by lane (the same float operations in the same order; truncation by
// cvttps, whose out-of-range answer INT32_MIN is the plain form's saturation). The tails run
// the plain per-pixel code.
#include <smmintrin.h>

#include <cstdint>

#include "effects/common/pixel_loops_sse41.h"
#include "effects/halation/halation_kernels.h"
#include "effects/halation/halation_kernels_internal.h"
#include "vantyx.h"

namespace Vantyx {
namespace halation {

using pixel_loops::Channel;
using pixel_loops::EachQuad;
using pixel_loops::Pack;

namespace {

inline __m128i Luma(__m128i v) {
  const __m128i sum =
      _mm_add_epi32(_mm_add_epi32(_mm_mullo_epi32(Channel(v, 2), _mm_set1_epi32(19660)),
                                  _mm_mullo_epi32(Channel(v, 1), _mm_set1_epi32(38665))),
                    _mm_mullo_epi32(Channel(v, 0), _mm_set1_epi32(7209)));
  return _mm_srli_epi32(sum, 16);
}

// trunc(c f), 0 below 1 (trunc of anything in (-1, 1) is 0 already).
inline __m128i Faded(__m128i c, __m128 f) {
  return _mm_max_epi32(_mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(c), f)), _mm_setzero_si128());
}

}  // namespace

int32_t key_luma_sse41(const ImageView& src, const ImageView& dst, int32_t threshold, float gain,
                       const ProcessRect& strip) {
  const __m128i t = _mm_set1_epi32(threshold), below = _mm_set1_epi32(threshold - 1);
  const __m128 tf = _mm_set1_ps(static_cast<float>(threshold)), g = _mm_set1_ps(gain);
  const __m128 one = _mm_set1_ps(1.0f), fifteen = _mm_set1_ps(15.0f), top = _mm_set1_ps(255.0f);
  const __m128i low_byte = _mm_set1_epi32(0xFF), alpha = _mm_set1_epi32(int32_t(0xFF000000u));
  const __m128i dark = _mm_set1_epi32(threshold - 14);  // L < dark: L <= T - 15
  return EachQuad(
      src, src, dst, strip,
      [&](__m128i v, __m128i) {
        const __m128i l = Luma(v);
        // Most pixels lie 15 or more below T, where f <= 0 and every colour byte is 0.
        if (_mm_movemask_epi8(_mm_cmplt_epi32(l, dark)) == 0xFFFF) return _mm_and_si128(v, alpha);
        const __m128i keep = _mm_cmpgt_epi32(l, below);  // L >= T
        const __m128i b = Channel(v, 0), gr = Channel(v, 1), r = Channel(v, 2);
        const __m128 red =
            _mm_min_ps(_mm_add_ps(_mm_mul_ps(_mm_cvtepi32_ps(_mm_sub_epi32(r, t)), g), tf), top);
        const __m128i kept_r = _mm_and_si128(_mm_cvttps_epi32(red), low_byte);
        const __m128 f = _mm_sub_ps(one, _mm_div_ps(_mm_cvtepi32_ps(_mm_sub_epi32(t, l)), fifteen));
        return Pack(_mm_blendv_epi8(Faded(b, f), b, keep), _mm_blendv_epi8(Faded(gr, f), gr, keep),
                    _mm_blendv_epi8(Faded(r, f), kept_r, keep), _mm_srli_epi32(v, 24));
      },
      [&](const uint8_t* s, const uint8_t*, uint8_t* d) {
        detail::KeyPixel(s, d, threshold, gain);
      });
}

int32_t extract_midtone_sse41(const ImageView& src, const ImageView& dst, int32_t threshold,
                              const ProcessRect& strip) {
  const float range_f = detail::MidtoneRange(threshold);
  const __m128i t = _mm_set1_epi32(threshold);
  const __m128 one = _mm_set1_ps(1.0f), range = _mm_set1_ps(range_f);
  const __m128i colour = _mm_set1_epi32(0x00FFFFFF), alpha = _mm_set1_epi32(int32_t(0xFF000000u));
  const __m128i dark = _mm_set1_epi32(threshold - int32_t(range_f));
  return EachQuad(
      src, src, dst, strip,
      [&](__m128i v, __m128i) {
        const __m128i l = Luma(v);
        const __m128i fade = _mm_cmplt_epi32(l, t);
        // Pixels at T or above are copied; at T - D or below f <= 0 leaves only alpha.
        if (_mm_movemask_epi8(fade) == 0) return v;
        if (_mm_movemask_epi8(_mm_cmpgt_epi32(l, dark)) == 0) return _mm_and_si128(v, alpha);
        const __m128 f = _mm_sub_ps(one, _mm_div_ps(_mm_cvtepi32_ps(_mm_sub_epi32(t, l)), range));
        const __m128i faded = Pack(Faded(Channel(v, 0), f), Faded(Channel(v, 1), f),
                                   Faded(Channel(v, 2), f), _mm_srli_epi32(v, 24));
        return _mm_blendv_epi8(v, faded, _mm_and_si128(fade, colour));
      },
      [&](const uint8_t* s, const uint8_t*, uint8_t* d) {
        detail::MidtonePixel(s, d, threshold, range_f);
      });
}

int32_t compare_masks_sse41(const ImageView& highlight, const ImageView& midtone,
                            const ImageView& dst, const ProcessRect& strip) {
  const __m128i blue = _mm_set1_epi32(0xFF), alpha = _mm_set1_epi32(int32_t(0xFF000000u));
  return EachQuad(
      highlight, midtone, dst, strip,
      [&](__m128i h, __m128i m) {
        return _mm_or_si128(_mm_blendv_epi8(_mm_max_epu8(h, m), h, blue), alpha);
      },
      detail::ComparePixel);
}

int32_t decide_visible_sse41(const ImageView& src, const ImageView& colour, const ImageView& dst,
                             int32_t threshold, const ProcessRect& strip) {
  const __m128i t = _mm_set1_epi32(threshold), reach = _mm_set1_epi32(threshold + 100);
  const __m128 hundred = _mm_set1_ps(100.0f), one = _mm_set1_ps(1.0f);
  const __m128i colour_bytes = _mm_set1_epi32(0x00FFFFFF);
  const bool none = threshold == 0;
  return EachQuad(
      src, colour, dst, strip,
      [&](__m128i s, __m128i c) {
        if (none) return _mm_and_si128(c, colour_bytes);  // w = 0: alpha 0
        const __m128i l = Luma(s);
        const __m128i below = _mm_cmpgt_epi32(_mm_add_epi32(t, _mm_set1_epi32(1)), l);  // L <= T
        if (_mm_movemask_epi8(below) == 0xFFFF) return c;  // w = 1 keeps alpha: most pixels
        const __m128 fade = _mm_div_ps(
            _mm_cvtepi32_ps(_mm_max_epi32(_mm_sub_epi32(reach, l), _mm_setzero_si128())), hundred);
        const __m128 w = _mm_blendv_ps(fade, one, _mm_castsi128_ps(below));
        const __m128i a = _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(_mm_srli_epi32(c, 24)), w));
        return _mm_or_si128(_mm_and_si128(c, colour_bytes), _mm_slli_epi32(a, 24));
      },
      [&](const uint8_t* s, const uint8_t* c, uint8_t* d) {
        detail::DecidePixel(s, c, d, threshold);
      });
}

}  // namespace halation
}  // namespace Vantyx
