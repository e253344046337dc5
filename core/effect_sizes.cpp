// The size rules and value checks of effect_base.h that need no effect object.
#include <cmath>
#include <initializer_list>

#include "core/effect_base.h"

namespace Vantyx {

int32_t ScaledSize(int32_t n, float scale) {
  const float t = static_cast<float>(n) * scale;
  // Truncation toward zero; a product outside int32 (or NaN) has no size.
  if (!(t > -2147483648.0f && t < 2147483648.0f)) return 0;
  return AlignedSize(static_cast<int32_t>(t));
}

bool AllFinite(std::initializer_list<float> values) {
  for (float v : values)
    if (!std::isfinite(v)) return false;
  return true;
}

}  // namespace Vantyx
