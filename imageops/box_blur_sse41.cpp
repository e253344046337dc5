// Running-sum box blur, SSE4.1 form. Bytes and float bits match the plain form exactly.
//
// 8-bit images (BGRA32 B, G, R; GRAY8 vertically) keep their running sums in int32. Each value
// the plain form's float sum takes is a sum of samples of one window (a window, or one less the
// sample leaving it): an integer from 0 to 255 x c, c = min(n, 2r - 1) the largest window, and
// float adds and subtracts of such integers are exact while they stay within 2^24. So while
// 255 x c <= 2^24 the plain form's S is the exact window sum, the int32 sum converted to float
// is the same S, and S / count is the same float division. Longer windows (never met in
// practice) run the plain code.
//
// The byte is then trunc(q + 0.5f) in float instead of trunc(double(q) + 0.5): see
// RoundQuotients for why that is the same for every q that occurs.
//
// Float formats (FLOAT96, GRAYF32) keep the plain form's float sums lane by lane, in the same
// order: S starts as x[0] + x[1] + .., then S = S - old + new, S += new or S -= old.
//
// Vertical passes run along whole row segments (up to kRowBytes wide, narrower when the ring
// would pass kRingBytes): the running sums of the segment sit in scratch, the ring keeps the r
// unfiltered rows still needed, and every access walks a row forwards, which the memory
// prefetchers follow. The horizontal pass reads each row from an unfiltered copy.
//
// The weighted variant, GRAY32_ALT and the horizontal GRAY8 / GRAYF32 passes (used by no
// effect's fast path) run the plain code.
#include <smmintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "imageops/box_blur.h"
#include "imageops/box_blur_internal.h"
#include "vantyx.h"

namespace Vantyx {

namespace {

// trunc(q + 0.5f) per lane. For a float 0 <= q < 2^23 this equals trunc(double(q) + 0.5)
// except at q = 0.5 - 2^-25 (the float just below one half):
// - q in [k + 0.5, k + 1), k >= 0: q + 0.5 lies in [k + 1, k + 1.5); rounding is monotone and
//   k + 1 and k + 1.5 are floats, so the float sum stays in [k + 1, k + 1.5]: k + 1 either way.
// - q in [k, k + 0.5), k >= 1: q and q + 0.5 lie in the same binade [2^e, 2^(e+1)) (2^e <= k
//   and q + 0.5 < k + 1 <= 2^(e+1)) whose float spacing 2^(e-23) divides 0.5, so q + 0.5 is a
//   float: no rounding at all, k either way.
// - q in [0, 0.5): q + 0.5 < 1 rounds up to 1 only from 1 - 2^-25 (a tie, to even) or above,
//   that is only for q = 0.5 - 2^-25.
// That q needs S / c within 2^-26 of it, 0 < 0.5 - S / c <= 3 x 2^-26, but for an integer S,
// 0.5 - S / c = (c - 2S) / 2c is 0 or at least 1 / 2c, more than 3 x 2^-26 for any c below
// 11 million; the sums here are integers and c <= 65793 (see above).
__m128i RoundQuotients(__m128 q) { return _mm_cvttps_epi32(_mm_add_ps(q, _mm_set1_ps(0.5f))); }

__m128i Bytes(__m128i s, __m128 count) {
  return RoundQuotients(_mm_div_ps(_mm_cvtepi32_ps(s), count));
}

__m128i Pack(__m128i a, __m128i b, __m128i c, __m128i d) {
  return _mm_packus_epi16(_mm_packus_epi32(a, b), _mm_packus_epi32(c, d));
}

// Four bytes widened to four int32 lanes.
__m128i Widen(const uint8_t* p) {
  int32_t u;
  std::memcpy(&u, p, 4);
  return _mm_cvtepu8_epi32(_mm_cvtsi32_si128(u));
}

// Samples in the window of sample i of a line of n: [i - (r - 1), i + (r - 1)] cut at the ends.
int32_t WindowCount(int64_t i, int64_t n, int64_t r) {
  return static_cast<int32_t>(std::min(n - 1, i + r - 1) - std::max<int64_t>(0, i - r + 1) + 1);
}

// True when 8-bit sums are exact in float for every window of a line (see the top).
bool ByteSumsExact(int32_t n, int32_t r) {
  return 255 * std::min<int64_t>(n, 2 * static_cast<int64_t>(r) - 1) <= (int64_t{1} << 24);
}

template <class T>
T* Aligned(std::vector<T>& v, size_t count) {
  v.resize(count + 16 / sizeof(T));
  const uintptr_t p = reinterpret_cast<uintptr_t>(v.data());
  return reinterpret_cast<T*>((p + 15) & ~uintptr_t{15});
}

// Vertical passes: a row segment of at most kRowBytes, and at most kRingBytes of saved rows.
constexpr int64_t kRowBytes = 4096;
constexpr int64_t kRingBytes = 256 * 1024;

// Columns per segment for `cols` columns of `col_bytes` bytes each and a ring of m rows.
int32_t SegmentColumns(int32_t cols, int64_t col_bytes, int64_t m) {
  int64_t b = std::min(kRowBytes / col_bytes, kRingBytes / (m * col_bytes));
  b = std::max<int64_t>(16, b & ~int64_t{15});
  return static_cast<int32_t>(std::min<int64_t>(b, cols));
}

// ---- BGRA rows: int32 sums, one pixel per vector -------------------------------------------

__m128i AlphaBytes() { return _mm_set1_epi32(static_cast<int32_t>(0xFF000000u)); }

// Pixel i of a row from the sums, with its own alpha from x.
void StorePixel(uint8_t* out, const uint8_t* x, __m128i s, __m128 count) {
  const __m128i v = Bytes(s, count);
  const uint32_t bgr =
      static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(_mm_packus_epi32(v, v), v)));
  uint32_t a;
  std::memcpy(&a, x, 4);
  const uint32_t px = (bgr & 0x00FFFFFFu) | (a & 0xFF000000u);
  std::memcpy(out, &px, 4);
}

