// Running-sum box blur along rows ("BoxBlurH") or columns ("BoxBlurV"), in place. A line is
// the strip's extent: a row from strip.left to strip.right, or a column from strip.top to
// strip.bottom. Window of sample i: [i - (r - 1), i + (r - 1)] cut at the line's ends, divided
// by the samples in the cut window.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {

// `weight` is the optional second image of the weighted 8-bit variant (null otherwise): the
// image is BGRA32, the weights are the second image's alpha (BGRA32) or byte (GRAY8), and each
// of B, G, R becomes the weighted window mean, rounded like the plain bytes; a window that
// weighs 0 keeps its pixel.
// Formats: BGRA32 (B, G, R; alpha kept), GRAY8, GRAYF32, FLOAT96, GRAY32_ALT; others
// 0x80004001. Null image 0x80004003; negative radius 0x80070057; radius 0 does nothing.
int32_t box_blur_rows(const ImageView& img, const ImageView* weight, int32_t radius,
                      const ProcessRect& strip, int32_t simd_level);
int32_t box_blur_rows_plain(const ImageView& img, const ImageView* weight, int32_t radius,
                            const ProcessRect& strip);
int32_t box_blur_rows_sse41(const ImageView& img, const ImageView* weight, int32_t radius,
                            const ProcessRect& strip);

int32_t box_blur_cols(const ImageView& img, const ImageView* weight, int32_t radius,
                      const ProcessRect& strip, int32_t simd_level);
int32_t box_blur_cols_plain(const ImageView& img, const ImageView* weight, int32_t radius,
                            const ProcessRect& strip);
int32_t box_blur_cols_sse41(const ImageView& img, const ImageView* weight, int32_t radius,
                            const ProcessRect& strip);

}  // namespace Vantyx
