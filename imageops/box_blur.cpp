// Running-sum box blur, plain form and the choosers.
//
// Per line of n samples and radius r (window [i - (r - 1), i + (r - 1)] cut at the line's ends,
// divided by the samples inside it), with float sums:
//   2r - 1 <= n: the ring form. S starts as x[0] + .. + x[r-1] (the ring keeps those r unfiltered
//     samples); S += x[i + r - 1] while the window grows; S = S - ring[j] + x[i + r - 1] and
//     ring[j] = x[i] in the middle; S -= ring[j] while it shrinks. One add and one subtract per
//     sample whatever the radius.
//   2r - 1 > n (radius longer than the line allows): still a running sum, but a window never
//     both gains and loses a sample at the same step (that would need i >= r and i <= n - r, so
//     n >= 2r). S starts as x[0] + .. + x[m-1] with m = min(r, n), the ring keeps those m
//     samples; then per step S += x[i + r - 1] while i + r - 1 < n, otherwise S -= ring[i - r]
//     once i >= r (i - r < n - r < m, always a saved sample), otherwise the window is the whole
//     line and S stays. Nothing outside the line is read.
//
// Output per format: BGRA32 filters B, G, R and keeps alpha, bytes are
// trunc(double(S / count) + 0.5), at most 255; GRAY8 the same on its one byte; GRAYF32 and
// FLOAT96 store S / count; GRAY32_ALT (one uint32) keeps its sums in double, where every sum
// of 32-bit values is exact, and stores trunc(S / count + 0.5), the exact rounded mean.
//
// Weighted 8-bit variant (BGRA32 image with a second image): the weight of a pixel is the
// second image's alpha (BGRA32) or its byte (GRAY8) at the same coordinates. The running sums
// are of w and of w x B, w x G, w x R; each channel becomes trunc(double(Swx / Sw) + 0.5), at
// most 255, and a pixel whose whole window weighs 0 keeps its value. Alpha is kept. The weight
// image is only read.
#include "imageops/box_blur.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "imageops/box_blur_internal.h"
#include "vantyx.h"

