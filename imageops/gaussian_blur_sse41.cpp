// Gaussian blur, SSE4.1 form: the same bytes as the plain form.
//
// The vector lanes are different samples, never different taps of one sample, so each
// sample's sum is built in the plain order: acc = 0, then acc + w[|k|] * x for k = -R .. R,
// one single-precision multiply and add per tap. A group is 16 pixels of one row (horizontal)
// or 16 columns of one row (vertical): 48 floats, B, G, R of each pixel side by side, in
// twelve accumulators. At tap k every lane reads the sample k pixels (or rows) away, so one
// broadcast weight serves the whole group.
//
// Samples are converted to float once per line into scratch, three floats per pixel. The
// horizontal pass pads each row with R copies of its first pixel and R + 16 of its last, so
// clamp(i + k) is a plain offset; the vertical pass keeps one converted row per source row and
// a table of row pointers for the padded index.
//
// Leading and trailing taps whose samples are zero in every lane are skipped: w * 0 is +0 and
// acc + 0 is acc (every weight is positive, so acc is never -0), so the sum is unchanged bit
// for bit. Highlight layers are mostly black, and this skips most of their taps. A group whose
// whole window is black (B, G and R 0) holds black pixels and gives black: it is not written,
// and neither are black rows (horizontal) or black column blocks (vertical).
#include <smmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "imageops/gaussian_blur.h"
#include "imageops/gaussian_blur_internal.h"
#include "vantyx.h"

namespace Vantyx {

namespace {

constexpr int32_t kGroup = 16;             // pixels per group
constexpr int32_t kFloats = 3 * kGroup;    // floats per group
constexpr int32_t kVectors = kFloats / 4;  // accumulators

inline int32_t Load32(const uint8_t* p) {
  int32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

// B, G, R, A of one pixel as four floats; callers store them 3 floats apart, so the alpha
// lane lands on the next pixel's B (or on spare room after the last pixel) and is overwritten.
inline __m128 PixelFloats(const uint8_t* p) {
  return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(Load32(p))));
}

inline bool Lit(const uint8_t* p) { return (p[0] | p[1] | p[2]) != 0; }

// The weights of taps t = 0 .. 2R (t = k + R).
std::vector<float> FullWeights(const float* w, int32_t radius) {
  std::vector<float> full(size_t(2 * radius + 1));
  for (int32_t t = 0; t <= 2 * radius; ++t)
    full[size_t(t)] = w[t < radius ? radius - t : t - radius];
  return full;
}

// For flags over a padded line: first[p] = the first lit index >= p (or size), last[p] = the
// last lit index <= p (or -1).
void LitBounds(const std::vector<uint8_t>& lit, std::vector<int32_t>& first,
               std::vector<int32_t>& last) {
  const int32_t n = int32_t(lit.size());
  first.resize(lit.size());
  last.resize(lit.size());
  int32_t seen = -1;
  for (int32_t p = 0; p < n; ++p) {
    if (lit[size_t(p)]) seen = p;
    last[size_t(p)] = seen;
  }
  seen = n;
  for (int32_t p = n - 1; p >= 0; --p) {
    if (lit[size_t(p)]) seen = p;
    first[size_t(p)] = seen;
  }
}

// The sums of one group over taps [t_lo, t_hi]; tap t reads 48 floats from row(t), or skips
// the tap when row(t) is null (all 48 samples zero).
template <class Row>
inline void Accumulate(const float* wfull, int32_t t_lo, int32_t t_hi, const Row& row,
                       __m128* acc) {
  for (int32_t v = 0; v < kVectors; ++v) acc[v] = _mm_setzero_ps();
  for (int32_t t = t_lo; t <= t_hi; ++t) {
    const float* s = row(t);
    if (s == nullptr) continue;
    const __m128 w = _mm_set1_ps(wfull[t]);
    for (int32_t v = 0; v < kVectors; ++v)
      acc[v] = _mm_add_ps(acc[v], _mm_mul_ps(w, _mm_loadu_ps(s + 4 * v)));
  }
}

// The 48 sums as bytes B, G, R per pixel: trunc(acc + 0.5f), at most 255 (the saturating
// packs give 255 for 256; sums are never negative).
inline void GroupBytes(const __m128* acc, uint8_t* out) {
  const __m128 half = _mm_set1_ps(0.5f);
  for (int32_t q = 0; q < kVectors; q += 4) {
    __m128i i[4];
    for (int32_t j = 0; j < 4; ++j) i[j] = _mm_cvttps_epi32(_mm_add_ps(acc[q + j], half));
    const __m128i bytes =
        _mm_packus_epi16(_mm_packus_epi32(i[0], i[1]), _mm_packus_epi32(i[2], i[3]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * q), bytes);
  }
}

// Writes B, G, R of `count` pixels (bytes 3 per pixel in `bgr`) over BGRA pixels, alpha kept.
inline void StoreGroup(const uint8_t* bgr, int32_t count, uint8_t* dst) {
  int32_t p = 0;
  if (count == kGroup) {
    const __m128i spread = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    const __m128i colour =
        _mm_setr_epi8(-1, -1, -1, 0, -1, -1, -1, 0, -1, -1, -1, 0, -1, -1, -1, 0);
    for (; p < kGroup; p += 4) {
      const __m128i c =
          _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bgr + 3 * p)), spread);
      __m128i* d = reinterpret_cast<__m128i*>(dst + 4 * p);
      _mm_storeu_si128(d, _mm_blendv_epi8(_mm_loadu_si128(d), c, colour));
    }
  }
  for (; p < count; ++p) std::memcpy(dst + 4 * p, bgr + 3 * p, 3);
}

}  // namespace

