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
// filtered pixel from its sums and the window's sample count.
struct Bgra {
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
  using Sum = float;
  static constexpr int kLanes = 1;
  static void Load(const uint8_t* p, const uint8_t*, float* v) { v[0] = static_cast<float>(p[0]); }
  static void Store(uint8_t* p, const float* s, int32_t count) {
    p[0] = RoundByte(s[0] / static_cast<float>(count));
  }
};

template <int N>
struct Floats {
  using Sum = float;
  static constexpr int kLanes = N;
  static void Load(const uint8_t* p, const uint8_t*, float* v) { std::memcpy(v, p, sizeof(float) * N); }
  static void Store(uint8_t* p, const float* s, int32_t count) {
    const float n = static_cast<float>(count);
    float out[N];
    for (int c = 0; c < N; ++c) out[c] = s[c] / n;
    std::memcpy(p, out, sizeof(out));
  }
};

struct Gray32 {
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

// A set of parallel lines filtered together: a block of columns for the vertical pass, one
// row for the horizontal pass.
struct Lines {
  uint8_t* data;          // sample 0 of line 0
  ptrdiff_t step;         // bytes between samples along a line
  ptrdiff_t line_step;    // bytes between lines
  const uint8_t* wdata;   // weight image at the same place, or null
  ptrdiff_t wstep;
  ptrdiff_t wline_step;
  int32_t count;          // lines
  int32_t n;              // samples per line
};

template <class F>
class LineBlur {
 public:
  using T = typename F::Sum;
  LineBlur(const Lines& lines, std::vector<T>& scratch) : m_l(lines) {
    m_lanes = static_cast<size_t>(lines.count) * F::kLanes;
    m_scratch = &scratch;
  }

  void Run(int32_t r) {
    const int32_t n = m_l.n;
    const size_t ring_len = static_cast<size_t>(std::min(r, n));
    m_scratch->resize(m_lanes * (ring_len + 2));
    T* s = m_scratch->data();
    T* x = s + m_lanes;
    T* ring = x + m_lanes;
    const size_t L = m_lanes;

    if (detail::BoxBlurRingFits(n, r)) {
      Load(0, s);
      std::copy(s, s + L, ring);
      for (int32_t k = 1; k < r; ++k) {
        T* rk = ring + k * L;
        Load(k, rk);
        for (size_t c = 0; c < L; ++c) s[c] += rk[c];
      }
      Store(0, r);
      for (int32_t i = 1; i < r; ++i) {
        Load(i + r - 1, x);
        for (size_t c = 0; c < L; ++c) s[c] += x[c];
        Store(i, r + i);
      }
      int32_t j = 0;
      const int32_t full = 2 * r - 1;
      for (int32_t i = r; i <= n - r; ++i) {
        T* rj = ring + j * L;
        Load(i + r - 1, x);
        for (size_t c = 0; c < L; ++c) s[c] = s[c] - rj[c] + x[c];
        Load(i, rj);
        Store(i, full);
        if (++j == r) j = 0;
      }
      for (int32_t i = n - r + 1; i < n; ++i) {
        const T* rj = ring + j * L;
        for (size_t c = 0; c < L; ++c) s[c] -= rj[c];
        Store(i, n - 1 - i + r);
        if (++j == r) j = 0;
      }
      return;
    }

    const int32_t m = static_cast<int32_t>(ring_len);
    Load(0, s);
    std::copy(s, s + L, ring);
    for (int32_t k = 1; k < m; ++k) {
      T* rk = ring + k * L;
      Load(k, rk);
      for (size_t c = 0; c < L; ++c) s[c] += rk[c];
    }
    int32_t count = m;
    Store(0, count);
    for (int32_t i = 1; i < n; ++i) {
      if (i <= n - r) {  // x[i + r - 1] is on the line
        Load(i + r - 1, x);
        for (size_t c = 0; c < L; ++c) s[c] += x[c];
        ++count;
      } else if (i >= r) {  // x[i - r] has left the window
        const T* old = ring + (i - r) * L;
        for (size_t c = 0; c < L; ++c) s[c] -= old[c];
        --count;
      }
      Store(i, count);
    }
  }

 private:
  void Load(int32_t i, T* v) const {
    const uint8_t* p = m_l.data + i * m_l.step;
    const uint8_t* w = m_l.wdata != nullptr ? m_l.wdata + i * m_l.wstep : nullptr;
    for (int32_t k = 0; k < m_l.count; ++k) {
      F::Load(p, w, v + static_cast<size_t>(k) * F::kLanes);
      p += m_l.line_step;
      if (w != nullptr) w += m_l.wline_step;
    }
  }
  void Store(int32_t i, int32_t count) const {
    uint8_t* p = m_l.data + i * m_l.step;
    const T* s = m_scratch->data();
    for (int32_t k = 0; k < m_l.count; ++k) {
      F::Store(p, s + static_cast<size_t>(k) * F::kLanes, count);
      p += m_l.line_step;
    }
  }

  Lines m_l;
  size_t m_lanes;
  std::vector<T>* m_scratch;
};

// Columns filtered side by side: enough to use whole cache lines, few enough that the ring
// stays small.
constexpr int32_t kColumnBlock = 32;

template <class F>
void BlurArea(const ImageView& img, const ImageView* weight, int32_t r, const Area& a, bool rows) {
  std::vector<typename F::Sum> scratch;
  const ptrdiff_t bpp = BytesPerPixel(img.format);
  const ptrdiff_t wbpp = weight != nullptr ? BytesPerPixel(weight->format) : 0;
  const ptrdiff_t wstride = weight != nullptr ? weight->stride : 0;
  auto weight_at = [&](int32_t x, int32_t y) -> const uint8_t* {
    return weight != nullptr ? weight->At(x, y) : nullptr;
  };
  if (rows) {
    for (int32_t y = a.top; y < a.bottom; ++y) {
      const Lines l{img.At(a.left, y), bpp, img.stride, weight_at(a.left, y), wbpp, wstride,
                    1, a.right - a.left};
      LineBlur<F>(l, scratch).Run(r);
    }
  } else {
    for (int32_t x = a.left; x < a.right; x += kColumnBlock) {
      const Lines l{img.At(x, a.top), img.stride, bpp, weight_at(x, a.top), wstride, wbpp,
                    std::min(kColumnBlock, a.right - x), a.bottom - a.top};
      LineBlur<F>(l, scratch).Run(r);
    }
  }
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
