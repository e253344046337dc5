// The glow layer's per-pixel steps that BlackMist and Amberfade share: the highlight key (luma
// knee, mask, saturation rule) and the light curve on the float layer.
#pragma once

#include <cstdint>
#include <vector>

#include "core/image_view.h"

namespace Vantyx {

// Where each scaled pixel reads the frame-size mask: the first source index of the
// downsampling map for every column and row of the scaled image.
struct MaskMap {
  std::vector<int32_t> x0;
  std::vector<int32_t> y0;
};
MaskMap BuildMaskMap(int32_t frame_w, int32_t frame_h, int32_t scaled_w, int32_t scaled_h);

// How the key keeps the saturation of a kept pixel: not at all (the knee output as it is), or
// the thresholded colour d = max(c - T, 0) rescaled to the knee's largest channel m1 (d x m1 /
// m2, m2 the largest d) whenever m2 > 0 (BlackMist) or only when m1 > m2 > 0 (Amberfade), then
// its HSV saturation limited to 3 x the knee output's.
enum class SaturationRule { kNone, kRescaleWhenLit, kRescaleWhenBrighter };

// "detect hlr": src -> dst (both BGRA32, scaled size). With a mask (GRAY8, frame size, read
// through `map`): colour = d x mask / 256 with d = max(src - T, 0), at most 255 (a negative
// T, which Amberfade's full call lets through, lifts d; below -255 it changes nothing more). Without: the luma key with its knee
// and the saturation rule. Alpha copied. Plain below level 5, fast from 5.
int32_t detect_highlights(const ImageView& src, const ImageView& dst, const ImageView* mask,
                          const MaskMap* map, int32_t threshold, SaturationRule rule,
                          const ProcessRect& strip, int32_t simd_level);
int32_t detect_highlights_plain(const ImageView& src, const ImageView& dst, const ImageView* mask,
                                const MaskMap* map, int32_t threshold, SaturationRule rule,
                                const ProcessRect& strip);

// The same on one row: pixels [x_begin, x_end) of src_row (indexed from the row's pixel 0) into
// out (indexed from x_begin). mask_row: the mask row the scaled row reads, or null.
void HighlightKeyRow(const uint8_t* src_row, uint8_t* out, int32_t x_begin, int32_t x_end,
                     const uint8_t* mask_row, const MaskMap* map, int32_t threshold,
                     SaturationRule rule);
void HighlightKeyRowSse41(const uint8_t* src_row, uint8_t* out, int32_t x_begin, int32_t x_end,
                          const uint8_t* mask_row, const MaskMap* map, int32_t threshold,
                          SaturationRule rule);

// "adjust light": each float value c of a FLOAT96 image becomes
// gain x (z + 1) / 2 with y = 2c - 1, z = (y - y k) / (k - 2|y| k + 1).
int32_t adjust_light_plain(const ImageView& img, float gain, float k, const ProcessRect& strip);
// "convert BYTE to Float" then "adjust light" of each byte value, as a table.
void LightCurveTable(float gain, float k, float table[256]);

}  // namespace Vantyx