int32_t gaussian_blur_rows_sse41(const ImageView& img, const float* weights, int32_t radius,
                                 const ProcessRect& strip) {
  Area a;
  const int32_t rc = detail::GaussianSetup(img, weights, radius, strip, &a);
  if (rc != 0 || a.Empty()) return rc;
  const int32_t n = a.right - a.left;
  const int32_t padded = n + 2 * radius + kGroup;
  const std::vector<float> wfull = FullWeights(weights, radius);
  std::vector<float> xp(size_t(padded) * 3 + 4);  // + the last pixel's spare alpha lane
  std::vector<int32_t> lit_before(size_t(padded) + 1);  // lit pixels at padded indices < p
  alignas(16) uint8_t bytes[kFloats + 4];

  for (int32_t y = a.top; y < a.bottom; ++y) {
    uint8_t* row = img.At(a.left, y);
    int32_t count = 0;
    for (int32_t i = 0; i < n; ++i) count += Lit(row + 4 * i);
    if (count == 0) continue;  // a black row stays black
    const int32_t head_lit = Lit(row), tail_lit = Lit(row + 4 * (n - 1));
    int32_t* before = lit_before.data();
    before[0] = 0;
    for (int32_t p = 0; p < radius; ++p) before[p + 1] = before[p] + head_lit;
    for (int32_t i = 0; i < n; ++i) before[radius + i + 1] = before[radius + i] + Lit(row + 4 * i);
    for (int32_t p = radius + n; p < padded; ++p) before[p + 1] = before[p] + tail_lit;
    // Padded index p holds pixel clamp(p - R, 0, n - 1).
    const __m128 head = PixelFloats(row), tail = PixelFloats(row + 4 * (n - 1));
    for (int32_t p = 0; p < radius; ++p) _mm_storeu_ps(&xp[size_t(p) * 3], head);
    for (int32_t i = 0; i < n; ++i)
      _mm_storeu_ps(&xp[size_t(radius + i) * 3], PixelFloats(row + 4 * i));
    for (int32_t p = radius + n; p < padded; ++p) _mm_storeu_ps(&xp[size_t(p) * 3], tail);

    for (int32_t o = 0; o < n; o += kGroup) {
      // Tap t of the group reads padded pixels o + t .. o + t + 15: lit ones when c[t + 16]
      // exceeds c[t]. A window with nothing lit holds black pixels that stay black.
      const int32_t* c = before + o;
      if (c[2 * radius + kGroup] == c[0]) continue;
      int32_t t_lo = 0, t_hi = 2 * radius;
      while (c[t_lo + kGroup] == c[t_lo]) ++t_lo;
      while (c[t_hi + kGroup] == c[t_hi]) --t_hi;
      __m128 acc[kVectors];
      const float* base = xp.data() + size_t(o) * 3;
      Accumulate(
          wfull.data(), t_lo, t_hi, [base](int32_t t) { return base + 3 * t; }, acc);
      GroupBytes(acc, bytes);
      StoreGroup(bytes, std::min(kGroup, n - o), row + 4 * o);
    }
  }
  return 0;
}