// One row of n pixels: x is its unfiltered copy, out the row itself.
void BgraRow(uint8_t* out, const uint8_t* x, int32_t n, int32_t r) {
  const int64_t rr = r;
  const int32_t m = static_cast<int32_t>(std::min<int64_t>(rr, n));
  __m128i s = _mm_setzero_si128();
  for (int32_t k = 0; k < m; ++k) s = _mm_add_epi32(s, Widen(x + 4 * k));
  StorePixel(out, x, s, _mm_set1_ps(static_cast<float>(m)));

  // Ends of the line: the window grows, shrinks, or (long radius) covers the whole line.
  auto ends = [&](int32_t lo, int32_t hi) {
    for (int32_t i = lo; i < hi; ++i) {
      if (i + rr - 1 < n) s = _mm_add_epi32(s, Widen(x + 4 * (i + rr - 1)));
      if (i >= rr) s = _mm_sub_epi32(s, Widen(x + 4 * (i - rr)));
      StorePixel(out + 4 * i, x + 4 * i, s, _mm_set1_ps(static_cast<float>(WindowCount(i, n, rr))));
    }
  };
  if (rr > n - rr) {
    ends(1, n);
    return;
  }
  ends(1, r);
  // i = r .. n - r: a full window of 2r - 1, four pixels per store.
  const __m128 full = _mm_set1_ps(static_cast<float>(2 * r - 1));
  const int32_t end = n - r + 1;
  int32_t i = r;
  const uint8_t* in = x + 4 * (i + r - 1);
  const uint8_t* old = x + 4 * (i - r);
  for (; i + 4 <= end; i += 4, in += 16, old += 16) {
    const __m128i s0 = _mm_add_epi32(s, _mm_sub_epi32(Widen(in), Widen(old)));
    const __m128i s1 = _mm_add_epi32(s0, _mm_sub_epi32(Widen(in + 4), Widen(old + 4)));
    const __m128i s2 = _mm_add_epi32(s1, _mm_sub_epi32(Widen(in + 8), Widen(old + 8)));
    s = _mm_add_epi32(s2, _mm_sub_epi32(Widen(in + 12), Widen(old + 12)));
    const __m128i b = Pack(Bytes(s0, full), Bytes(s1, full), Bytes(s2, full), Bytes(s, full));
    const __m128i orig = _mm_loadu_si128(reinterpret_cast<const __m128i*>(x + 4 * i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * i),
                     _mm_blendv_epi8(b, orig, AlphaBytes()));
  }
  for (; i < end; ++i, in += 4, old += 4) {
    s = _mm_add_epi32(s, _mm_sub_epi32(Widen(in), Widen(old)));
    StorePixel(out + 4 * i, x + 4 * i, s, full);
  }
  ends(end, n);
}

void BgraRows(const ImageView& img, int32_t r, const Area& a) {
  const int32_t n = a.right - a.left;
  std::vector<uint8_t> copy(static_cast<size_t>(n) * 4);
  for (int32_t y = a.top; y < a.bottom; ++y) {
    uint8_t* row = img.At(a.left, y);
    std::memcpy(copy.data(), row, copy.size());
    BgraRow(row, copy.data(), n, r);
  }
}

// ---- 8-bit columns: int32 sums per byte of a row segment -------------------------------------

