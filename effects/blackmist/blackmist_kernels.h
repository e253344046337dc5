// The per-pixel stage only BlackMist uses: the tint of the half-size glow.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {
namespace blackmist {

// The tint colour (r, g, b) for each brightness 0..255 (the largest channel of a pixel), and
// the same as one BGRA-ordered word (r << 16 | g << 8 | b) for the fast form.
struct TintTable {
  int32_t rgb[3][256];
  uint32_t packed[256];
};
void BuildTintTable(float amount, float hue, TintTable* table);

// "adjust color": pulls each BGRA32 pixel towards the tint colour of its own brightness, then
// scales it by `brightness`. Alpha untouched. Plain below level 5, fast from 5; the fast form
// takes the tint table of (amount, hue) when the caller has built it (it builds it otherwise).
int32_t adjust_color(const ImageView& img, float amount, float hue, float brightness,
                     const ProcessRect& strip, int32_t simd_level, const TintTable* table = nullptr);
int32_t adjust_color_plain(const ImageView& img, float amount, float hue, float brightness,
                           const ProcessRect& strip);
int32_t adjust_color_sse41(const ImageView& img, float amount, float hue, float brightness,
                           const ProcessRect& strip, const TintTable* table = nullptr);

}  // namespace blackmist
}  // namespace Vantyx