int32_t gaussian_blur_cols_sse41(const ImageView& img, const float* weights, int32_t radius,
                                 const ProcessRect& strip) {
  Area a;
  const int32_t rc = detail::GaussianSetup(img, weights, radius, strip, &a);
  if (rc != 0 || a.Empty()) return rc;
  const int32_t n = a.bottom - a.top;
  const int32_t padded = n + 2 * radius;
  const std::vector<float> wfull = FullWeights(weights, radius);
  std::vector<float> rows(size_t(n) * kFloats + 4);
  std::vector<const float*> at(
      static_cast<size_t>(padded));  // padded row -> converted row clamp(p - R)
  for (int32_t p = 0; p < padded; ++p)
    at[size_t(p)] = rows.data() + size_t(std::min(std::max(p - radius, 0), n - 1)) * kFloats;
  std::vector<uint8_t> lit(static_cast<size_t>(padded));
  std::vector<const float*> lit_at(static_cast<size_t>(padded));  // null for black rows
  std::vector<int32_t> first, last;
  alignas(16) uint8_t bytes[kFloats + 4];

  for (int32_t x0 = a.left; x0 < a.right; x0 += kGroup) {
    const int32_t count = std::min(kGroup, a.right - x0);
    uint8_t* const top = img.At(x0, a.top);
    const ptrdiff_t stride = img.stride;
    uint8_t any_row = 0;
    for (int32_t r = 0; r < n; ++r) {
      const uint8_t* src = top + r * stride;
      uint8_t any = 0;
      for (int32_t i = 0; i < count; ++i) any |= Lit(src + 4 * i);
      any_row |= lit[size_t(radius + r)] = any;
    }
    if (!any_row) continue;  // black columns stay black
    for (int32_t r = 0; r < n; ++r) {
      const uint8_t* src = top + r * stride;
      float* dst = rows.data() + size_t(r) * kFloats;
      for (int32_t i = 0; i < count; ++i) _mm_storeu_ps(dst + 3 * i, PixelFloats(src + 4 * i));
      // Columns past the strip stay zero: they never light a row.
      std::fill(dst + 3 * count, dst + kFloats + (r == n - 1 ? 4 : 0), 0.0f);
    }
    std::fill(lit.begin(), lit.begin() + radius, lit[size_t(radius)]);
    std::fill(lit.begin() + radius + n, lit.end(), lit[size_t(radius + n - 1)]);
    LitBounds(lit, first, last);
    for (int32_t p = 0; p < padded; ++p) lit_at[size_t(p)] = lit[size_t(p)] ? at[size_t(p)] : nullptr;

    for (int32_t y = 0; y < n; ++y) {
      // Output row y reads padded rows y .. y + 2R.
      const int32_t t_lo = first[size_t(y)] - y;
      const int32_t t_hi = last[size_t(y + 2 * radius)] - y;
      if (t_lo > t_hi) continue;  // black stays black
      __m128 acc[kVectors];
      const float* const* row_at = lit_at.data() + y;
      Accumulate(
          wfull.data(), t_lo, t_hi, [row_at](int32_t t) { return row_at[t]; }, acc);
      GroupBytes(acc, bytes);
      StoreGroup(bytes, count, top + y * stride);
    }
  }
  return 0;
}

}  // namespace Vantyx
