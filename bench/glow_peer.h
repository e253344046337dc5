// What the skilled OpenCV peers of the glow families (BlackMist, Amberfade) share: the per-pixel
// steps OpenCV has no call for, written for the compiler to vectorise. Speed references, not
// byte references: their rounding and borders differ from ours.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace Vantyx {
namespace bench {

// The key, light curve and conversion to float of one half-size pixel: the luma knee, the
// thresholded colour rescaled to the knee's brightness with its saturation limited to three
// times the knee's (BlackMist: whenever some d is lit; Amberfade: only when the knee is the
// brighter), then the S-curve.
inline void KeyAndLight(const uint8_t* s, float* out, float t, float gain, bool only_when_brighter) {
  const float b = s[0], g = s[1], r = s[2];
  const float luma = (38665.0f * g + 19660.0f * r + 7209.0f * b) * (1.0f / 65536.0f / 255.0f);
  float c[3] = {0.0f, 0.0f, 0.0f};
  if (luma >= t) {
    const float q = 2.0f * (1.0f - luma) * (1.0f - luma) * luma;
    const float k = luma - t >= q ? 1.0f : (luma - t) / q;
    const float kb = b * k, kg = g * k, kr = r * k;
    const float tt = t * 255.0f;
    float d[3] = {std::max(b - tt, 0.0f), std::max(g - tt, 0.0f), std::max(r - tt, 0.0f)};
    const float m1 = std::max(kb, std::max(kg, kr)), n1 = std::min(kb, std::min(kg, kr));
    const float m2 = std::max(d[0], std::max(d[1], d[2])), n2 = std::min(d[0], std::min(d[1], d[2]));
    if (m2 > 0.0f && (!only_when_brighter || m1 > m2)) {
      const float scale = m1 / m2;
      const float s_knee = m1 > 0.0f ? (m1 - n1) / m1 : 0.0f, s_d = (m2 - n2) / m2;
      const float keep = s_d > 3.0f * s_knee ? 3.0f * s_knee / s_d : 1.0f;
      for (int i = 0; i < 3; ++i) c[i] = (m2 - (m2 - d[i]) * keep) * scale;
    }
  }
  for (int i = 0; i < 3; ++i) {
    const float v = 2.0f * (c[i] * (1.0f / 255.0f)) - 1.0f;
    const float z = (v + 0.25f * v) / (1.0f + 0.5f * std::fabs(v) - 0.25f);
    out[i] = gain * (z + 1.0f) * 0.5f;
  }
}

// The screen blend with the blend kernels' compositing weights, written so that the compiler
// vectorises it: integer weights, float channels, no branches (a transparent layer pixel
// gives the base here, where ours keeps the destination's).
inline void ScreenRow(const uint8_t* __restrict b, const uint8_t* __restrict l,
                      uint8_t* __restrict d, int n) {
  const float k = 1.0f / 255.0f;
  for (int x = 0; x < n; ++x) {
    const int a = (l[4 * x + 3] * 255) >> 8, ab = b[4 * x + 3];
    const int wbi = (255 - a) * ab / 255, ao = a + wbi;
    const float wb = float(wbi), wl = float((255 - ab) * a / 255), ws = float(ab * a / 255);
    const float inv = 1.0f / float(ao | (ao == 0));
    for (int i = 0; i < 3; ++i) {
      const float bv = b[4 * x + i], lv = l[4 * x + i];
      const float screen = 255.0f - (255.0f - bv) * (255.0f - lv) * k;
      d[4 * x + i] = uint8_t((ws * screen + wl * lv + wb * bv) * inv);
    }
    d[4 * x + 3] = uint8_t(ao);
  }
}

}  // namespace bench
}  // namespace Vantyx
