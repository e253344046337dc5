// Per-pixel passes shared by the effects: a byte table over B, G, R, and the weighted sum of
// two pictures in 16.16 fixed point.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {

// B, G, R of each BGRA32 pixel through `lut` (256 entries); alpha untouched.
int32_t apply_lut_bgr(const ImageView& img, const uint8_t* lut, const ProcessRect& strip,
                      int32_t simd_level);
int32_t apply_lut_bgr_plain(const ImageView& img, const uint8_t* lut, const ProcessRect& strip);

// A byte table spread over the colour bytes of a BGRA word (b, g << 8, r << 16), so that a
// pixel goes through it with three reads and no shifts. Built once for many rows.
struct SpreadLut {
  uint32_t b[256], g[256], r[256];
};
void SpreadLutOf(const uint8_t* lut, SpreadLut* out);
// B, G, R of each BGRA32 pixel of `from` through the table into `to`, alpha copied: a copy and
// apply_lut_bgr in one pass.
int32_t apply_lut_bgr_to(const ImageView& from, const ImageView& to, const SpreadLut& lut,
                         const ProcessRect& strip);

// dst colour = (other x w1 + dst x w2) / 65536, 255 once the sum reaches 0xFF0000, 0 below 0;
// dst alpha kept. Both BGRA32.
int32_t weighting_sum(const ImageView& other, const ImageView& dst, int32_t w1, int32_t w2,
                      const ProcessRect& strip, int32_t simd_level);
int32_t weighting_sum_plain(const ImageView& other, const ImageView& dst, int32_t w1, int32_t w2,
                            const ProcessRect& strip);
int32_t weighting_sum_sse41(const ImageView& other, const ImageView& dst, int32_t w1, int32_t w2,
                            const ProcessRect& strip);

}  // namespace Vantyx