namespace Vantyx {

namespace detail {

int32_t BoxBlurSetup(const ImageView& img, const ImageView* weight, int32_t radius,
                     const ProcessRect& strip, Area* area) {
  *area = Area{0, 0, 0, 0};
  if (img.data == nullptr || (weight != nullptr && weight->data == nullptr)) return VX_E_POINTER;
  if (weight != nullptr) {
    if (img.format != PIXEL_BGRA32) return VX_E_NOTIMPL;
    if (weight->format != PIXEL_BGRA32 && weight->format != PIXEL_GRAY8) return VX_E_NOTIMPL;
  } else {
    switch (img.format) {
      case PIXEL_BGRA32:
      case PIXEL_GRAY8:
      case PIXEL_GRAYF32:
      case PIXEL_FLOAT96:
      case PIXEL_GRAY32_ALT: break;
      default: return VX_E_NOTIMPL;
    }
  }
  if (radius < 0) return VX_E_INVALIDARG;
  if (radius == 0) return 0;
  Area a = Clip(AreaOf(strip), img);
  if (weight != nullptr) a = Clip(a, *weight);
  *area = a;
  return 0;
}

int32_t BoxBlurWindowCount(int64_t i, int64_t n, int64_t r) {
  return static_cast<int32_t>(std::min(n - 1, i + r - 1) - std::max<int64_t>(0, i - r + 1) + 1);
}

ByteDivisor MakeByteDivisor(int32_t count) {
  ByteDivisor d;
  d.count = count;
  d.half = static_cast<uint16_t>(count / 2);
  const int64_t largest = 255 * int64_t{count} + count / 2;
  // The smallest shift whose rounded-up multiplier m = ceil(2^k / c), k = 16 + shift, is exact
  // for every numerator up to `largest`: m c - 2^k = e < c, and n m / 2^k = n / c + n e / (c 2^k)
  // stays below the next multiple of 1 / c while n e < 2^k.
  for (int32_t shift = 0; shift < 16; ++shift) {
    const int64_t k = int64_t{1} << (16 + shift);
    const int64_t m = (k + count - 1) / count;
    if (m > 65535) break;
    if ((m * count - k) * largest < k) {
      d.multiplier = static_cast<uint16_t>(m);
      d.shift = shift;
      return d;
    }
  }
  d.multiplier = static_cast<uint16_t>(std::min<int32_t>(65536 / count, 65535));
  d.shift = -1;
  return d;
}

void ColumnBoxStream::Init(bool floats, int32_t n, int32_t r, int32_t out_begin, int32_t out_end,
                           int32_t row_bytes) {
  floats_ = floats;
  n_ = n;
  r_ = r;
  out_end_ = out_end;
  row_bytes_ = row_bytes;
  first_in_ = static_cast<int32_t>(std::max<int64_t>(0, int64_t{out_begin} - r + 1));
  end_in_ = static_cast<int32_t>(std::min<int64_t>(n, int64_t{out_end} + r - 1));
  capacity_ = static_cast<int32_t>(std::max<int64_t>(1, std::min<int64_t>(2 * int64_t{r}, end_in_ - first_in_)));
  next_ = out_begin;
  pushed_ = first_in_ - 1;
  started_ = false;
  rows_.assign(static_cast<size_t>(capacity_), nullptr);
  // 16-bit sums per byte, or one float per float, and room to align them to 16 bytes.
  const size_t lanes = floats ? static_cast<size_t>(row_bytes) / 4 : static_cast<size_t>(row_bytes);
  sums_.assign((floats ? 4 : 2) * (lanes + 8) + 16, 0);
}

void ColumnBoxStream::Push(int32_t i, const uint8_t* row) {
  rows_[size_t((i - first_in_) % capacity_)] = row;
  pushed_ = i;
}

int32_t ColumnBoxStream::Ready() const {
  if (next_ >= out_end_) return -1;
  const int64_t need = std::min<int64_t>(n_ - 1, int64_t{next_} + r_ - 1);
  return pushed_ >= need ? next_ : -1;
}

}  // namespace detail

namespace {

uint8_t RoundByte(float q) {
  const double d = static_cast<double>(q) + 0.5;
  if (!(d >= 1.0)) return 0;  // only the weighted sums can drift below zero
  if (d >= 255.0) return 255;
  return static_cast<uint8_t>(static_cast<int32_t>(d));
}


// Per-format sample access: kLanes running sums of type Sum per pixel; Load reads the
// unfiltered lanes of a pixel (w: the weight pixel, weighted variant only); Store writes the
// filtered pixel from its sums and the window's sample count. kPacked: the pixels are plain
// floats, so a run of pixels is a run of lanes.
struct Bgra {
  static constexpr bool kPacked = false;
  using Sum = float;
  static constexpr int kLanes = 3;
  static void Load(const uint8_t* p, const uint8_t*, float* v) {
    for (int c = 0; c < 3; ++c) v[c] = static_cast<float>(p[c]);
  }
  static void Store(uint8_t* p, const float* s, int32_t count) {
    const float n = static_cast<float>(count);
    for (int c = 0; c < 3; ++c) p[c] = RoundByte(s[c] / n);
  }
};

struct Gray8 {
  static constexpr bool kPacked = false;
  using Sum = float;
  static constexpr int kLanes = 1;
  static void Load(const uint8_t* p, const uint8_t*, float* v) { v[0] = static_cast<float>(p[0]); }
  static void Store(uint8_t* p, const float* s, int32_t count) {
    p[0] = RoundByte(s[0] / static_cast<float>(count));
  }
};

template <int N>
struct Floats {
  static constexpr bool kPacked = true;
  using Sum = float;
  static constexpr int kLanes = N;
  static void Load(const uint8_t* p, const uint8_t*, float* v) {
    std::memcpy(v, p, sizeof(float) * N);
  }
  static void Store(uint8_t* p, const float* s, int32_t count) {
    const float n = static_cast<float>(count);
    float out[N];
    for (int c = 0; c < N; ++c) out[c] = s[c] / n;
    std::memcpy(p, out, sizeof(out));
  }
};

struct Gray32 {
  static constexpr bool kPacked = false;
  using Sum = double;
  static constexpr int kLanes = 1;
  static void Load(const uint8_t* p, const uint8_t*, double* v) {
    uint32_t u;
    std::memcpy(&u, p, 4);
    v[0] = static_cast<double>(u);
  }
  static void Store(uint8_t* p, const double* s, int32_t count) {
    const uint32_t u = static_cast<uint32_t>(s[0] / static_cast<double>(count) + 0.5);
    std::memcpy(p, &u, 4);
  }
};

// Weighted BGRA: lanes w, w*B, w*G, w*R. kWeightByte picks the weight image's byte.
template <int kWeightByte>
struct Weighted {
  static constexpr bool kPacked = false;
  using Sum = float;
  static constexpr int kLanes = 4;
  static void Load(const uint8_t* p, const uint8_t* w, float* v) {
    const float wf = static_cast<float>(w[kWeightByte]);
    v[0] = wf;
    for (int c = 0; c < 3; ++c) v[c + 1] = wf * static_cast<float>(p[c]);
  }
  static void Store(uint8_t* p, const float* s, int32_t) {
    if (!(s[0] > 0.0f)) return;
    for (int c = 0; c < 3; ++c) p[c] = RoundByte(s[c + 1] / s[0]);
  }
};

// Both forms above, step for step, as one rule per sample i >= 1 of a line:
//   S += x[i + r - 1] while i <= n - r; S -= x[i - r] once i >= r; both at once (the ring
//   form's middle) as S = S - x[i - r] + x[i + r - 1]; then out[i] = S / count.
// In the ring form the add-only steps are the growing window and the subtract-only ones the
// shrinking window; in the long-radius rule the two ranges never meet. x[i - r] is the
// unfiltered sample, kept in a copy of the row (horizontal) or a ring of r rows (vertical).
enum class Step { kNone, kAdd, kSub, kBoth };

// Samples in the window of sample i: [i - (r - 1), i + (r - 1)] cut at the line's ends.
int32_t WindowCount(int64_t i, int64_t n, int64_t r) {
  return static_cast<int32_t>(std::min(n - 1, i + r - 1) - std::max<int64_t>(0, i - r + 1) + 1);
}

// Calls run(step, from, to) for the ranges of i in [1, n) that take one kind of step, in order.
template <class Run>
void ForEachRange(int32_t n, int32_t r, const Run& run) {
  // Adds for i < n - r + 1, subtracts for i >= r (values outside [1, n] held to it).
  const int64_t add_end = std::min<int64_t>(std::max<int64_t>(int64_t{n} - r + 1, 1), n);
  const int64_t sub_from = std::min<int64_t>(r, n);
  const int32_t lo = static_cast<int32_t>(std::min(add_end, sub_from));
  const int32_t hi = static_cast<int32_t>(std::max(add_end, sub_from));
  run(Step::kAdd, 1, lo);
  run(add_end > sub_from ? Step::kBoth : Step::kNone, lo, hi);
  run(Step::kSub, hi, n);
}

template <class T, Step kStep>
void Update(T& s, T old, T in) {
  if (kStep == Step::kBoth)
    s = s - old + in;
  else if (kStep == Step::kAdd)
    s += in;
  else if (kStep == Step::kSub)
    s -= old;
}

// Rows: one row at a time, its sums in locals and its unfiltered samples in a copy. The window
// gains a sample on an adding step and loses one on a subtracting step.
template <class F, Step kStep>
void RowRange(uint8_t* p, const uint8_t* x, ptrdiff_t bpp, const uint8_t* w, ptrdiff_t wbpp,
              int32_t r, int32_t from, int32_t to, typename F::Sum* s, int32_t* count) {
  using T = typename F::Sum;
  constexpr int N = F::kLanes;
  const int32_t change = kStep == Step::kAdd ? 1 : kStep == Step::kSub ? -1 : 0;
  int32_t cnt = *count;
  for (int32_t i = from; i < to; ++i) {
    T in[N] = {}, old[N] = {};
    const int64_t a = int64_t{i} + r - 1, b = int64_t{i} - r;
    if (kStep == Step::kAdd || kStep == Step::kBoth)
      F::Load(x + a * bpp, w != nullptr ? w + a * wbpp : nullptr, in);
    if (kStep == Step::kSub || kStep == Step::kBoth)
      F::Load(x + b * bpp, w != nullptr ? w + b * wbpp : nullptr, old);
    for (int c = 0; c < N; ++c) Update<T, kStep>(s[c], old[c], in[c]);
    cnt += change;
    F::Store(p + i * bpp, s, cnt);
  }
  *count = cnt;
}

template <class F>
void BlurRows(const ImageView& img, const ImageView* weight, int32_t r, const Area& a) {
  using T = typename F::Sum;
  constexpr int N = F::kLanes;
  const int32_t n = a.right - a.left;
  const int32_t m = std::min(r, n);
  const ptrdiff_t bpp = BytesPerPixel(img.format);
  const ptrdiff_t wbpp = weight != nullptr ? BytesPerPixel(weight->format) : 0;
  std::vector<uint8_t> copy(static_cast<size_t>(n) * static_cast<size_t>(bpp));
  for (int32_t y = a.top; y < a.bottom; ++y) {
    uint8_t* p = img.At(a.left, y);
    const uint8_t* w = weight != nullptr ? weight->At(a.left, y) : nullptr;
    const uint8_t* x = copy.data();
    std::memcpy(copy.data(), p, copy.size());
    T s[N], v[N];
    F::Load(x, w, s);  // S = x[0] + x[1] + .. + x[m-1], in that order
    for (int32_t t = 1; t < m; ++t) {
      F::Load(x + t * bpp, w != nullptr ? w + t * wbpp : nullptr, v);
      for (int c = 0; c < N; ++c) s[c] += v[c];
    }
    int32_t count = m;
    F::Store(p, s, count);
    ForEachRange(n, r, [&](Step step, int32_t from, int32_t to) {
      switch (step) {
        case Step::kAdd: RowRange<F, Step::kAdd>(p, x, bpp, w, wbpp, r, from, to, s, &count); break;
        case Step::kSub: RowRange<F, Step::kSub>(p, x, bpp, w, wbpp, r, from, to, s, &count); break;
        case Step::kBoth:
          RowRange<F, Step::kBoth>(p, x, bpp, w, wbpp, r, from, to, s, &count);
          break;
        case Step::kNone:
          RowRange<F, Step::kNone>(p, x, bpp, w, wbpp, r, from, to, s, &count);
          break;
      }
    });
  }
}

// Columns: a segment of adjacent columns one row at a time, so that every access walks a row
// forwards; the ring slot of row i is i mod r. Segments are at most kRowBytes of sums wide,
// and narrower when the ring would pass kRingBytes.
constexpr int64_t kRowBytes = 4096;
constexpr int64_t kRingBytes = 256 * 1024;

struct ColumnRow {
  uint8_t* p;          // row i of the segment
  const uint8_t* in;   // row i + r - 1 (adding steps only)
  const uint8_t* w;    // the weight image at row i, or null
  const uint8_t* win;  // and at row i + r - 1
  ptrdiff_t bpp, wbpp;
  int32_t cols;
  int32_t count;       // samples in the window of row i
};

template <class F, Step kStep>
void ColumnStep(const ColumnRow& row, typename F::Sum* s, typename F::Sum* slot) {
  using T = typename F::Sum;
  constexpr int N = F::kLanes;
  constexpr bool kAdd = kStep == Step::kAdd || kStep == Step::kBoth;
  if constexpr (F::kPacked) {  // float pixels: the lanes are the row's floats in order
    const size_t L = static_cast<size_t>(row.cols) * N;
    const float n = static_cast<float>(row.count);
    for (size_t c = 0; c < L; ++c) {
      T in = 0, cur;
      if (kAdd) std::memcpy(&in, row.in + 4 * c, 4);
      std::memcpy(&cur, row.p + 4 * c, 4);
      Update<T, kStep>(s[c], slot[c], in);
      slot[c] = cur;
      const T q = s[c] / n;
      std::memcpy(row.p + 4 * c, &q, 4);
    }
  } else {
    T* sk = s;
    T* ok = slot;
    for (int32_t k = 0; k < row.cols; ++k, sk += N, ok += N) {
      T in[N] = {};
      if (kAdd)
        F::Load(row.in + k * row.bpp, row.win != nullptr ? row.win + k * row.wbpp : nullptr, in);
      for (int c = 0; c < N; ++c) Update<T, kStep>(sk[c], ok[c], in[c]);
      F::Load(row.p + k * row.bpp, row.w != nullptr ? row.w + k * row.wbpp : nullptr, ok);
    }
    for (int32_t k = 0; k < row.cols; ++k, s += N) F::Store(row.p + k * row.bpp, s, row.count);
  }
}

template <class F>
void BlurColumns(const ImageView& img, const ImageView* weight, int32_t r, const Area& a) {
  using T = typename F::Sum;
  constexpr int N = F::kLanes;
  const int32_t n = a.bottom - a.top;
  const int32_t m = std::min(r, n);
  const int64_t col_bytes = static_cast<int64_t>(N * sizeof(T));
  int64_t seg = std::min(kRowBytes / col_bytes, kRingBytes / (m * col_bytes));
  seg = std::min<int64_t>(std::max<int64_t>(16, seg), a.right - a.left);
  const size_t lanes = static_cast<size_t>(seg) * N;
  std::vector<T> scratch(lanes * static_cast<size_t>(m + 2));
  T* s = scratch.data();
  T* x = s + lanes;
  T* ring = x + lanes;
  ColumnRow row;
  row.bpp = BytesPerPixel(img.format);
  row.wbpp = weight != nullptr ? BytesPerPixel(weight->format) : 0;
  const ptrdiff_t stride = img.stride;
  const ptrdiff_t wstride = weight != nullptr ? weight->stride : 0;
  for (int32_t x0 = a.left; x0 < a.right; x0 += static_cast<int32_t>(seg)) {
    row.cols = std::min(static_cast<int32_t>(seg), a.right - x0);
    const size_t L = static_cast<size_t>(row.cols) * N;
    uint8_t* p = img.At(x0, a.top);
    const uint8_t* w = weight != nullptr ? weight->At(x0, a.top) : nullptr;
    auto load = [&](int64_t i, T* v) {
      for (int32_t k = 0; k < row.cols; ++k)
        F::Load(p + i * stride + k * row.bpp,
                w != nullptr ? w + i * wstride + k * row.wbpp : nullptr, v + k * N);
    };
    load(0, s);  // S = x[0] + x[1] + .. + x[m-1], in that order
    for (int32_t t = 1; t < m; ++t) {
      load(t, x);
      for (size_t c = 0; c < L; ++c) s[c] += x[c];
    }
    // Points `row` at row i; returns its ring slot.
    auto at = [&](int64_t i) {
      const int64_t in = i + r - 1;
      row.p = p + i * stride;
      row.w = w != nullptr ? w + i * wstride : nullptr;
      row.in = in < n ? p + in * stride : nullptr;
      row.win = in < n && w != nullptr ? w + in * wstride : nullptr;
      row.count = WindowCount(i, n, r);
      return ring + static_cast<size_t>(i % r) * L;
    };
    T* first = at(0);
    ColumnStep<F, Step::kNone>(row, s, first);
    ForEachRange(n, r, [&](Step step, int32_t from, int32_t to) {
      for (int32_t i = from; i < to; ++i) {
        T* slot = at(i);
        switch (step) {
          case Step::kAdd: ColumnStep<F, Step::kAdd>(row, s, slot); break;
          case Step::kSub: ColumnStep<F, Step::kSub>(row, s, slot); break;
          case Step::kBoth: ColumnStep<F, Step::kBoth>(row, s, slot); break;
          case Step::kNone: ColumnStep<F, Step::kNone>(row, s, slot); break;
        }
      }
    });
  }
}

template <class F>
void BlurArea(const ImageView& img, const ImageView* weight, int32_t r, const Area& a, bool rows) {
  if (rows)
    BlurRows<F>(img, weight, r, a);
  else
    BlurColumns<F>(img, weight, r, a);
}

int32_t BoxBlurPlain(const ImageView& img, const ImageView* weight, int32_t radius,
                     const ProcessRect& strip, bool rows) {
  Area a;
  const int32_t code = detail::BoxBlurSetup(img, weight, radius, strip, &a);
  if (code != 0 || a.Empty()) return code;
  if (weight != nullptr) {
    if (weight->format == PIXEL_BGRA32)
      BlurArea<Weighted<3>>(img, weight, radius, a, rows);
    else
      BlurArea<Weighted<0>>(img, weight, radius, a, rows);
    return 0;
  }
  switch (img.format) {
    case PIXEL_BGRA32: BlurArea<Bgra>(img, nullptr, radius, a, rows); break;
    case PIXEL_GRAY8: BlurArea<Gray8>(img, nullptr, radius, a, rows); break;
    case PIXEL_GRAYF32: BlurArea<Floats<1>>(img, nullptr, radius, a, rows); break;
    case PIXEL_FLOAT96: BlurArea<Floats<3>>(img, nullptr, radius, a, rows); break;
    default: BlurArea<Gray32>(img, nullptr, radius, a, rows); break;  // PIXEL_GRAY32_ALT
  }
  return 0;
}

}  // namespace

int32_t box_blur_rows_plain(const ImageView& img, const ImageView* weight, int32_t radius,
                            const ProcessRect& strip) {
  return BoxBlurPlain(img, weight, radius, strip, true);
}

int32_t box_blur_cols_plain(const ImageView& img, const ImageView* weight, int32_t radius,
                            const ProcessRect& strip) {
  return BoxBlurPlain(img, weight, radius, strip, false);
}

int32_t box_blur_rows(const ImageView& img, const ImageView* weight, int32_t radius,
                      const ProcessRect& strip, int32_t simd_level) {
  return simd_level >= SIMD_SSE41 ? box_blur_rows_sse41(img, weight, radius, strip)
                                  : box_blur_rows_plain(img, weight, radius, strip);
}

int32_t box_blur_cols(const ImageView& img, const ImageView* weight, int32_t radius,
                      const ProcessRect& strip, int32_t simd_level) {
  return simd_level >= SIMD_SSE41 ? box_blur_cols_sse41(img, weight, radius, strip)
                                  : box_blur_cols_plain(img, weight, radius, strip);
}

}  // namespace Vantyx