// One row step over w bytes: sums += new row - old row (as told), the row's unfiltered bytes
// into its ring slot, and the row rewritten from the sums. BGRA keeps its alpha bytes.
template <bool kBgra, bool kAdd, bool kSub>
void ByteStep(uint8_t* row, const uint8_t* in, uint8_t* slot, int32_t* s, int32_t w,
              int32_t count) {
  const __m128 c = _mm_set1_ps(static_cast<float>(count));
  int32_t k = 0;
  for (; k + 16 <= w; k += 16) {
    const __m128i cur = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + k));
    __m128i v[4];
    for (int q = 0; q < 4; ++q) {
      v[q] = _mm_load_si128(reinterpret_cast<const __m128i*>(s + k + 4 * q));
      if (kAdd) v[q] = _mm_add_epi32(v[q], Widen(in + k + 4 * q));
      if (kSub) v[q] = _mm_sub_epi32(v[q], Widen(slot + k + 4 * q));
      _mm_store_si128(reinterpret_cast<__m128i*>(s + k + 4 * q), v[q]);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(slot + k), cur);
    __m128i b = Pack(Bytes(v[0], c), Bytes(v[1], c), Bytes(v[2], c), Bytes(v[3], c));
    if (kBgra) b = _mm_blendv_epi8(b, cur, AlphaBytes());
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row + k), b);
  }
  for (; k + 4 <= w; k += 4) {
    uint32_t cur;
    std::memcpy(&cur, row + k, 4);
    __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(s + k));
    if (kAdd) v = _mm_add_epi32(v, Widen(in + k));
    if (kSub) v = _mm_sub_epi32(v, Widen(slot + k));
    _mm_store_si128(reinterpret_cast<__m128i*>(s + k), v);
    std::memcpy(slot + k, &cur, 4);
    const __m128i b = Bytes(v, c);
    uint32_t px =
        static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(_mm_packus_epi32(b, b), b)));
    if (kBgra) px = (px & 0x00FFFFFFu) | (cur & 0xFF000000u);
    std::memcpy(row + k, &px, 4);
  }
  for (; k < w; ++k) {  // GRAY8 only: the same float arithmetic one lane at a time
    const uint8_t cur = row[k];
    if (kAdd) s[k] += in[k];
    if (kSub) s[k] -= slot[k];
    slot[k] = cur;
    const float q = static_cast<float>(s[k]) / static_cast<float>(count);
    row[k] = static_cast<uint8_t>(static_cast<int32_t>(q + 0.5f));
  }
}

template <bool kBgra>
void ByteSegment(uint8_t* base, ptrdiff_t stride, int32_t w, int32_t n, int32_t r, int32_t* s,
                 uint8_t* ring) {
  const int64_t rr = r;
  const int32_t m = static_cast<int32_t>(std::min<int64_t>(rr, n));
  std::fill(s, s + w, 0);
  for (int32_t t = 0; t < m; ++t) {
    const uint8_t* p = base + t * stride;
    int32_t k = 0;
    for (; k + 4 <= w; k += 4) {
      __m128i* d = reinterpret_cast<__m128i*>(s + k);
      _mm_store_si128(d, _mm_add_epi32(_mm_load_si128(d), Widen(p + k)));
    }
    for (; k < w; ++k) s[k] += p[k];
  }
  int32_t j = 0;  // ring slot of row i (i mod r; below m)
  for (int32_t i = 0; i < n; ++i) {
    uint8_t* row = base + i * stride;
    uint8_t* slot = ring + static_cast<ptrdiff_t>(j) * w;
    const bool add = i > 0 && i + rr - 1 < n;
    const bool sub = i >= rr;
    const uint8_t* in = add ? base + (i + rr - 1) * stride : nullptr;
    const int32_t count = WindowCount(i, n, rr);
    if (add && sub)
      ByteStep<kBgra, true, true>(row, in, slot, s, w, count);
    else if (add)
      ByteStep<kBgra, true, false>(row, in, slot, s, w, count);
    else if (sub)
      ByteStep<kBgra, false, true>(row, in, slot, s, w, count);
    else
      ByteStep<kBgra, false, false>(row, in, slot, s, w, count);
    if (++j == rr) j = 0;
  }
}

template <bool kBgra>
void ByteCols(const ImageView& img, int32_t r, const Area& a) {
  constexpr int32_t bpp = kBgra ? 4 : 1;
  const int32_t n = a.bottom - a.top;
  const int32_t m = static_cast<int32_t>(std::min<int64_t>(r, n));
  const int32_t seg = SegmentColumns(a.right - a.left, bpp, m);
  std::vector<int32_t> sums;
  std::vector<uint8_t> ring(static_cast<size_t>(m) * static_cast<size_t>(seg) * bpp);
  int32_t* s = Aligned(sums, static_cast<size_t>(seg) * bpp);
  for (int32_t x = a.left; x < a.right; x += seg) {
    const int32_t w = std::min(seg, a.right - x) * bpp;
    ByteSegment<kBgra>(img.At(x, a.top), img.stride, w, n, r, s, ring.data());
  }
}

// ---- Float columns: the plain form's float sums, four lanes per vector -----------------------

template <bool kAdd, bool kSub>
void FloatStep(uint8_t* row, const uint8_t* in, float* slot, float* s, int32_t w, int32_t count) {
  const float cf = static_cast<float>(count);
  const __m128 c = _mm_set1_ps(cf);
  float* out = reinterpret_cast<float*>(row);
  const float* add = reinterpret_cast<const float*>(in);
  int32_t k = 0;
  for (; k + 4 <= w; k += 4) {
    const __m128 cur = _mm_loadu_ps(out + k);  // float rows need not be 16-byte aligned
    __m128 v = _mm_load_ps(s + k);
    if (kAdd && kSub)
      v = _mm_add_ps(_mm_sub_ps(v, _mm_load_ps(slot + k)), _mm_loadu_ps(add + k));
    else if (kAdd)
      v = _mm_add_ps(v, _mm_loadu_ps(add + k));
    else if (kSub)
      v = _mm_sub_ps(v, _mm_load_ps(slot + k));
    _mm_store_ps(s + k, v);
    _mm_store_ps(slot + k, cur);
    _mm_storeu_ps(out + k, _mm_div_ps(v, c));
  }
  for (; k < w; ++k) {
    float cur, x = 0.0f;
    std::memcpy(&cur, row + 4 * k, 4);
    if (kAdd) std::memcpy(&x, in + 4 * k, 4);
    if (kAdd && kSub)
      s[k] = s[k] - slot[k] + x;
    else if (kAdd)
      s[k] += x;
    else if (kSub)
      s[k] -= slot[k];
    slot[k] = cur;
    const float q = s[k] / cf;
    std::memcpy(row + 4 * k, &q, 4);
  }
}

