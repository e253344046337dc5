// Running-sum box blur, SSE4.1 form. Same sums in the same order as the plain form, lane by
// lane, so bytes and float bits match it exactly:
// - horizontal: one BGRA pixel (B, G, R, A as four floats; the alpha lane is summed but never
//   stored) or one FLOAT96 pixel per vector, four rows side by side;
// - vertical: a block of adjacent columns per row: one vector per BGRA pixel, or four pixels'
//   floats (GRAY8, GRAYF32, FLOAT96) per vector; columns left over run the plain code.
// The weighted variant, GRAY32_ALT and the horizontal GRAY8 / GRAYF32 passes (used by no
// effect's fast path) run the plain code as well.
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

// trunc(double(q) + 0.5) per lane, at most 255 (q is never negative here: byte sums are exact).
__m128i RoundBytes(__m128 q) {
  const __m128d half = _mm_set1_pd(0.5);
  const __m128i lo = _mm_cvttpd_epi32(_mm_add_pd(_mm_cvtps_pd(q), half));
  const __m128i hi = _mm_cvttpd_epi32(_mm_add_pd(_mm_cvtps_pd(_mm_movehl_ps(q, q)), half));
  return _mm_min_epi32(_mm_unpacklo_epi64(lo, hi), _mm_set1_epi32(255));
}

__m128 LoadBytes4(const uint8_t* p) {
  int32_t u;
  std::memcpy(&u, p, 4);
  return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(u)));
}

// Vector formats: a group is kPixels pixels of one line in kVecs vectors. LoadAll / StoreAll
// handle `lines` groups, line_step bytes apart.
template <class V>
struct GroupsByOne {
  static void LoadAll(const uint8_t* p, ptrdiff_t line_step, int32_t lines, __m128* v) {
    for (int32_t k = 0; k < lines; ++k, p += line_step, v += V::kVecs) V::Load(p, v);
  }
  static void StoreAll(uint8_t* p, ptrdiff_t line_step, int32_t lines, const __m128* q) {
    for (int32_t k = 0; k < lines; ++k, p += line_step, q += V::kVecs) V::Store(p, q);
  }
};

// One BGRA pixel per vector. Alpha comes back from memory untouched.
struct BgraPx {
  static constexpr int kVecs = 1;
  static constexpr int kPixels = 1;

  static void LoadAll(const uint8_t* p, ptrdiff_t line_step, int32_t lines, __m128* v) {
    int32_t k = 0;
    if (line_step == 4) {  // adjacent pixels: 16 bytes at a time
      for (; k + 4 <= lines; k += 4, p += 16) {
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        v[k] = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(b));
        v[k + 1] = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_srli_si128(b, 4)));
        v[k + 2] = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_srli_si128(b, 8)));
        v[k + 3] = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_srli_si128(b, 12)));
      }
    }
    for (; k < lines; ++k, p += line_step) v[k] = LoadBytes4(p);
  }

  static void StoreAll(uint8_t* p, ptrdiff_t line_step, int32_t lines, const __m128* q) {
    const __m128i alpha = _mm_set1_epi32(static_cast<int32_t>(0xFF000000u));
    int32_t k = 0;
    for (; k + 4 <= lines; k += 4) {
      const __m128i b = _mm_packus_epi16(
          _mm_packus_epi32(RoundBytes(q[k]), RoundBytes(q[k + 1])),
          _mm_packus_epi32(RoundBytes(q[k + 2]), RoundBytes(q[k + 3])));
      if (line_step == 4) {
        const __m128i old = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_blendv_epi8(b, old, alpha));
        p += 16;
      } else {
        alignas(16) uint32_t px[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(px), b);
        for (int c = 0; c < 4; ++c, p += line_step) StoreOne(p, px[c]);
      }
    }
    for (; k < lines; ++k, p += line_step) {
      const __m128i i32 = RoundBytes(q[k]);
      const __m128i b = _mm_packus_epi16(_mm_packus_epi32(i32, i32), i32);
      StoreOne(p, static_cast<uint32_t>(_mm_cvtsi128_si32(b)));
    }
  }

  static void StoreOne(uint8_t* p, uint32_t bgr) {
    uint32_t old;
    std::memcpy(&old, p, 4);
    const uint32_t v = (bgr & 0x00FFFFFFu) | (old & 0xFF000000u);
    std::memcpy(p, &v, 4);
  }
};

