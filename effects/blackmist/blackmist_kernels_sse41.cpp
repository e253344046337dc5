// "adjust color", SSE4.1 form: four pixels per step, the same bytes as the plain form.
//
// The tint colour depends only on a pixel's largest channel, so it comes from a 256-entry table
// of the plain HsvToRgb. The mix is the plain form's float arithmetic; clamping to 0..255 in
// float before truncating gives the plain clamp of the truncation for every value, NaN
// included (maxps returns its second operand, 0, for a NaN). The plain form then converts the
// mixed colour to HSV and back unchanged; for 8-bit channels that round trip gives back every
// one of the 2^24 colours (checked over all of them), so here it is left out. A brightness of
// 1 leaves every byte as it is and skips its multiply too.
#include <smmintrin.h>

#include <cstring>

#include "effects/blackmist/blackmist_kernels.h"
#include "vantyx.h"

namespace Vantyx {
namespace blackmist {

namespace {

inline __m128i Set(int32_t v) { return _mm_set1_epi32(v); }

// Four BGRA pixels in place.
template <bool kScaled>
inline void TintFour(uint8_t* px, const TintTable& table, __m128 keep, __m128 amount,
                     __m128 brightness) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(px));
  // Black stays black: its tint colour (value 0) is black, and so is every step after.
  if (_mm_testz_si128(v, Set(0xFFFFFF))) return;
  const __m128i byte = Set(0xFF);
  const __m128i c[3] = {_mm_and_si128(_mm_srli_epi32(v, 16), byte),  // r, g, b
                        _mm_and_si128(_mm_srli_epi32(v, 8), byte), _mm_and_si128(v, byte)};
  alignas(16) int32_t m[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(m), _mm_max_epi32(c[0], _mm_max_epi32(c[1], c[2])));
  const uint32_t* t = table.packed;
  const __m128i tint = _mm_setr_epi32(int32_t(t[m[0]]), int32_t(t[m[1]]), int32_t(t[m[2]]),
                                      int32_t(t[m[3]]));
  const __m128 lo = _mm_setzero_ps(), hi = _mm_set1_ps(255.0f);
  __m128i out = _mm_andnot_si128(Set(0xFFFFFF), v);
  for (int i = 0; i < 3; ++i) {
    const int shift = 16 - 8 * i;
    const __m128i tc = _mm_and_si128(_mm_srli_epi32(tint, shift), byte);
    const __m128 mix = _mm_add_ps(_mm_mul_ps(_mm_cvtepi32_ps(c[i]), keep),
                                  _mm_mul_ps(_mm_cvtepi32_ps(tc), amount));
    __m128i ci = _mm_cvttps_epi32(_mm_min_ps(_mm_max_ps(mix, lo), hi));
    if (kScaled) ci = _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(ci), brightness));
    out = _mm_or_si128(out, _mm_sll_epi32(ci, _mm_cvtsi32_si128(shift)));
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(px), out);
}

template <bool kScaled>
void TintRows(const ImageView& img, const Area& area, const TintTable& table, float amount,
              float brightness) {
  const __m128 keep = _mm_set1_ps(1.0f - amount), amt = _mm_set1_ps(amount);
  const __m128 bright = _mm_set1_ps(brightness);
  const int32_t n = area.right - area.left;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    uint8_t* p = img.At(area.left, y);
    int32_t x = 0;
    for (; x + 4 <= n; x += 4) TintFour<kScaled>(p + 4 * x, table, keep, amt, bright);
    if (x < n) {  // the last 1..3 pixels through a copy
      uint8_t tail[16] = {};
      const size_t bytes = size_t(n - x) * 4;
      std::memcpy(tail, p + 4 * x, bytes);
      TintFour<kScaled>(tail, table, keep, amt, bright);
      std::memcpy(p + 4 * x, tail, bytes);
    }
  }
}

}  // namespace

int32_t adjust_color_sse41(const ImageView& img, float amount, float hue, float brightness,
                           const ProcessRect& strip, const TintTable* prepared) {
  if (!img.data) return VX_E_POINTER;
  if (img.format != PIXEL_BGRA32) return VX_E_INVALIDARG;
  const Area area = Clip(AreaOf(strip), img);
  if (area.Empty()) return VX_OK;
  TintTable own;
  if (!prepared) BuildTintTable(amount, hue, &own);
  const TintTable& table = prepared ? *prepared : own;
  if (brightness == 1.0f)
    TintRows<false>(img, area, table, amount, brightness);
  else
    TintRows<true>(img, area, table, amount, brightness);
  return VX_OK;
}

}  // namespace blackmist
}  // namespace Vantyx
