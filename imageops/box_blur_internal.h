// Private to the box blur kernels: the argument checks and strip clipping that the plain and
// fast forms share, so both answer every bad call with the same code.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {
namespace detail {

// Checks in order: null image (or null weight image) 0x80004003; unsupported format
// 0x80004001; negative radius 0x80070057. On success returns 0 and sets *area to the strip
// clipped to the image (and the weight image); the area is empty when there is nothing to do
// (radius 0 included).
int32_t BoxBlurSetup(const ImageView& img, const ImageView* weight, int32_t radius,
                     const ProcessRect& strip, Area* area);

// True when a line of n samples takes the ring-buffer form (2r - 1 <= n).
inline bool BoxBlurRingFits(int32_t n, int32_t r) {
  return 2 * static_cast<int64_t>(r) - 1 <= n;
}

// The fast form's byte rounding, trunc(q + 0.5f) in float, over `count` quotients; for the
// tests that hold it to the plain form's trunc(double(q) + 0.5). Needs SSE4.1.
void BoxBlurRoundBytesSse41(const float* q, int32_t* out, size_t count);

}  // namespace detail
}  // namespace Vantyx