// w floats per row of the segment; ring slots are w rounded up to whole vectors.
void FloatSegment(uint8_t* base, ptrdiff_t stride, int32_t w, int32_t n, int32_t r, float* s,
                  float* ring) {
  const ptrdiff_t slot_step = (w + 3) & ~3;
  const int64_t rr = r;
  const int32_t m = static_cast<int32_t>(std::min<int64_t>(rr, n));
  std::memcpy(s, base, static_cast<size_t>(w) * 4);
  for (int32_t t = 1; t < m; ++t) {  // x[0] + x[1] + .. in order
    const float* p = reinterpret_cast<const float*>(base + t * stride);
    int32_t k = 0;
    for (; k + 4 <= w; k += 4)
      _mm_store_ps(s + k, _mm_add_ps(_mm_load_ps(s + k), _mm_loadu_ps(p + k)));
    for (; k < w; ++k) {
      float x;
      std::memcpy(&x, p + k, 4);
      s[k] += x;
    }
  }
  int32_t j = 0;
  for (int32_t i = 0; i < n; ++i) {
    uint8_t* row = base + i * stride;
    float* slot = ring + j * slot_step;
    const bool add = i > 0 && i + rr - 1 < n;
    const bool sub = i >= rr;
    const uint8_t* in = add ? base + (i + rr - 1) * stride : nullptr;
    const int32_t count = WindowCount(i, n, rr);
    if (add && sub)
      FloatStep<true, true>(row, in, slot, s, w, count);
    else if (add)
      FloatStep<true, false>(row, in, slot, s, w, count);
    else if (sub)
      FloatStep<false, true>(row, in, slot, s, w, count);
    else
      FloatStep<false, false>(row, in, slot, s, w, count);
    if (++j == rr) j = 0;
  }
}

// kFloats floats per pixel: 3 (FLOAT96) or 1 (GRAYF32).
template <int32_t kFloats>
void FloatCols(const ImageView& img, int32_t r, const Area& a) {
  const int32_t n = a.bottom - a.top;
  const int32_t m = static_cast<int32_t>(std::min<int64_t>(r, n));
  const int32_t seg = SegmentColumns(a.right - a.left, 4 * kFloats, m);
  const size_t lanes = static_cast<size_t>(seg) * kFloats;
  std::vector<float> sums, ring_store;
  float* s = Aligned(sums, lanes);
  float* ring = Aligned(ring_store, static_cast<size_t>(m) * ((lanes + 3) & ~size_t{3}));
  for (int32_t x = a.left; x < a.right; x += seg) {
    const int32_t w = std::min(seg, a.right - x) * kFloats;
    FloatSegment(img.At(x, a.top), img.stride, w, n, r, s, ring);
  }
}

// ---- FLOAT96 rows: one pixel per vector, kRows rows side by side -----------------------------

// Pixel i of an unfiltered copy (padded by one float, so the 16-byte load stays inside; the
// fourth lane is summed but never stored).
__m128 CopyPx(const float* x, int64_t i) { return _mm_loadu_ps(x + 3 * i); }

// Writes 12 bytes only.
void StoreF96(uint8_t* p, __m128 q) {
  _mm_storel_pi(reinterpret_cast<__m64*>(p), q);
  const int32_t z = _mm_extract_ps(q, 2);
  std::memcpy(p + 8, &z, 4);
}

