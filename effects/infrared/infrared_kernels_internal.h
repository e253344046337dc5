// Private to the Infrared kernels: the per-pixel arithmetic that the plain forms run everywhere
// and the fast forms run on their tails, so both give the same bytes. No intrinsics here, and
// internal linkage on purpose (see effects/common/pixel_loops.h).
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "effects/infrared/infrared_kernels.h"
#include "imageops/colour.h"

namespace Vantyx {
namespace infrared {
namespace detail {
namespace {

inline bool InBand(int32_t h, const HueBand& band) {
  if (band.h1 < band.h2) return band.h1 <= h && h <= band.h2;
  if (band.h1 > band.h2) return h >= band.h1 || h <= band.h2;  // wraps past 0
  return std::abs(h - band.h1) <= 360;
}

// The squared redmean distance from the limit colour p (R, G, B) to the pixel, in float, left to
// right.
inline float Distance(const int32_t* p, int32_t r, int32_t g, int32_t b) {
  const float rbar = static_cast<float>(p[0] + r) / 2.0f;
  const int32_t dr = p[0] - r, dg = p[1] - g, db = p[2] - b;
  return (rbar + 512.0f) * static_cast<float>(dr * dr) / 256.0f +
         4.0f * static_cast<float>(dg * dg) + (767.0f - rbar) * static_cast<float>(db * db) / 256.0f;
}

inline void BandPixel(const uint8_t* s, uint8_t* d, const HueBand& band) {
  int32_t h, sat, v;
  RgbToHsv(s[2], s[1], s[0], &h, &sat, &v);
  if (InBand(h, band)) {
    d[0] = s[0], d[1] = s[1], d[2] = s[2], d[3] = s[3];
    return;
  }
  const float dist =
      std::min(Distance(band.p1, s[2], s[1], s[0]), Distance(band.p2, s[2], s[1], s[0]));
  const float q =
      static_cast<float>(static_cast<int32_t>(dist)) / static_cast<float>(band.tolerance);
  const float scaled = (1.0f - q) * static_cast<float>(sat);
  const int32_t kept = scaled < 1.0f ? 0 : static_cast<int32_t>(scaled);
  int32_t r, g, b;
  HsvToRgb(h, kept, v, &r, &g, &b);
  d[0] = uint8_t(b), d[1] = uint8_t(g), d[2] = uint8_t(r), d[3] = s[3];
}

inline void AdjustPixel(uint8_t* p, const HsvShift& shift) {
  int32_t h, s, v;
  RgbToHsv(p[2], p[1], p[0], &h, &s, &v);
  const int32_t v2 = v == 0 ? 0 : std::clamp(v + shift.value, 0, 32640);
  const int32_t s2 = std::clamp(s + shift.saturation, 0, 32640);
  // A quarter of the hue, then the shift: the band lands in a quarter of the circle.
  const int32_t h2 =
      static_cast<int32_t>(static_cast<float>(h) * 0.25f + static_cast<float>(shift.hue)) % 36000;
  int32_t r, g, b;
  HsvToRgb(h2, s2, v2, &r, &g, &b);
  p[0] = uint8_t(b), p[1] = uint8_t(g), p[2] = uint8_t(r);
}

// `limit` is threshold x 32640.
inline void RemovePixel(uint8_t* p, float limit) {
  if (limit > static_cast<float>(SaturationOfRgb(p[2], p[1], p[0]))) p[0] = p[1] = p[2] = 0;
}

inline void BackgroundPixel(const uint8_t* f, const uint8_t* s, uint8_t* d) {
  const bool lit = (f[0] | f[1] | f[2]) != 0;
  d[0] = lit ? 0 : s[0], d[1] = lit ? 0 : s[1], d[2] = lit ? 0 : s[2], d[3] = s[3];
}

inline void CombinePixel(const uint8_t* f, const uint8_t* b, uint8_t* d) {
  for (int c = 0; c < 4; ++c) d[c] = uint8_t(std::min(255, f[c] + b[c]));
}

}  // namespace
}  // namespace detail
}  // namespace infrared
}  // namespace Vantyx
