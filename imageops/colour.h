// Integer colour helpers on the 0..32640 (255 x 128) scale, hue in hundredths of a degree,
// and the spline tone-curve builder. Pure functions, safe from any thread.
#pragma once

#include <cstdint>

namespace Vantyx {

// hue 0..35999, or -1 for grey; saturation and value 0..32640.
void RgbToHsv(int32_t r, int32_t g, int32_t b, int32_t* hue, int32_t* saturation, int32_t* value);
void HsvToRgb(int32_t hue, int32_t saturation, int32_t value, int32_t* r, int32_t* g, int32_t* b);
int32_t SaturationOfRgb(int32_t r, int32_t g, int32_t b);

// Knee of the highlight key: c kept when L - t >= 2(1 - L)^2 L, else faded towards 0.
int32_t HighlightSoftFactor(float c, float luma, float threshold);

// Channel factors (0..1) of a colour temperature in kelvin; returns 0 or 12 (ignored).
int32_t TemperatureFactors(float kelvin, float* red, float* green, float* blue);

float SmoothstepClamp(float low, float high, float x);

struct CurvePoint {
  int32_t x;
  int32_t y;
};
// 256-entry style table from control points by a natural cubic spline; does nothing unless
// n >= 2, points[0].x == 0 and points[n - 1].x == size - 1.
void BuildToneCurve(const CurvePoint* points, int32_t n, uint8_t* table, int32_t size);

}  // namespace Vantyx