// kRows rows of n pixels: x[k] the unfiltered copy of row k, out[k] the row itself.
template <int kRows>
void F96Rows(uint8_t* const* out, const float* const* x, int32_t n, int32_t r) {
  const int64_t rr = r;
  const int32_t m = static_cast<int32_t>(std::min<int64_t>(rr, n));
  __m128 s[kRows];
  for (int k = 0; k < kRows; ++k) {  // x[0] + x[1] + .. in order
    s[k] = CopyPx(x[k], 0);
    for (int32_t t = 1; t < m; ++t) s[k] = _mm_add_ps(s[k], CopyPx(x[k], t));
  }
  auto ends = [&](int32_t lo, int32_t hi) {
    for (int32_t i = lo; i < hi; ++i) {
      const bool add = i > 0 && i + rr - 1 < n;
      const bool sub = i >= rr;
      const __m128 c = _mm_set1_ps(static_cast<float>(WindowCount(i, n, rr)));
      for (int k = 0; k < kRows; ++k) {
        if (add && sub)
          s[k] = _mm_add_ps(_mm_sub_ps(s[k], CopyPx(x[k], i - rr)), CopyPx(x[k], i + rr - 1));
        else if (add)
          s[k] = _mm_add_ps(s[k], CopyPx(x[k], i + rr - 1));
        else if (sub)
          s[k] = _mm_sub_ps(s[k], CopyPx(x[k], i - rr));
        StoreF96(out[k] + 12 * i, _mm_div_ps(s[k], c));
      }
    }
  };
  if (rr > n - rr) {
    ends(0, n);
    return;
  }
  ends(0, r);
  // i = r .. n - r: S = S - x[i - r] + x[i + r - 1] over a full window.
  const __m128 full = _mm_set1_ps(static_cast<float>(2 * r - 1));
  const int32_t end = n - r + 1;
  int32_t i = r;
  // Four pixels of a row at a time: their twelve sums packed into three vectors, so that the
  // divisions, which bound this loop, fill every lane (each lane divides alike wherever it is).
  for (; i + 4 <= end; i += 4) {
    for (int k = 0; k < kRows; ++k) {
      __m128 p[4];
      for (int t = 0; t < 4; ++t) {
        s[k] = _mm_add_ps(_mm_sub_ps(s[k], CopyPx(x[k], i + t - r)), CopyPx(x[k], i + t + r - 1));
        p[t] = s[k];
      }
      const __m128 v0 = _mm_blend_ps(p[0], _mm_shuffle_ps(p[1], p[1], 0), 8);
      const __m128 v1 = _mm_shuffle_ps(p[1], p[2], _MM_SHUFFLE(1, 0, 2, 1));
      const __m128 v2 = _mm_blend_ps(_mm_shuffle_ps(p[3], p[3], _MM_SHUFFLE(2, 1, 0, 0)),
                                     _mm_movehl_ps(p[2], p[2]), 1);
      float* o = reinterpret_cast<float*>(out[k] + 12 * i);
      _mm_storeu_ps(o, _mm_div_ps(v0, full));
      _mm_storeu_ps(o + 4, _mm_div_ps(v1, full));
      _mm_storeu_ps(o + 8, _mm_div_ps(v2, full));
    }
  }
  for (; i < end; ++i) {
    for (int k = 0; k < kRows; ++k) {
      s[k] = _mm_add_ps(_mm_sub_ps(s[k], CopyPx(x[k], i - r)), CopyPx(x[k], i + r - 1));
      StoreF96(out[k] + 12 * i, _mm_div_ps(s[k], full));
    }
  }
  ends(end, n);
}

void F96RowsAll(const ImageView& img, int32_t r, const Area& a) {
  const int32_t n = a.right - a.left;
  const size_t floats = static_cast<size_t>(n) * 3 + 1;
  std::vector<float> copies(4 * floats, 0.0f);
  uint8_t* out[4];
  const float* x[4];
  int32_t y = a.top;
  auto prepare = [&](int32_t rows) {
    for (int k = 0; k < rows; ++k) {
      out[k] = img.At(a.left, y + k);
      std::memcpy(copies.data() + k * floats, out[k], static_cast<size_t>(n) * 12);
      x[k] = copies.data() + k * floats;
    }
  };
  for (; y + 4 <= a.bottom; y += 4) {
    prepare(4);
    F96Rows<4>(out, x, n, r);
  }
  for (; y < a.bottom; ++y) {
    prepare(1);
    F96Rows<1>(out, x, n, r);
  }
}

// ---- Fused passes: byte rows and streamed columns with the integer rounding division --------

// n / d.count per 16-bit lane (see ByteDivisor).
template <bool kExact>
inline __m128i Divide(__m128i n, __m128i m, __m128i shift, __m128i c, __m128i c_minus_1) {
  const __m128i q0 = _mm_mulhi_epu16(n, m);
  if (kExact) return _mm_srl_epi16(q0, shift);
  const __m128i rem = _mm_sub_epi16(n, _mm_mullo_epi16(q0, c));
  return _mm_sub_epi16(q0, _mm_cmpgt_epi16(rem, c_minus_1));
}

struct DivideBy {
  detail::ByteDivisor d;
  __m128i m, shift, c, c_minus_1, half;
  explicit DivideBy(const detail::ByteDivisor& div)
      : d(div),
        m(_mm_set1_epi16(static_cast<int16_t>(div.multiplier))),
        shift(_mm_cvtsi32_si128(div.shift < 0 ? 0 : div.shift)),
        c(_mm_set1_epi16(static_cast<int16_t>(div.count))),
        c_minus_1(_mm_set1_epi16(static_cast<int16_t>(div.count - 1))),
        half(_mm_set1_epi16(static_cast<int16_t>(div.half))) {}
  // The rounded quotient of window sums s (16-bit lanes).
  template <bool kExact>
  __m128i Round(__m128i s) const {
    return Divide<kExact>(_mm_add_epi16(s, half), m, shift, c, c_minus_1);
  }
  // The same of sums that already hold the half.
  template <bool kExact>
  __m128i Quotient(__m128i s_and_half) const {
    return Divide<kExact>(s_and_half, m, shift, c, c_minus_1);
  }
};

