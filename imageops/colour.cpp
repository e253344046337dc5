#include "imageops/colour.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace Vantyx {

namespace {

constexpr int32_t kScale = 32640;  // 255 x 128: saturation and value scale
constexpr int32_t kSector = 6000;  // 60 degrees in hundredths

// trunc(v) for any float: NaN gives 0 and values beyond int32 saturate, so garbage in
// never reaches an undefined conversion. In range it is the plain truncation.
int32_t TruncToInt(float v) {
  if (!(v == v)) return 0;
  if (v >= 2147483648.0f) return INT32_MAX;
  if (v <= -2147483648.0f) return INT32_MIN;
  return static_cast<int32_t>(v);
}

// One HSV component on the 0..32640 scale. Products are taken in 64 bits so that values
// outside the documented ranges cannot overflow; in range they equal the 32-bit results.
int32_t Component(int64_t factor, int64_t v) {
  return static_cast<int32_t>((factor * v + kScale / 2) / kScale);
}

}  // namespace

void RgbToHsv(int32_t r, int32_t g, int32_t b, int32_t* hue, int32_t* saturation, int32_t* value) {
  const int32_t mx = std::max(r, std::max(g, b));
  const int32_t mn = std::min(r, std::min(g, b));
  *value = mx << 7;
  if (mx == mn) {
    *saturation = 0;
    *hue = -1;
    return;
  }
  *saturation = kScale - ((mx >> 1) + mn * kScale) / mx;
  const int32_t delta = mx - mn;
  const int32_t half = delta >> 1;
  // Ties go to red, then green: the first test that holds wins.
  int32_t h;
  if (r == mx)
    h = ((g - b) * kSector + half) / delta;
  else if (g == mx)
    h = ((b - r) * kSector + half) / delta + 2 * kSector;
  else
    h = ((r - g) * kSector + half) / delta + 4 * kSector;
  if (h < 0) h += 36000;
  *hue = h;
}

int32_t SaturationOfRgb(int32_t r, int32_t g, int32_t b) {
  const int32_t mx = std::max(r, std::max(g, b));
  const int32_t mn = std::min(r, std::min(g, b));
  if (mx == mn) return 0;
  return kScale - ((mx >> 1) + mn * kScale) / mx;
}

void HsvToRgb(int32_t hue, int32_t saturation, int32_t value, int32_t* r, int32_t* g, int32_t* b) {
  int64_t cr, cg, cb;
  if (saturation == 0) {
    cr = cg = cb = value;
  } else {
    const int32_t sector = hue / kSector;
    const int64_t f = hue - sector * kSector;
    const int64_t s = saturation;
    const int32_t p = Component(kScale - s, value);
    const int32_t q = Component(kScale - (f * s + kSector / 2) / kSector, value);
    const int32_t t = Component(kScale - ((kSector - f) * s + kSector / 2) / kSector, value);
    switch (sector) {
      case 0: cr = value; cg = t; cb = p; break;
      case 1: cr = q; cg = value; cb = p; break;
      case 2: cr = p; cg = value; cb = t; break;
      case 3: cr = p; cg = q; cb = value; break;
      case 4: cr = t; cg = p; cb = value; break;
      default: cr = value; cg = p; cb = q; break;
    }
  }
  // Back to bytes with rounding; the grey branch rounds the same way.
  *r = static_cast<int32_t>((cr + 64) >> 7);
  *g = static_cast<int32_t>((cg + 64) >> 7);
  *b = static_cast<int32_t>((cb + 64) >> 7);
}

int32_t HighlightSoftFactor(float c, float luma, float threshold) {
  // Only 1 - L is formed in double; the knee itself is a float product, left to right.
  const float f = static_cast<float>(1.0 - static_cast<double>(luma));
  const float q = 2.0f * f * f * luma;
  const float above = luma - threshold;
  if (above >= q) return TruncToInt(c);
  return TruncToInt(above / q * c + 0.49f);
}

float SmoothstepClamp(float low, float high, float x) {
  const float m = std::max(x, low);
  const float u = high > m ? m : high;
  const double du = u;
  return static_cast<float>((3.0 - 2.0 * du) * du * du);
}

