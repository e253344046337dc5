// Bilinear resampling of BGRA bytes, SSE4.1 form: two destination pixels (eight 16-bit lanes)
// per vector, the same taps and arithmetic as the plain kernel.
//
// ((b - a) * f) >> 8 in 16-bit lanes: |b - a| <= 255 so (b - a) << 7 fits, f <= 255 so f << 1
// fits, and the high half of their signed product is floor((b - a) * f * 256 / 65536), which
// is the arithmetic shift of the plain kernel exactly, negative differences included.
#include <smmintrin.h>

#include <cstring>
#include <vector>

#include "imageops/resample.h"
#include "imageops/resample_internal.h"
#include "vantyx.h"

namespace Vantyx {

namespace {

inline int32_t Load32(const uint8_t* p) {
  int32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

// Two pixels' bytes widened to 16 bits.
inline __m128i Pair(const uint8_t* row, int32_t off0, int32_t off1) {
  const __m128i t = _mm_insert_epi32(_mm_cvtsi32_si128(Load32(row + off0)), Load32(row + off1), 1);
  return _mm_cvtepu8_epi16(t);
}

inline __m128i Lerp(__m128i a, __m128i b, __m128i f2) {
  return _mm_add_epi16(_mm_mulhi_epi16(_mm_slli_epi16(_mm_sub_epi16(b, a), 7), f2), a);
}

}  // namespace

int32_t resample_bilinear_u8_sse41(const ImageView& src, const ImageView& dst,
                                   const ProcessRect& src_rect, const ProcessRect& strip) {
  detail::ResampleJob job;
  const int32_t code = detail::ResampleSetup(src, dst, src_rect, strip, PIXEL_BGRA32, &job);
  if (code != 0 || job.row_begin == job.row_end) return code;
  const int32_t dw = dst.width;
  std::vector<detail::ResampleTap> cols(static_cast<size_t>(dw));
  detail::BuildResampleTaps(dw, src.width, job.src.left, job.src.right, 0, dw, cols.data());
  // Byte offsets of the two source pixels and the doubled fraction for each of the four
  // channels, laid out so that two columns load as one vector.
  std::vector<int32_t> off0(static_cast<size_t>(dw)), off1(static_cast<size_t>(dw));
  std::vector<int16_t> frac(static_cast<size_t>(dw) * 4);
  for (int32_t x = 0; x < dw; ++x) {
    off0[static_cast<size_t>(x)] = cols[static_cast<size_t>(x)].i0 * 4;
    off1[static_cast<size_t>(x)] = cols[static_cast<size_t>(x)].i1 * 4;
    for (int k = 0; k < 4; ++k)
      frac[static_cast<size_t>(x) * 4 + k] = static_cast<int16_t>(cols[static_cast<size_t>(x)].frac * 2);
  }

  for (int32_t y = job.row_begin; y < job.row_end; ++y) {
    detail::ResampleTap ty;
    detail::BuildResampleTaps(dst.height, src.height, job.src.top, job.src.bottom, y, y + 1, &ty);
    const __m128i fy = _mm_set1_epi16(static_cast<int16_t>(ty.frac * 2));
    const uint8_t* r0 = src.data + static_cast<ptrdiff_t>(ty.i0) * src.stride;
    const uint8_t* r1 = src.data + static_cast<ptrdiff_t>(ty.i1) * src.stride;
    uint8_t* d = dst.data + static_cast<ptrdiff_t>(y) * dst.stride;
    auto two = [&](int32_t x) {
      const __m128i fx = _mm_loadu_si128(reinterpret_cast<const __m128i*>(&frac[size_t(x) * 4]));
      const int32_t a0 = off0[size_t(x)], a1 = off0[size_t(x) + 1];
      const int32_t b0 = off1[size_t(x)], b1 = off1[size_t(x) + 1];
      const __m128i top = Lerp(Pair(r0, a0, a1), Pair(r0, b0, b1), fx);
      const __m128i bottom = Lerp(Pair(r1, a0, a1), Pair(r1, b0, b1), fx);
      return Lerp(top, bottom, fy);
    };
    int32_t x = 0;
    for (; x + 4 <= dw; x += 4) {
      const __m128i lo = two(x), hi = two(x + 2);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 4 * x), _mm_packus_epi16(lo, hi));
    }
    if (x + 2 <= dw) {
      const __m128i v = two(x);
      _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 4 * x), _mm_packus_epi16(v, v));
      x += 2;
    }
    if (x < dw) {  // the last pixel: the lower four lanes
      const __m128i fx = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(&frac[size_t(x) * 4]));
      const int32_t a = off0[size_t(x)], b = off1[size_t(x)];
      const __m128i top = Lerp(_mm_cvtepu8_epi16(_mm_cvtsi32_si128(Load32(r0 + a))),
                               _mm_cvtepu8_epi16(_mm_cvtsi32_si128(Load32(r0 + b))), fx);
      const __m128i bottom = Lerp(_mm_cvtepu8_epi16(_mm_cvtsi32_si128(Load32(r1 + a))),
                                  _mm_cvtepu8_epi16(_mm_cvtsi32_si128(Load32(r1 + b))), fx);
      const __m128i v = Lerp(top, bottom, fy);
      const int32_t px = _mm_cvtsi128_si32(_mm_packus_epi16(v, v));
      std::memcpy(d + 4 * x, &px, 4);
    }
  }
  return 0;
}

}  // namespace Vantyx