// Middle of a row (a full window of 2r - 1 everywhere): pixels [from, to), four per step, the
// sums in 16-bit lanes (a window of at most 255 bytes sums to at most 65025, 65152 with the
// rounding half, which the running sum carries so that only the division is left per step).
// The differences d = x[i + r - 1] - x[i - r] come from one multiply-add of the interleaved
// bytes by (1, -1); the four steps' d are summed as prefixes, [d0, d0 + d1] and
// [d2 + d0 + d1, d2 + d3 + d0 + d1] per half, so that only one addition a step carries over
// (16-bit sums wrap alike in any order).
template <bool kExact>
void BgraMiddle(const uint8_t* x, uint8_t* out, int32_t from, int32_t to, int32_t r, __m128i* sum,
                const DivideBy& div) {
  const __m128i plus_minus = _mm_set1_epi16(static_cast<int16_t>(0xFF01));  // bytes 1, -1
  __m128i s16 = _mm_add_epi16(_mm_packus_epi32(*sum, *sum), div.half);  // of the pixel before
  int32_t i = from;
  const uint8_t* in = x + 4 * (i + r - 1);
  const uint8_t* old = x + 4 * (i - r);
  for (; i + 4 <= to; i += 4, in += 16, old += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(old));
    __m128i d01 = _mm_maddubs_epi16(_mm_unpacklo_epi8(a, b), plus_minus);
    __m128i d23 = _mm_maddubs_epi16(_mm_unpackhi_epi8(a, b), plus_minus);
    d01 = _mm_add_epi16(d01, _mm_slli_si128(d01, 8));
    d23 = _mm_add_epi16(_mm_add_epi16(d23, _mm_slli_si128(d23, 8)), _mm_unpackhi_epi64(d01, d01));
    const __m128i s01 = _mm_add_epi16(s16, d01);
    const __m128i s23 = _mm_add_epi16(s16, d23);
    s16 = _mm_add_epi16(s16, _mm_unpackhi_epi64(d23, d23));
    const __m128i q = _mm_packus_epi16(div.Quotient<kExact>(s01), div.Quotient<kExact>(s23));
    const __m128i orig = _mm_loadu_si128(reinterpret_cast<const __m128i*>(x + 4 * i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * i), _mm_blendv_epi8(q, orig, AlphaBytes()));
  }
  __m128i s = _mm_cvtepu16_epi32(_mm_sub_epi16(s16, div.half));
  const __m128 full = _mm_set1_ps(static_cast<float>(2 * r - 1));
  for (; i < to; ++i, in += 4, old += 4) {
    s = _mm_add_epi32(s, _mm_sub_epi32(Widen(in), Widen(old)));
    StorePixel(out + 4 * i, x + 4 * i, s, full);
  }
  *sum = s;
}

// One output row of a vertical pass from 16-bit column sums: s += add - sub (either row may be
// null), then the rounded quotients, alpha (every fourth byte) from `alpha_row`.
template <bool kAdd, bool kSub, bool kExact>
void ColumnRow16(uint16_t* s, const uint8_t* add, const uint8_t* sub, const uint8_t* alpha_row,
                 uint8_t* out, int32_t bytes, const DivideBy& div) {
  const __m128i zero = _mm_setzero_si128();
  int32_t k = 0;
  for (; k + 16 <= bytes; k += 16) {
    __m128i lo = _mm_load_si128(reinterpret_cast<const __m128i*>(s + k));
    __m128i hi = _mm_load_si128(reinterpret_cast<const __m128i*>(s + k + 8));
    if (kAdd && kSub) {  // add - sub from one multiply-add of the interleaved bytes by (1, -1)
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(add + k));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sub + k));
      const __m128i plus_minus = _mm_set1_epi16(static_cast<int16_t>(0xFF01));
      lo = _mm_add_epi16(lo, _mm_maddubs_epi16(_mm_unpacklo_epi8(a, b), plus_minus));
      hi = _mm_add_epi16(hi, _mm_maddubs_epi16(_mm_unpackhi_epi8(a, b), plus_minus));
    } else if (kAdd) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(add + k));
      lo = _mm_add_epi16(lo, _mm_unpacklo_epi8(a, zero));
      hi = _mm_add_epi16(hi, _mm_unpackhi_epi8(a, zero));
    } else if (kSub) {
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sub + k));
      lo = _mm_sub_epi16(lo, _mm_unpacklo_epi8(b, zero));
      hi = _mm_sub_epi16(hi, _mm_unpackhi_epi8(b, zero));
    }
    if (kAdd || kSub) {
      _mm_store_si128(reinterpret_cast<__m128i*>(s + k), lo);
      _mm_store_si128(reinterpret_cast<__m128i*>(s + k + 8), hi);
    }
    const __m128i q = _mm_packus_epi16(div.Round<kExact>(lo), div.Round<kExact>(hi));
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(alpha_row + k));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + k), _mm_blendv_epi8(q, a, AlphaBytes()));
  }
  for (; k < bytes; ++k) {
    s[k] = static_cast<uint16_t>(s[k] + (kAdd ? add[k] : 0) - (kSub ? sub[k] : 0));
    out[k] = (k & 3) == 3 ? alpha_row[k] : static_cast<uint8_t>((s[k] + div.d.half) / div.d.count);
  }
}

