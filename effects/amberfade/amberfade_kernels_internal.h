// Private to the Amberfade kernels: the per-pixel arithmetic that the plain forms run everywhere
// and the fast forms run on their tails, so both give the same bytes. No intrinsics here, and
// internal linkage on purpose (see effects/common/pixel_loops.h).
#pragma once

#include <algorithm>
#include <cstdint>

#include "effects/amberfade/amberfade_kernels.h"

namespace Vantyx {
namespace amberfade {
namespace detail {
namespace {

inline void GammaPixel(uint8_t* p, const uint32_t* table) {
  const int32_t b = p[0], g = p[1], r = p[2];
  const int32_t yg = int32_t(table[(b * 7471 + r * 19595 + g * 38470) >> 10]);
  const int32_t u = (41419 * b - 13959 * r - 27460 * g + 0x800000) >> 8;
  const int32_t v = ((r + 256) * 32768 - 5308 * b - 27460 * g) >> 8;
  const int32_t nb = ((((u - 32768) * 2066) >> 10) + yg) >> 8;
  const int32_t ng = ((u * -400 - v * 833 + 0x2680000) >> 10) + yg;
  const int32_t nr = ((((v - 32768) * 1634) >> 10) + yg) >> 8;
  // No upper clamp: a result above 255 keeps its low eight bits.
  p[0] = uint8_t(nb < 1 ? 0 : nb);
  p[1] = uint8_t(ng < 256 ? 0 : ng >> 8);
  p[2] = uint8_t(nr < 1 ? 0 : nr);
}

inline void TemperaturePixel(uint8_t* p, const TemperatureTable& t) {
  const int32_t y0 = (p[2] * 19660 + p[0] * 7209 + p[1] * 38665) >> 8;
  const int32_t b = t.scaled[0][p[0]], g = t.scaled[1][p[1]], r = t.scaled[2][p[2]];
  const int32_t y1 = (r * 19660 + b * 7209 + g * 38665) >> 8;
  if (y0 != 0 && y1 != 0) {
    p[0] = uint8_t(std::min(255, b * y0 / y1));
    p[1] = uint8_t(std::min(255, g * y0 / y1));
    p[2] = uint8_t(std::min(255, r * y0 / y1));
  } else {
    p[0] = uint8_t(b), p[1] = uint8_t(g), p[2] = uint8_t(r);
  }
}

// Steps 1 and 2 of the blue weighting on a pixel of the blurred picture: R and G pulled down,
// then the three brought back to the luma the pixel had.
inline void BluePixel(uint8_t* p, const BlueWeights& w) {
  const int32_t b = p[0], g = p[1], r = p[2];
  const int32_t y0 = r * 19660 + g * 38665 + b * 7209;
  int32_t c[3] = {b, w.green[g], w.red[r]};
  const int32_t y1 = (b * 7209 + c[2] * 19660 + c[1] * 38665) >> 8;
  if (y0 > 255 && y1 != 0)
    for (int i = 0; i < 3; ++i) c[i] = std::min(255, c[i] * (y0 >> 8) / y1);
  for (int i = 0; i < 3; ++i) p[i] = uint8_t(c[i]);
}

}  // namespace
}  // namespace detail
}  // namespace amberfade
}  // namespace Vantyx