// One FLOAT96 pixel per vector (the fourth lane is zero); reads and writes 12 bytes only.
struct F96Px : GroupsByOne<F96Px> {
  static constexpr int kVecs = 1;
  static constexpr int kPixels = 1;
  // Float rows need not be 4-byte aligned: unaligned 8-byte moves and memcpy for the rest.
  static void Load(const uint8_t* p, __m128* v) {
    int32_t z;
    std::memcpy(&z, p + 8, 4);
    const __m128i lo = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    v[0] = _mm_castsi128_ps(_mm_unpacklo_epi64(lo, _mm_cvtsi32_si128(z)));
  }
  static void Store(uint8_t* p, const __m128* q) {
    const __m128i v = _mm_castps_si128(q[0]);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
    const int32_t z = _mm_cvtsi128_si32(_mm_srli_si128(v, 8));
    std::memcpy(p + 8, &z, 4);
  }
};

// Four FLOAT96 pixels (twelve floats) in three vectors.
struct F96Quad : GroupsByOne<F96Quad> {
  static constexpr int kVecs = 3;
  static constexpr int kPixels = 4;
  static void Load(const uint8_t* p, __m128* v) {
    const float* f = reinterpret_cast<const float*>(p);
    for (int c = 0; c < 3; ++c) v[c] = _mm_loadu_ps(f + 4 * c);
  }
  static void Store(uint8_t* p, const __m128* q) {
    float* f = reinterpret_cast<float*>(p);
    for (int c = 0; c < 3; ++c) _mm_storeu_ps(f + 4 * c, q[c]);
  }
};

// Four GRAYF32 pixels in one vector.
struct F32Quad : GroupsByOne<F32Quad> {
  static constexpr int kVecs = 1;
  static constexpr int kPixels = 4;
  static void Load(const uint8_t* p, __m128* v) { v[0] = _mm_loadu_ps(reinterpret_cast<const float*>(p)); }
  static void Store(uint8_t* p, const __m128* q) { _mm_storeu_ps(reinterpret_cast<float*>(p), q[0]); }
};

// Four GRAY8 pixels in one vector.
struct G8Quad : GroupsByOne<G8Quad> {
  static constexpr int kVecs = 1;
  static constexpr int kPixels = 4;
  static void Load(const uint8_t* p, __m128* v) { v[0] = LoadBytes4(p); }
  static void Store(uint8_t* p, const __m128* q) {
    const __m128i i32 = RoundBytes(q[0]);
    const int32_t b = _mm_cvtsi128_si32(_mm_packus_epi16(_mm_packus_epi32(i32, i32), i32));
    std::memcpy(p, &b, 4);
  }
};

// `count` vectors of scratch on a 16-byte boundary (__m128 may alias the floats).
__m128* AlignedVectors(std::vector<float>& scratch, size_t count) {
  scratch.resize(count * 4 + 3);
  const uintptr_t p = reinterpret_cast<uintptr_t>(scratch.data());
  return reinterpret_cast<__m128*>((p + 15) & ~uintptr_t{15});
}