template <bool kExact>
void ColumnRow16Any(uint16_t* s, const uint8_t* add, const uint8_t* sub, const uint8_t* alpha_row,
                    uint8_t* out, int32_t bytes, const DivideBy& div) {
  if (add && sub)
    ColumnRow16<true, true, kExact>(s, add, sub, alpha_row, out, bytes, div);
  else if (add)
    ColumnRow16<true, false, kExact>(s, add, sub, alpha_row, out, bytes, div);
  else if (sub)
    ColumnRow16<false, true, kExact>(s, add, sub, alpha_row, out, bytes, div);
  else
    ColumnRow16<false, false, kExact>(s, add, sub, alpha_row, out, bytes, div);
}

// Sums of 16-bit lanes += the bytes of `row`.
void AddRow16(uint16_t* s, const uint8_t* row, int32_t bytes) {
  const __m128i zero = _mm_setzero_si128();
  int32_t k = 0;
  for (; k + 16 <= bytes; k += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + k));
    __m128i* lo = reinterpret_cast<__m128i*>(s + k);
    _mm_store_si128(lo, _mm_add_epi16(_mm_load_si128(lo), _mm_unpacklo_epi8(a, zero)));
    _mm_store_si128(lo + 1, _mm_add_epi16(_mm_load_si128(lo + 1), _mm_unpackhi_epi8(a, zero)));
  }
  for (; k < bytes; ++k) s[k] = static_cast<uint16_t>(s[k] + row[k]);
}

template <class T>
T* AlignedIn(std::vector<uint8_t>& v) {
  const uintptr_t p = reinterpret_cast<uintptr_t>(v.data());
  return reinterpret_cast<T*>((p + 15) & ~uintptr_t{15});
}

}  // namespace

namespace detail {

void BoxBlurDivideSse41(const uint16_t* n, uint16_t* q, size_t count, const ByteDivisor& d) {
  const DivideBy div(d);
  size_t k = 0;
  for (; k + 8 <= count; k += 8) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(n + k));
    const __m128i m = d.shift >= 0 ? Divide<true>(v, div.m, div.shift, div.c, div.c_minus_1)
                                   : Divide<false>(v, div.m, div.shift, div.c, div.c_minus_1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(q + k), m);
  }
  for (; k < count; ++k) q[k] = static_cast<uint16_t>(n[k] / d.count);
}

void BoxBlurBgraRowSse41(const uint8_t* x, uint8_t* out, int32_t n, int32_t r) {
  const int64_t rr = r;
  const int32_t m = static_cast<int32_t>(std::min<int64_t>(rr, n));
  __m128i s = _mm_setzero_si128();
  for (int32_t k = 0; k < m; ++k) s = _mm_add_epi32(s, Widen(x + 4 * k));
  StorePixel(out, x, s, _mm_set1_ps(static_cast<float>(m)));
  auto ends = [&](int32_t lo, int32_t hi) {
    for (int32_t i = lo; i < hi; ++i) {
      if (i + rr - 1 < n) s = _mm_add_epi32(s, Widen(x + 4 * (i + rr - 1)));
      if (i >= rr) s = _mm_sub_epi32(s, Widen(x + 4 * (i - rr)));
      StorePixel(out + 4 * i, x + 4 * i, s, _mm_set1_ps(static_cast<float>(WindowCount(i, n, rr))));
    }
  };
  if (rr > n - rr || 2 * rr - 1 > 255) {  // no middle, or sums past 16 bits: divide in float
    ends(1, n);
    return;
  }
  ends(1, r);
  const int32_t end = n - r + 1;
  const DivideBy div(MakeByteDivisor(2 * r - 1));
  if (div.d.shift >= 0)
    BgraMiddle<true>(x, out, r, end, r, &s, div);
  else
    BgraMiddle<false>(x, out, r, end, r, &s, div);
  ends(end, n);
}

void BoxBlurF96RowsSse41(uint8_t* const* out, const float* const* x, int32_t rows, int32_t n,
                         int32_t r) {
  if (rows == 4)
    F96Rows<4>(out, x, n, r);
  else
    for (int32_t k = 0; k < rows; ++k) F96Rows<1>(out + k, x + k, n, r);
}

