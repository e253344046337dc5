// Private to the gaussian blur kernels: the argument checks and strip clipping that the plain
// and fast forms share, so both answer every bad call with the same code.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {
namespace detail {

// Far above any trimmed kernel (radius 4096 keeps 3236), low enough for 32-bit line lengths.
constexpr int32_t kMaxGaussianRadius = 1 << 20;

// Checks in order: null image or weights 0x80004003; a format other than BGRA32 0x80004001;
// a radius outside 0..kMaxGaussianRadius 0x80070057. On success returns 0 with *area the
// strip cut to the image.
int32_t GaussianSetup(const ImageView& img, const float* weights, int32_t radius,
                      const ProcessRect& strip, Area* area);

// min(255, trunc(acc + 0.5f)): the output byte of one finished sum.
inline uint8_t GaussianByte(float acc) {
  const float v = acc + 0.5f;
  return v >= 255.0f ? 255 : v < 1.0f ? 0 : static_cast<uint8_t>(static_cast<int32_t>(v));
}

}  // namespace detail
}  // namespace Vantyx
