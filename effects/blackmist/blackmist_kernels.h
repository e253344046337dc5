// The per-pixel stages only BlackMist uses: the highlight key, the contrast curve on the float
// highlight layer, and the tint.
#pragma once

#include <cstdint>
#include <vector>

#include "core/image_view.h"

namespace Vantyx {
namespace blackmist {

// Where each scaled pixel reads the frame-size mask: the first source index of the
// downsampling map for every column and row of the scaled image.
struct MaskMap {
  std::vector<int32_t> x0;
  std::vector<int32_t> y0;
};
MaskMap BuildMaskMap(int32_t frame_w, int32_t frame_h, int32_t scaled_w, int32_t scaled_h);

// "detect hlr": src -> dst (both BGRA32, scaled size). With a mask (GRAY8, frame size, read
// through `map`): colour = max(src - T, 0) x mask / 256. Without: the luma key with its knee,
// and, with keep_saturation, the saturation-keeping correction. Alpha copied.
int32_t detect_highlights_plain(const ImageView& src, const ImageView& dst, const ImageView* mask,
                                const MaskMap* map, uint32_t threshold, bool keep_saturation,
                                const ProcessRect& strip);

// "adjust light": each float value c of a FLOAT96 image becomes
// gain x (z + 1) / 2 with y = 2c - 1, z = (y - y k) / (k - 2|y| k + 1).
int32_t adjust_light_plain(const ImageView& img, float gain, float k, const ProcessRect& strip);

// "adjust color": pulls each BGRA32 pixel towards the tint colour of its own brightness, then
// scales it by `brightness`. Alpha untouched.
int32_t adjust_color_plain(const ImageView& img, float amount, float hue, float brightness,
                           const ProcessRect& strip);

}  // namespace blackmist
}  // namespace Vantyx
