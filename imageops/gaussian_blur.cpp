// Gaussian blur: the kernel builder, the plain passes and the choosers. The plain passes are
// the reference: one pixel, one channel, one tap at a time, in the order of the header.
#include "imageops/gaussian_blur.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "imageops/gaussian_blur_internal.h"
#include "vantyx.h"

namespace Vantyx {

GaussianKernel BuildGaussianKernel(int32_t r) {
  GaussianKernel k;
  k.sigma = static_cast<double>(static_cast<float>(r - 1) * 0.3f + 0.8f);
  k.weights.assign(1, 1.0f);
  if (r < 1 || k.sigma <= 0.0001) return k;

  const double e = static_cast<double>(2.7182817f);
  std::vector<double> w(static_cast<size_t>(r) + 1);
  w[0] = 1.0;
  double sum = 0.0;
  for (int32_t i = 1; i <= r; ++i) {
    const double q = static_cast<double>(i) / k.sigma;
    w[size_t(i)] = std::pow(e, -0.5 * (q * q));
  }
  for (int32_t i = 1; i <= r; ++i) sum += w[size_t(i)];
  const double norm = 1.0 + 2.0 * sum;
  for (double& v : w) v /= norm;

  // The weights that still matter: more than 1/32 of the centre.
  for (int32_t i = 1; i <= r; ++i)
    if (w[size_t(i)] > w[0] / 32.0) k.radius = i;
  double kept = 0.0;
  for (int32_t i = 1; i <= k.radius; ++i) kept += w[size_t(i)];
  const double norm2 = w[0] + 2.0 * kept;
  k.weights.resize(size_t(k.radius) + 1);
  for (int32_t i = 0; i <= k.radius; ++i)
    k.weights[size_t(i)] = static_cast<float>(w[size_t(i)] / norm2);
  return k;
}

namespace detail {

int32_t GaussianSetup(const ImageView& img, const float* weights, int32_t radius,
                      const ProcessRect& strip, Area* area) {
  *area = Area{0, 0, 0, 0};
  if (img.data == nullptr || weights == nullptr) return VX_E_POINTER;
  if (img.format != PIXEL_BGRA32) return VX_E_NOTIMPL;
  if (radius < 0 || radius > kMaxGaussianRadius) return VX_E_INVALIDARG;
  *area = Clip(AreaOf(strip), img);
  return 0;
}

}  // namespace detail

namespace {

// One output sample of a line of n samples `step` bytes apart.
uint8_t BlurSample(const uint8_t* x, ptrdiff_t step, int32_t n, int32_t i, const float* w,
                   int32_t radius) {
  float acc = 0.0f;
  for (int32_t k = -radius; k <= radius; ++k) {
    const int64_t j = std::min<int64_t>(std::max<int64_t>(int64_t{i} + k, 0), n - 1);
    acc = acc + w[std::abs(k)] * static_cast<float>(x[j * step]);
  }
  return detail::GaussianByte(acc);
}

// Filters one line in place from an unfiltered copy of it.
void BlurLine(uint8_t* line, ptrdiff_t step, int32_t n, const float* w, int32_t radius,
              std::vector<uint8_t>& copy) {
  copy.resize(size_t(n) * 4);
  for (int32_t i = 0; i < n; ++i) std::memcpy(&copy[size_t(i) * 4], line + i * step, 4);
  for (int32_t i = 0; i < n; ++i)
    for (int c = 0; c < 3; ++c)
      line[i * step + c] = BlurSample(copy.data() + c, 4, n, i, w, radius);
}

}  // namespace

int32_t gaussian_blur_rows_plain(const ImageView& img, const float* weights, int32_t radius,
                                 const ProcessRect& strip) {
  Area a;
  const int32_t rc = detail::GaussianSetup(img, weights, radius, strip, &a);
  if (rc != 0 || a.Empty()) return rc;
  std::vector<uint8_t> copy;
  for (int32_t y = a.top; y < a.bottom; ++y)
    BlurLine(img.At(a.left, y), 4, a.right - a.left, weights, radius, copy);
  return 0;
}

int32_t gaussian_blur_cols_plain(const ImageView& img, const float* weights, int32_t radius,
                                 const ProcessRect& strip) {
  Area a;
  const int32_t rc = detail::GaussianSetup(img, weights, radius, strip, &a);
  if (rc != 0 || a.Empty()) return rc;
  std::vector<uint8_t> copy;
  for (int32_t x = a.left; x < a.right; ++x)
    BlurLine(img.At(x, a.top), img.stride, a.bottom - a.top, weights, radius, copy);
  return 0;
}

int32_t gaussian_blur_rows(const ImageView& img, const float* weights, int32_t radius,
                           const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return gaussian_blur_rows_sse41(img, weights, radius, strip);
  return gaussian_blur_rows_plain(img, weights, radius, strip);
}

int32_t gaussian_blur_cols(const ImageView& img, const float* weights, int32_t radius,
                           const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return gaussian_blur_cols_sse41(img, weights, radius, strip);
  return gaussian_blur_cols_plain(img, weights, radius, strip);
}

}  // namespace Vantyx
