// Colour helpers: HSV both ways, the highlight knee, colour temperature and the tone curve,
// each against values worked by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "imageops/colour.h"

namespace Vantyx {
namespace {

TEST(Hsv, ConversionsWorkedByHand) {
  const struct {
    int32_t r, g, b, h, s, v;
  } to_hsv[] = {
      {255, 255, 255, -1, 0, 32640},  // grey: no hue; value 255 << 7
      {0, 0, 0, -1, 0, 0},
      {255, 0, 0, 0, 32640, 32640},   // s = 32640 - (127 + 0) / 255
      {0, 255, 0, 12000, 32640, 32640},
      {0, 0, 255, 24000, 32640, 32640},
      // s = 32640 - (100 + 50 x 32640) / 200 = 24480; hue (50 x 6000 + 75) / 150 = 2000.5 -> 2000.
      {200, 100, 50, 2000, 24480, 25600},
      {255, 0, 10, 35766, 32640, 32640},  // (-60000 + 127) / 255 = -234 (toward zero) + 36000
      {255, 255, 0, 6000, 32640, 32640},  // ties go to red, then green: 1530127 / 255
      {0, 255, 255, 18000, 32640, 32640},
  };
  for (const auto& c : to_hsv) {
    int32_t h, s, v;
    RgbToHsv(c.r, c.g, c.b, &h, &s, &v);
    EXPECT_EQ(std::vector<int32_t>({h, s, v}), std::vector<int32_t>({c.h, c.s, c.v}))
        << "RgbToHsv " << c.r << "," << c.g << "," << c.b;
    EXPECT_EQ(SaturationOfRgb(c.r, c.g, c.b), c.s) << c.r << "," << c.g << "," << c.b;
  }
  const struct {
    int32_t h, s, v, r, g, b;
  } to_rgb[] = {
      // Sectors at f = 0: (v,t,p) (q,v,p) (p,v,t) (p,q,v) (t,p,v) (v,p,q).
      {0, 32640, 32640, 255, 0, 0},       {6000, 32640, 32640, 255, 255, 0},
      {12000, 32640, 32640, 0, 255, 0},   {18000, 32640, 32640, 0, 255, 255},
      {24000, 32640, 32640, 0, 0, 255},   {30000, 32640, 32640, 255, 0, 255},
      {36000, 32640, 32640, 255, 0, 255},  // past the circle: the last branch, q = v
      // 30 degrees: t = ((32640 - 16320) x 32640 + 16320) / 32640 = 16320, (16320 + 64) >> 7.
      {3000, 32640, 32640, 255, 128, 0},
      // Greys round: 12863 = 100.49 x 128 -> 100, 12864 = 100.5 x 128 -> 101.
      {-1, 0, 12863, 100, 100, 100},      {-1, 0, 12864, 101, 101, 101},
      {-1, 0, 32640, 255, 255, 255},
  };
  for (const auto& c : to_rgb) {
    int32_t r, g, b;
    HsvToRgb(c.h, c.s, c.v, &r, &g, &b);
    EXPECT_EQ(std::vector<int32_t>({r, g, b}), std::vector<int32_t>({c.r, c.g, c.b}))
        << "HsvToRgb " << c.h << "," << c.s << "," << c.v;
  }
}

TEST(Hsv, RoundTripStaysWithinOneStep) {
  for (int32_t r = 0; r < 256; r += 3)
    for (int32_t g = 0; g < 256; g += 3)
      for (int32_t b = 0; b < 256; ++b) {
        int32_t h, s, v, r2, g2, b2;
        RgbToHsv(r, g, b, &h, &s, &v);
        HsvToRgb(h, s, v, &r2, &g2, &b2);
        // Within one step, the largest channel exact, greys exact.
        const int32_t off = std::max({std::abs(r2 - r), std::abs(g2 - g), std::abs(b2 - b)});
        ASSERT_TRUE(off <= (r == g && g == b ? 0 : 1) && std::max({r2, g2, b2}) == std::max({r, g, b}))
            << r << "," << g << "," << b;
      }
}

TEST(HighlightSoftFactor, KneeWorkedByHand) {
  const struct {
    float c, luma, t;
    int32_t want;
  } rows[] = {
      // L = 0.5: q = 2 x 0.5 x 0.5 x 0.5 = 0.25 exactly.
      {200.7f, 0.5f, 0.25f, 200},   // L - t = q: kept, truncated
      {100.0f, 0.5f, 0.375f, 50},   // 0.125 / 0.25 x 100 + 0.49
      {101.0f, 0.5f, 0.3125f, 76},  // 0.75 x 101 + 0.49 = 76.24
      {180.9f, 0.9f, 0.1f, 180},    // far above the threshold
      {42.0f, 1.0f, 0.5f, 42},      // L = 1: q = 0
  };
  for (const auto& r : rows)
    EXPECT_EQ(HighlightSoftFactor(r.c, r.luma, r.t), r.want) << r.c << " " << r.luma << " " << r.t;
  // Pixels where q = 2 f f L in float (f = 1 - L in double) and the same product taken whole
  // in double truncate to different bytes; worked from the float arithmetic.
  const struct {
    int32_t b, g, r, threshold, channel, want;
  } pixels[] = {
      {56, 53, 123, 0, 123, 123},  // q = 0.292646319f: 123.000008 (in double: 122)
      {166, 48, 109, 16, 166, 139},
      {59, 226, 135, 160, 226, 149},
  };
  for (const auto& p : pixels) {
    const float luma = float(38665 * p.g + 19660 * p.r + 7209 * p.b) / 65536.0f / 255.0f;
    EXPECT_EQ(HighlightSoftFactor(float(p.channel), luma, float(p.threshold) / 255.0f), p.want)
        << p.b << "," << p.g << "," << p.r;
  }
}

TEST(TemperatureFactors, KnownTemperatures) {
  const struct {
    float kelvin;
    int32_t rc;
    float r, g, b;
  } rows[] = {
      {6500, 0, 1.0f, 0.9748f, 0.9891f},
      {5000, 0, 1.0f, 0.8949f, 0.8089f},
      // Cool light: red 1745.043 / 7333.653 + 0.56, green 1216.617 / 7826.899 + 0.704, blue capped.
      {10000, 12, 0.79795f, 0.85944f, 1.0f},
      // Clamped to 1000 K: green -2902.196 / 2669.58 + 1.33; blue -8257.8 / 3575.283 + 1.899 < 0.
      {300, 0, 1.0f, 0.2429f, 0.0f},
      // Clamped to 40000 K: red 1745.043 / 37333.653 + 0.56, green 1216.617 / 37826.899 + 0.704.
      {90000, 12, 0.60674f, 0.73616f, 1.0f},
  };
  for (const auto& row : rows) {
    float r, g, b;
    EXPECT_EQ(TemperatureFactors(row.kelvin, &r, &g, &b), row.rc) << row.kelvin;
    EXPECT_NEAR(r, row.r, 1e-4) << row.kelvin;
    EXPECT_NEAR(g, row.g, 1e-4) << row.kelvin;
    EXPECT_NEAR(b, row.b, 1e-4) << row.kelvin;
  }
  EXPECT_EQ(SmoothstepClamp(0.0f, 1.0f, 0.5f), 0.5f);  // (3 - 1) x 0.25
  EXPECT_EQ(SmoothstepClamp(0.0f, 1.0f, 2.0f), 1.0f);
  EXPECT_EQ(SmoothstepClamp(0.0f, 1.0f, -1.0f), 0.0f);
  EXPECT_EQ(SmoothstepClamp(1000.0f, 0.0f, 6500.0f), 0.0f);  // the temperature helper's call: 0
}

std::vector<uint8_t> Curve(const std::vector<CurvePoint>& pts, int32_t size = 256) {
  std::vector<uint8_t> t(size_t(size), 7);
  BuildToneCurve(pts.data(), int32_t(pts.size()), t.data(), size);
  return t;
}

TEST(ToneCurve, WorkedByHand) {
  // Two points: b = 255 / 255 = 1, c = d = 0, so trunc(u + 0.5) = u; a flat pair stays flat.
  std::vector<uint8_t> line = Curve({{0, 0}, {255, 255}}), flat = Curve({{0, 40}, {255, 40}});
  for (int x = 0; x < 256; ++x) {
    EXPECT_EQ(line[x], x);
    EXPECT_EQ(flat[x], 40);
  }
  // Knots are hit exactly and wrap: trunc(300.5) = 300 -> 44; trunc(-19.5) = -19 -> 237.
  EXPECT_EQ(Curve({{0, 0}, {1, 300}, {2, 0}}, 3), (std::vector<uint8_t>{0, 44, 0}));
  EXPECT_EQ(Curve({{0, 0}, {1, -20}, {2, 0}}, 3)[1], 237);
  // Refused: the last x is not size - 1, the first is not 0, one point, null pointers.
  const std::vector<uint8_t> untouched(256, 7);
  EXPECT_EQ(Curve({{0, 0}, {128, 160}, {254, 255}}), untouched);
  EXPECT_EQ(Curve({{1, 0}, {128, 160}, {255, 255}}), untouched);
  EXPECT_EQ(Curve({{0, 0}}), untouched);
  const CurvePoint pts[2] = {{0, 0}, {255, 255}};
  std::vector<uint8_t> t(256, 7);
  BuildToneCurve(nullptr, 2, t.data(), 256);
  BuildToneCurve(pts, 2, nullptr, 256);
  EXPECT_EQ(t, untouched);
  // Repeated and out-of-order x values divide by zero; nothing is written outside the table.
  std::vector<uint8_t> small(8, 7);
  const CurvePoint repeated[4] = {{0, 0}, {5, 9}, {5, 9}, {7, 3}}, wild[3] = {{0, 0}, {600, 9}, {7, 3}};
  BuildToneCurve(repeated, 4, small.data(), 8);
  EXPECT_EQ(small[7], 3);
  BuildToneCurve(wild, 3, small.data(), 8);
  EXPECT_EQ(small[7], 3);
}

// A nine-point film curve against the natural cubic spline evaluated in double: within one
// step everywhere and exact at the knots.
TEST(ToneCurve, CloseToTheSplineInDouble) {
  const std::vector<CurvePoint> pts = {{0, 0},    {30, 38},   {45, 50},   {60, 60}, {70, 65},
                                       {100, 92}, {150, 142}, {200, 193}, {255, 255}};
  const std::vector<uint8_t> t = Curve(pts);
  const size_t n = pts.size();
  std::vector<double> h(n), mu(n), z(n), c(n, 0.0);
  for (size_t i = 0; i + 1 < n; ++i) h[i] = pts[i + 1].x - pts[i].x;
  for (size_t i = 1; i + 1 < n; ++i) {
    const double alpha =
        3.0 * (pts[i + 1].y - pts[i].y) / h[i] - 3.0 * (pts[i].y - pts[i - 1].y) / h[i - 1];
    const double l = 2.0 * (pts[i + 1].x - pts[i - 1].x) - h[i - 1] * mu[i - 1];
    mu[i] = h[i] / l;
    z[i] = (alpha - h[i - 1] * z[i - 1]) / l;
  }
  for (size_t j = n - 1; j-- > 0;) c[j] = z[j] - mu[j] * c[j + 1];
  for (size_t i = 0; i + 1 < n; ++i) {
    const double b = double(pts[i + 1].y - pts[i].y) / h[i] - h[i] * (c[i + 1] + 2 * c[i]) / 3;
    const double d = (c[i + 1] - c[i]) / (3 * h[i]);
    for (int x = pts[i].x; x < pts[i + 1].x; ++x) {
      const double u = x - pts[i].x;
      EXPECT_NEAR(t[x], pts[i].y + b * u + c[i] * u * u + d * u * u * u, 1.0) << x;
    }
    EXPECT_EQ(t[pts[i].x], pts[i].y);
  }
}

}  // namespace
}  // namespace Vantyx
