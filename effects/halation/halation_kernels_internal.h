// Private to the Halation kernels: the per-pixel arithmetic that the plain forms run
// everywhere and the fast forms run on their tails, so both give the same bytes.
// No intrinsics here. Internal linkage on purpose: the SSE4.1 file is built with -msse4.1, and
// a shared inline copy emitted there could be the one the linker keeps for the plain forms.
#pragma once

#include <algorithm>
#include <cstdint>


namespace Vantyx {
namespace halation {
namespace detail {

namespace {

inline int32_t LumaOf(const uint8_t* p) {
  return (19660 * p[2] + 38665 * p[1] + 7209 * p[0]) >> 16;
}

// trunc(c f), 0 below 1.
inline uint8_t Faded(uint8_t c, float f) {
  const float v = static_cast<float>(c) * f;
  return v < 1.0f ? 0 : static_cast<uint8_t>(static_cast<int32_t>(v));
}

inline void KeyPixel(const uint8_t* s, uint8_t* d, int32_t threshold, float gain) {
  const int32_t l = LumaOf(s);
  if (l >= threshold) {
    // No lower clamp: a negative red keeps its low byte, and a value below the int32 range
    // saturates first (a huge gain).
    const float v = std::min(
        255.0f, static_cast<float>(s[2] - threshold) * gain + static_cast<float>(threshold));
    const int32_t red = v < -2147483648.0f ? INT32_MIN : static_cast<int32_t>(v);
    d[0] = s[0];
    d[1] = s[1];
    d[2] = static_cast<uint8_t>(red & 0xFF);
  } else {
    const float f = 1.0f - static_cast<float>(threshold - l) / 15.0f;
    d[0] = Faded(s[0], f);
    d[1] = Faded(s[1], f);
    d[2] = Faded(s[2], f);
  }
  d[3] = s[3];
}

// D = 220 - T, but 20 where that is 20 or less.
inline float MidtoneRange(int32_t threshold) {
  return static_cast<float>(220 - threshold <= 20 ? 20 : 220 - threshold);
}

inline void MidtonePixel(const uint8_t* s, uint8_t* d, int32_t threshold, float range) {
  const int32_t l = LumaOf(s);
  if (l < threshold) {
    const float f = 1.0f - static_cast<float>(threshold - l) / range;
    d[0] = Faded(s[0], f);
    d[1] = Faded(s[1], f);
    d[2] = Faded(s[2], f);
  } else {
    d[0] = s[0];
    d[1] = s[1];
    d[2] = s[2];
  }
  d[3] = s[3];
}

inline void ComparePixel(const uint8_t* h, const uint8_t* m, uint8_t* d) {
  d[0] = h[0];
  d[1] = std::max(h[1], m[1]);
  d[2] = std::max(h[2], m[2]);
  d[3] = 255;
}

inline void DecidePixel(const uint8_t* s, const uint8_t* c, uint8_t* d, int32_t threshold) {
  const int32_t l = LumaOf(s);
  float w = 1.0f;
  if (threshold == 0)
    w = 0.0f;
  else if (l > threshold)
    w = static_cast<float>(std::max(0, threshold - l + 100)) / 100.0f;
  const uint8_t alpha = static_cast<uint8_t>(static_cast<int32_t>(static_cast<float>(c[3]) * w));
  d[0] = c[0];
  d[1] = c[1];
  d[2] = c[2];
  d[3] = alpha;
}

}  // namespace
}  // namespace detail
}  // namespace halation
}  // namespace Vantyx
