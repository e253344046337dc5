// Bilinear resampling with 8-bit fractions: the whole of src_rect of `src` onto the whole of
// `dst`. A strip is a band of destination rows.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {

// Both PIXEL_FLOAT96: the float kernel; otherwise the byte kernel, plain below level 5.
// Null image 0x80004003; a side below 1 0x80004005.
int32_t resample_bilinear(const ImageView& src, const ImageView& dst, const ProcessRect& src_rect,
                          const ProcessRect& strip, int32_t simd_level);
int32_t resample_bilinear_u8_plain(const ImageView& src, const ImageView& dst,
                                   const ProcessRect& src_rect, const ProcessRect& strip);
int32_t resample_bilinear_u8_sse41(const ImageView& src, const ImageView& dst,
                                   const ProcessRect& src_rect, const ProcessRect& strip);
int32_t resample_bilinear_f32(const ImageView& src, const ImageView& dst,
                              const ProcessRect& src_rect, const ProcessRect& strip);

// The log name of the kernel resample_bilinear picks: "resize buff" or "resize buff SSE".
const char* resample_kernel_name(const ImageView& src, const ImageView& dst, int32_t simd_level);

}  // namespace Vantyx
