// The per-pixel stage only BlackMist uses: the tint of the half-size glow.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {
namespace blackmist {

// "adjust color": pulls each BGRA32 pixel towards the tint colour of its own brightness, then
// scales it by `brightness`. Alpha untouched. Plain below level 5, fast from 5.
int32_t adjust_color(const ImageView& img, float amount, float hue, float brightness,
                     const ProcessRect& strip, int32_t simd_level);
int32_t adjust_color_plain(const ImageView& img, float amount, float hue, float brightness,
                           const ProcessRect& strip);
int32_t adjust_color_sse41(const ImageView& img, float amount, float hue, float brightness,
                           const ProcessRect& strip);

// The tint colour (r, g, b) for each brightness 0..255 (the largest channel of a pixel).
struct TintTable {
  int32_t rgb[3][256];
};
void BuildTintTable(float amount, float hue, TintTable* table);

}  // namespace blackmist
}  // namespace Vantyx
