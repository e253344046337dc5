// Separable gaussian blur of BGRA32 images, in place: a horizontal pass along rows and a
// vertical pass along columns. A line is the strip's extent (a row from strip.left to
// strip.right, a column from strip.top to strip.bottom), cut to the image; B, G and R are
// filtered, alpha is left alone.
//
// Each output byte is exactly
//   acc = 0.0f;  for k = -R .. R:  acc = acc + w[|k|] * x[clamp(i + k, 0, n - 1)]
//   byte = min(255, trunc(acc + 0.5f))
// in single precision, in that order, whatever the form.
#pragma once

#include <cstdint>
#include <vector>

#include "core/image_view.h"

namespace Vantyx {

struct GaussianKernel {
  double sigma = 0.0;          // float(r - 1) * 0.3f + 0.8f, widened
  int32_t radius = 0;          // R, the radius kept after trimming
  std::vector<float> weights;  // w[0..R]
};

// The kernel for radius r >= 0: weights in double, w[i] = e^(-(i / sigma)^2 / 2) with e the
// float 2.7182817f, normalised, trimmed to the weights above 1/32 of the centre, normalised
// again over the kept symmetric kernel and stored as float. Radius 0 (or a sigma of at most
// 0.0001) keeps only the centre weight 1, a copy.
GaussianKernel BuildGaussianKernel(int32_t r);

// Null image or weights 0x80004003; a format other than BGRA32 0x80004001; a radius below 0
// or above 2^20 0x80070057. `weights` holds radius + 1 values.
int32_t gaussian_blur_rows(const ImageView& img, const float* weights, int32_t radius,
                           const ProcessRect& strip, int32_t simd_level);
int32_t gaussian_blur_rows_plain(const ImageView& img, const float* weights, int32_t radius,
                                 const ProcessRect& strip);
int32_t gaussian_blur_rows_sse41(const ImageView& img, const float* weights, int32_t radius,
                                 const ProcessRect& strip);

int32_t gaussian_blur_cols(const ImageView& img, const float* weights, int32_t radius,
                           const ProcessRect& strip, int32_t simd_level);
int32_t gaussian_blur_cols_plain(const ImageView& img, const float* weights, int32_t radius,
                                 const ProcessRect& strip);
int32_t gaussian_blur_cols_sse41(const ImageView& img, const float* weights, int32_t radius,
                                 const ProcessRect& strip);

}  // namespace Vantyx