// The plain form's two line algorithms over `lines` groups at once (see box_blur.cpp).
template <class V>
void BlurLines(uint8_t* data, ptrdiff_t step, ptrdiff_t line_step, int32_t lines, int32_t n,
               int32_t r, std::vector<float>& scratch) {
  const size_t L = static_cast<size_t>(lines) * V::kVecs;
  const int32_t m = std::min(r, n);
  __m128* s = AlignedVectors(scratch, L * (static_cast<size_t>(m) + 3));
  __m128* x = s + L;
  __m128* q = x + L;
  __m128* ring = q + L;
  auto load = [&](int32_t i, __m128* v) { V::LoadAll(data + i * step, line_step, lines, v); };
  auto store = [&](int32_t i, int32_t count) {
    const __m128 c = _mm_set1_ps(static_cast<float>(count));
    for (size_t k = 0; k < L; ++k) q[k] = _mm_div_ps(s[k], c);
    V::StoreAll(data + i * step, line_step, lines, q);
  };

  load(0, s);
  std::copy(s, s + L, ring);
  for (int32_t k = 1; k < m; ++k) {
    __m128* rk = ring + k * L;
    load(k, rk);
    for (size_t c = 0; c < L; ++c) s[c] = _mm_add_ps(s[c], rk[c]);
  }

  if (detail::BoxBlurRingFits(n, r)) {
    store(0, r);
    for (int32_t i = 1; i < r; ++i) {
      load(i + r - 1, x);
      for (size_t c = 0; c < L; ++c) s[c] = _mm_add_ps(s[c], x[c]);
      store(i, r + i);
    }
    int32_t j = 0;
    const int32_t full = 2 * r - 1;
    for (int32_t i = r; i <= n - r; ++i) {
      __m128* rj = ring + j * L;
      load(i + r - 1, x);
      for (size_t c = 0; c < L; ++c) s[c] = _mm_add_ps(_mm_sub_ps(s[c], rj[c]), x[c]);
      load(i, rj);
      store(i, full);
      if (++j == r) j = 0;
    }
    for (int32_t i = n - r + 1; i < n; ++i) {
      const __m128* rj = ring + j * L;
      for (size_t c = 0; c < L; ++c) s[c] = _mm_sub_ps(s[c], rj[c]);
      store(i, n - 1 - i + r);
      if (++j == r) j = 0;
    }
    return;
  }

  int32_t count = m;
  store(0, count);
  for (int32_t i = 1; i < n; ++i) {
    if (i <= n - r) {
      load(i + r - 1, x);
      for (size_t c = 0; c < L; ++c) s[c] = _mm_add_ps(s[c], x[c]);
      ++count;
    } else if (i >= r) {
      const __m128* old = ring + (i - r) * L;
      for (size_t c = 0; c < L; ++c) s[c] = _mm_sub_ps(s[c], old[c]);
      --count;
    }
    store(i, count);
  }
}

// Rows in groups of four (the last group may be smaller).
template <class V>
void BlurRows(const ImageView& img, int32_t r, const Area& a) {
  std::vector<float> scratch;
  const ptrdiff_t bpp = BytesPerPixel(img.format);
  for (int32_t y = a.top; y < a.bottom; y += 4) {
    BlurLines<V>(img.At(a.left, y), bpp, img.stride, std::min(4, a.bottom - y), a.right - a.left,
                 r, scratch);
  }
}

// Columns in blocks of `groups` groups; the columns that do not fill a group run plain.
template <class V>
int32_t BlurCols(const ImageView& img, int32_t r, const Area& a, int32_t groups) {
  std::vector<float> scratch;
  const ptrdiff_t group_bytes = static_cast<ptrdiff_t>(BytesPerPixel(img.format)) * V::kPixels;
  const int32_t whole = (a.right - a.left) / V::kPixels;
  const int32_t n = a.bottom - a.top;
  for (int32_t g = 0; g < whole; g += groups) {
    const int32_t x = a.left + g * V::kPixels;
    BlurLines<V>(img.At(x, a.top), img.stride, group_bytes, std::min(groups, whole - g), n, r,
                 scratch);
  }
  const int32_t rest = a.left + whole * V::kPixels;
  if (rest == a.right) return 0;
  const ProcessRect tail{static_cast<uint32_t>(rest), static_cast<uint32_t>(a.top),
                         static_cast<uint32_t>(a.right), static_cast<uint32_t>(a.bottom)};
  return box_blur_cols_plain(img, nullptr, r, tail);
}

}  // namespace

int32_t box_blur_rows_sse41(const ImageView& img, const ImageView* weight, int32_t radius,
                            const ProcessRect& strip) {
  Area a;
  const int32_t code = detail::BoxBlurSetup(img, weight, radius, strip, &a);
  if (code != 0 || a.Empty()) return code;
  if (weight == nullptr && img.format == PIXEL_BGRA32) {
    BlurRows<BgraPx>(img, radius, a);
    return 0;
  }
  if (weight == nullptr && img.format == PIXEL_FLOAT96) {
    BlurRows<F96Px>(img, radius, a);
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
  switch (img.format) {
    case PIXEL_BGRA32: return BlurCols<BgraPx>(img, radius, a, 16);
    case PIXEL_FLOAT96: return BlurCols<F96Quad>(img, radius, a, 4);
    case PIXEL_GRAYF32: return BlurCols<F32Quad>(img, radius, a, 8);
    case PIXEL_GRAY8: return BlurCols<G8Quad>(img, radius, a, 16);
    default: return box_blur_cols_plain(img, nullptr, radius, strip);
  }
}

}  // namespace Vantyx
