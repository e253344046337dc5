// Bilinear resampling of BGRA bytes, SSE4.1 form: the same taps and arithmetic as the plain
// kernel, one destination row at a time (ResampleRowsU8). A row is the vertical interpolation
// of two horizontally interpolated source rows; those are kept, so enlarging interpolates each
// source row once for the two destination rows that use it.
//
// ((b - a) * f) >> 8 in 16-bit lanes: |b - a| <= 255 so (b - a) << 7 fits, f <= 255 so f << 1
// fits, and the high half of their signed product is floor((b - a) * f * 256 / 65536), which
// is the arithmetic shift of the plain kernel exactly, negative differences included. Every
// horizontal result lies between its two bytes, so it is kept as a byte.
//
// With a fraction of 128 the rule is a + floor((b - a) / 2) = floor((a + b) / 2), which bytes
// give directly as avg(a, b) - ((a ^ b) & 1): halving to an exact half size takes that path.
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

// floor((a + b) / 2) per byte.
inline __m128i FloorAverage(__m128i a, __m128i b) {
  return _mm_sub_epi8(_mm_avg_epu8(a, b), _mm_and_si128(_mm_xor_si128(a, b), _mm_set1_epi8(1)));
}

inline __m128i Load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void Store(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

}  // namespace

namespace detail {

const uint8_t* ResampleRowsU8::HorizontalSse41(int32_t src_row) {
  for (int k = 0; k < 2; ++k)
    if (row_of_[k] == src_row) return rows_[k].data();
  const int slot = next_slot_;
  next_slot_ ^= 1;
  row_of_[slot] = src_row;
  uint8_t* out = rows_[slot].data();
  const uint8_t* row = src_.data + static_cast<ptrdiff_t>(src_row) * src_.stride;
  const int32_t n = count_;
  int32_t x = 0;
  if (halving_from_ >= 0) {
    const uint8_t* p = row + 4 * static_cast<ptrdiff_t>(halving_from_);
    for (; x + 4 <= n; x += 4, p += 32) {
      // Pixels 0..7 of the pair run: the even ones and the odd ones side by side.
      const __m128i a = _mm_shuffle_epi32(Load(p), _MM_SHUFFLE(3, 1, 2, 0));
      const __m128i b = _mm_shuffle_epi32(Load(p + 16), _MM_SHUFFLE(3, 1, 2, 0));
      Store(out + 4 * x, FloorAverage(_mm_unpacklo_epi64(a, b), _mm_unpackhi_epi64(a, b)));
    }
  }
  const __m128i doubling_f01 = _mm_setr_epi16(384, 384, 384, 384, 128, 128, 128, 128);
  for (; x + 4 <= n; x += 4) {
    if (doubling_[size_t(x) / 4]) {
      const __m128i run = Load(row + off0_[size_t(x)]);
      const __m128i a = _mm_shuffle_epi32(run, _MM_SHUFFLE(2, 1, 1, 0));
      const __m128i b = _mm_shuffle_epi32(run, _MM_SHUFFLE(3, 2, 2, 1));
      const __m128i zero = _mm_setzero_si128();
      const __m128i lo = Lerp(_mm_cvtepu8_epi16(a), _mm_cvtepu8_epi16(b), doubling_f01);
      const __m128i hi = Lerp(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero), doubling_f01);
      Store(out + 4 * x, _mm_packus_epi16(lo, hi));
      continue;
    }
    const __m128i f01 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(&frac2_[size_t(x) * 4]));
    const __m128i f23 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(&frac2_[size_t(x) * 4 + 8]));
    const int32_t* o0 = &off0_[size_t(x)];
    const int32_t* o1 = &off1_[size_t(x)];
    const __m128i lo = Lerp(Pair(row, o0[0], o0[1]), Pair(row, o1[0], o1[1]), f01);
    const __m128i hi = Lerp(Pair(row, o0[2], o0[3]), Pair(row, o1[2], o1[3]), f23);
    Store(out + 4 * x, _mm_packus_epi16(lo, hi));
  }
  for (; x < n; x += 2) {  // one or two columns (the spare column pairs with the last)
    const __m128i f = _mm_loadu_si128(reinterpret_cast<const __m128i*>(&frac2_[size_t(x) * 4]));
    const __m128i v = Lerp(Pair(row, off0_[size_t(x)], off0_[size_t(x) + 1]),
                           Pair(row, off1_[size_t(x)], off1_[size_t(x) + 1]), f);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 4 * x), _mm_packus_epi16(v, v));
  }
  return out;
}

void ResampleRowsU8::RowSse41(int32_t y, uint8_t* out) {
  ResampleTap ty;
  BuildResampleTaps(dst_h_, src_.height, area_.top, area_.bottom, y, y + 1, &ty);
  const size_t bytes = static_cast<size_t>(count_) * 4;
  const uint8_t* top = HorizontalSse41(ty.i0);
  if (ty.i1 == ty.i0 || ty.frac == 0) {
    std::memcpy(out, top, bytes);
    return;
  }
  const uint8_t* bottom = HorizontalSse41(ty.i1);
  size_t k = 0;
  if (ty.frac == 128) {
    for (; k + 16 <= bytes; k += 16) Store(out + k, FloorAverage(Load(top + k), Load(bottom + k)));
  } else {
    const __m128i fy = _mm_set1_epi16(static_cast<int16_t>(ty.frac * 2));
    const __m128i zero = _mm_setzero_si128();
    for (; k + 16 <= bytes; k += 16) {
      const __m128i t = Load(top + k), b = Load(bottom + k);
      const __m128i lo = Lerp(_mm_cvtepu8_epi16(t), _mm_cvtepu8_epi16(b), fy);
      const __m128i hi = Lerp(_mm_unpackhi_epi8(t, zero), _mm_unpackhi_epi8(b, zero), fy);
      Store(out + k, _mm_packus_epi16(lo, hi));
    }
  }
  for (; k < bytes; ++k) {
    const int32_t a = top[k];
    out[k] = static_cast<uint8_t>((((bottom[k] - a) * ty.frac) >> 8) + a);
  }
}

}  // namespace detail

int32_t resample_bilinear_u8_sse41(const ImageView& src, const ImageView& dst,
                                   const ProcessRect& src_rect, const ProcessRect& strip) {
  detail::ResampleJob job;
  const int32_t code = detail::ResampleSetup(src, dst, src_rect, strip, PIXEL_BGRA32, &job);
  if (code != 0 || job.row_begin == job.row_end) return code;
  detail::ResampleRowsU8 rows;
  rows.Init(src, job.src, dst.width, dst.height, 0, dst.width);
  for (int32_t y = job.row_begin; y < job.row_end; ++y)
    rows.RowSse41(y, dst.data + static_cast<ptrdiff_t>(y) * dst.stride);
  return 0;
}

}  // namespace Vantyx