int32_t TemperatureFactors(float kelvin, float* red, float* green, float* blue) {
  struct Fit {
    float n, d, e;
  };
  // Rows: red, green, blue, for warm (<= 6500 K) and cool light.
  static const Fit kWarm[3] = {
      {0.0f, 0.0f, 1.0f}, {-2902.196f, 1669.58f, 1.33f}, {-8257.8f, 2575.283f, 1.899f}};
  static const Fit kCool[3] = {
      {1745.043f, -2666.347f, 0.56f}, {1216.617f, -2173.101f, 0.704f},
      {-8257.8f, 2575.283f, 1.899f}};

  const float k = std::min(std::max(kelvin, 1000.0f), 40000.0f);
  const bool warm = k <= 6500.0f;
  const Fit* fit = warm ? kWarm : kCool;
  float factor[3];
  for (int i = 0; i < 3; ++i) {
    const float v = fit[i].n / (k + fit[i].d) + fit[i].e;
    factor[i] = std::min(1.0f, std::max(0.0f, v));
  }
  // The blend towards white is kept as designed; with these bounds w is always 0.
  const float w = SmoothstepClamp(1000.0f, 0.0f, k);
  *red = (1.0f - w) * factor[0] + w;
  *green = (1.0f - w) * factor[1] + w;
  *blue = (1.0f - w) * factor[2] + w;
  return warm ? 0 : 12;
}

void BuildToneCurve(const CurvePoint* points, int32_t n, uint8_t* table, int32_t size) {
  if (points == nullptr || table == nullptr || n < 2) return;
  if (points[0].x != 0 || points[n - 1].x != size - 1) return;

  // Natural cubic spline, textbook tridiagonal solve, all in float.
  const size_t count = static_cast<size_t>(n);
  std::vector<float> x(count), y(count), h(count), mu(count), z(count), c(count, 0.0f);
  for (size_t i = 0; i < count; ++i) {
    x[i] = static_cast<float>(points[i].x);
    y[i] = static_cast<float>(points[i].y);
  }
  for (size_t i = 0; i + 1 < count; ++i) h[i] = x[i + 1] - x[i];
  mu[0] = 0.0f;
  z[0] = 0.0f;
  for (size_t i = 1; i + 1 < count; ++i) {
    const float alpha = 3.0f * (y[i + 1] - y[i]) / h[i] - 3.0f * (y[i] - y[i - 1]) / h[i - 1];
    const float l = 2.0f * (x[i + 1] - x[i - 1]) - h[i - 1] * mu[i - 1];
    mu[i] = h[i] / l;
    z[i] = (alpha - h[i - 1] * z[i - 1]) / l;
  }
  c[count - 1] = 0.0f;
  for (size_t j = count - 1; j-- > 0;) c[j] = z[j] - mu[j] * c[j + 1];

  for (size_t i = 0; i + 1 < count; ++i) {
    const float a = y[i];
    const float b = (y[i + 1] - y[i]) / h[i] - h[i] * (c[i + 1] + 2.0f * c[i]) / 3.0f;
    const float d = (c[i + 1] - c[i]) / (3.0f * h[i]);
    // Only entries inside the table are written, whatever order the points come in.
    const int64_t first = std::max<int64_t>(points[i].x, 0);
    const int64_t last = std::min<int64_t>(points[i + 1].x, size);
    for (int64_t px = first; px < last; ++px) {
      // u >= 0; unsigned so that an absurd table size wraps instead of overflowing.
      const uint64_t u = static_cast<uint64_t>(px - points[i].x);
      const float v = a + b * static_cast<float>(u) + c[i] * static_cast<float>(u * u) +
                      d * static_cast<float>(u * u * u) + 0.5f;
      // Out-of-range values wrap into the byte, by design.
      table[px] = static_cast<uint8_t>(TruncToInt(v));
    }
  }
  table[size - 1] = static_cast<uint8_t>(points[n - 1].y);
}

}  // namespace Vantyx
