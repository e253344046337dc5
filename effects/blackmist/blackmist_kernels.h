// The per-pixel stage only BlackMist uses: the tint of the half-size glow.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {
namespace blackmist {

// "adjust color": pulls each BGRA32 pixel towards the tint colour of its own brightness, then
// scales it by `brightness`. Alpha untouched.
int32_t adjust_color_plain(const ImageView& img, float amount, float hue, float brightness,
                           const ProcessRect& strip);

}  // namespace blackmist
}  // namespace Vantyx