void ColumnBoxStream::EmitSse41(uint8_t* out) {
  const int32_t j = next_++;
  const int64_t rr = r_;
  const bool first = !started_;
  started_ = true;
  const int32_t count = WindowCount(j, n_, rr);
  const uint8_t* add = !first && j + rr - 1 < n_ ? Row(static_cast<int32_t>(j + rr - 1)) : nullptr;
  const uint8_t* sub = !first && j - rr >= 0 ? Row(static_cast<int32_t>(j - rr)) : nullptr;
  if (floats_) {
    // FloatStep's arithmetic, row by row from the top: S = x[0] + .. + x[m - 1], then
    // S = S - old + new, S += new or S -= old.
    float* s = AlignedIn<float>(sums_);
    const int32_t w = row_bytes_ / 4;
    if (first) {
      std::memcpy(s, Row(0), static_cast<size_t>(row_bytes_));
      for (int32_t t = 1; t < std::min<int64_t>(rr, n_); ++t) {
        const float* p = reinterpret_cast<const float*>(Row(t));
        int32_t k = 0;
        for (; k + 4 <= w; k += 4)
          _mm_store_ps(s + k, _mm_add_ps(_mm_load_ps(s + k), _mm_loadu_ps(p + k)));
        for (; k < w; ++k) {
          float v;
          std::memcpy(&v, p + k, 4);
          s[k] += v;
        }
      }
    }
    const float* a = reinterpret_cast<const float*>(add);
    const float* b = reinterpret_cast<const float*>(sub);
    const float cf = static_cast<float>(count);
    const __m128 c = _mm_set1_ps(cf);
    float* o = reinterpret_cast<float*>(out);
    int32_t k = 0;
    for (; k + 4 <= w; k += 4) {
      __m128 v = _mm_load_ps(s + k);
      if (a && b)
        v = _mm_add_ps(_mm_sub_ps(v, _mm_loadu_ps(b + k)), _mm_loadu_ps(a + k));
      else if (a)
        v = _mm_add_ps(v, _mm_loadu_ps(a + k));
      else if (b)
        v = _mm_sub_ps(v, _mm_loadu_ps(b + k));
      _mm_store_ps(s + k, v);
      _mm_storeu_ps(o + k, _mm_div_ps(v, c));
    }
    for (; k < w; ++k) {
      float va = 0.0f, vb = 0.0f;
      if (a) std::memcpy(&va, a + k, 4);
      if (b) std::memcpy(&vb, b + k, 4);
      if (a && b)
        s[k] = s[k] - vb + va;
      else if (a)
        s[k] += va;
      else if (b)
        s[k] -= vb;
      const float q = s[k] / cf;
      std::memcpy(o + k, &q, 4);
    }
    return;
  }
  uint16_t* s = AlignedIn<uint16_t>(sums_);
  if (first) {
    std::memset(s, 0, static_cast<size_t>(row_bytes_) * 2);
    const int32_t lo = static_cast<int32_t>(std::max<int64_t>(0, j - rr + 1));
    const int32_t hi = static_cast<int32_t>(std::min<int64_t>(n_ - 1, j + rr - 1));
    for (int32_t t = lo; t <= hi; ++t) AddRow16(s, Row(t), row_bytes_);
  }
  if (divisor_.count != count) divisor_ = MakeByteDivisor(count);
  const DivideBy div(divisor_);
  if (div.d.shift >= 0)
    ColumnRow16Any<true>(s, add, sub, Row(j), out, row_bytes_, div);
  else
    ColumnRow16Any<false>(s, add, sub, Row(j), out, row_bytes_, div);
}

void BoxBlurRoundBytesSse41(const float* q, int32_t* out, size_t count) {
  size_t k = 0;
  for (; k + 4 <= count; k += 4)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + k), RoundQuotients(_mm_loadu_ps(q + k)));
  for (; k < count; ++k) out[k] = _mm_cvtsi128_si32(RoundQuotients(_mm_set1_ps(q[k])));
}

}  // namespace detail

int32_t box_blur_rows_sse41(const ImageView& img, const ImageView* weight, int32_t radius,
                            const ProcessRect& strip) {
  Area a;
  const int32_t code = detail::BoxBlurSetup(img, weight, radius, strip, &a);
  if (code != 0 || a.Empty()) return code;
  if (weight == nullptr && img.format == PIXEL_BGRA32 && ByteSumsExact(a.right - a.left, radius)) {
    BgraRows(img, radius, a);
    return 0;
  }
  if (weight == nullptr && img.format == PIXEL_FLOAT96) {
    F96RowsAll(img, radius, a);
    return 0;
  }
  return box_blur_rows_plain(img, weight, radius, strip);
}

int32_t box_blur_cols_sse41(const ImageView& img, const ImageView* weight, int32_t radius,
                            const ProcessRect& strip) {
  Area a;
  const int32_t code = detail::BoxBlurSetup(img, weight, radius, strip, &a);
  if (code != 0 || a.Empty()) return code;
  if (weight != nullptr) return box_blur_cols_plain(img, weight, radius, strip);
  const bool exact = ByteSumsExact(a.bottom - a.top, radius);
  switch (img.format) {
    case PIXEL_BGRA32:
      if (!exact) break;
      ByteCols<true>(img, radius, a);
      return 0;
    case PIXEL_GRAY8:
      if (!exact) break;
      ByteCols<false>(img, radius, a);
      return 0;
    case PIXEL_FLOAT96: FloatCols<3>(img, radius, a); return 0;
    case PIXEL_GRAYF32: FloatCols<1>(img, radius, a); return 0;
    default: break;
  }
  return box_blur_cols_plain(img, nullptr, radius, strip);
}

}  // namespace Vantyx
