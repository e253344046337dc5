#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "imageops/colour.h"

namespace Vantyx {
namespace {

struct Hsv {
  int32_t h, s, v;
};
Hsv ToHsv(int32_t r, int32_t g, int32_t b) {
  Hsv o{};
  RgbToHsv(r, g, b, &o.h, &o.s, &o.v);
  return o;
}
struct Rgb {
  int32_t r, g, b;
};
Rgb ToRgb(int32_t h, int32_t s, int32_t v) {
  Rgb o{};
  HsvToRgb(h, s, v, &o.r, &o.g, &o.b);
  return o;
}

TEST(RgbToHsv, HandComputedColours) {
  // White: value 255 << 7, grey -> no hue.
  Hsv w = ToHsv(255, 255, 255);
  EXPECT_EQ(w.v, 32640);
  EXPECT_EQ(w.s, 0);
  EXPECT_EQ(w.h, -1);
  // Pure red: s = 32640 - (127 + 0) / 255 = 32640, hue 0.
  Hsv red = ToHsv(255, 0, 0);
  EXPECT_EQ(red.h, 0);
  EXPECT_EQ(red.s, 32640);
  EXPECT_EQ(red.v, 32640);
  // Green and blue sit at 12000 and 24000 (half = 127 rounds away to nothing).
  EXPECT_EQ(ToHsv(0, 255, 0).h, 12000);
  EXPECT_EQ(ToHsv(0, 0, 255).h, 24000);
  // (200, 100, 50): s = 32640 - (100 + 50*32640)/200 = 32640 - 8160 = 24480;
  // hue = (50*6000 + 75)/150 = 2000 (2000.5 truncated), value 200*128.
  Hsv o = ToHsv(200, 100, 50);
  EXPECT_EQ(o.h, 2000);
  EXPECT_EQ(o.s, 24480);
  EXPECT_EQ(o.v, 25600);
  // Negative hue wraps: (255, 0, 10): (-60000 + 127)/255 = -234 (towards zero) + 36000.
  EXPECT_EQ(ToHsv(255, 0, 10).h, 35766);
  // Ties for the largest go to red, then green: yellow (1530127/255 = 6000), cyan 18000.
  EXPECT_EQ(ToHsv(255, 255, 0).h, 6000);
  EXPECT_EQ(ToHsv(0, 255, 255).h, 18000);
  // Black is grey.
  Hsv k = ToHsv(0, 0, 0);
  EXPECT_EQ(k.h, -1);
  EXPECT_EQ(k.v, 0);
}

TEST(RgbToHsv, SaturationOfRgbMatchesFullConversion) {
  for (int32_t r = 0; r < 256; r += 5)
    for (int32_t g = 0; g < 256; g += 3)
      for (int32_t b = 0; b < 256; b += 7) ASSERT_EQ(SaturationOfRgb(r, g, b), ToHsv(r, g, b).s);
}

TEST(HsvToRgb, HandComputedColours) {
  Rgb red = ToRgb(0, 32640, 32640);
  EXPECT_EQ(red.r, 255);
  EXPECT_EQ(red.g, 0);
  EXPECT_EQ(red.b, 0);
  // Hue 30 degrees: f = 3000, t = ((32640 - 16320) * 32640 + 16320) / 32640 = 16320,
  // (16320 + 64) >> 7 = 128.
  Rgb orange = ToRgb(3000, 32640, 32640);
  EXPECT_EQ(orange.r, 255);
  EXPECT_EQ(orange.g, 128);
  EXPECT_EQ(orange.b, 0);
  // One colour per sector: (v,t,p) (q,v,p) (p,v,t) (p,q,v) (t,p,v) (v,p,q) at f = 0.
  const Rgb want[6] = {{255, 0, 0}, {255, 255, 0}, {0, 255, 0},
                       {0, 255, 255}, {0, 0, 255}, {255, 0, 255}};
  for (int sector = 0; sector < 6; ++sector) {
    Rgb c = ToRgb(sector * 6000, 32640, 32640);
    EXPECT_EQ(c.r, want[sector].r) << sector;
    EXPECT_EQ(c.g, want[sector].g) << sector;
    EXPECT_EQ(c.b, want[sector].b) << sector;
  }
  // A hue past the circle takes the last branch: (v, p, q) with f = 0 -> q = v.
  Rgb past = ToRgb(36000, 32640, 32640);
  EXPECT_EQ(past.r, 255);
  EXPECT_EQ(past.g, 0);
  EXPECT_EQ(past.b, 255);
}

TEST(HsvToRgb, GreyBranchRounds) {
  // 12863 = 100.49 x 128 -> 100; 12864 = 100.5 x 128 -> 101 (a bare shift would give 100).
  Rgb a = ToRgb(-1, 0, 12863);
  EXPECT_EQ(a.r, 100);
  EXPECT_EQ(a.g, 100);
  EXPECT_EQ(a.b, 100);
  Rgb b = ToRgb(-1, 0, 12864);
  EXPECT_EQ(b.r, 101);
  EXPECT_EQ(b.g, 101);
  EXPECT_EQ(b.b, 101);
  Rgb w = ToRgb(-1, 0, 32640);
  EXPECT_EQ(w.r, 255);
}

TEST(HsvToRgb, RoundTripStaysClose) {
  // Every colour on a grid covering each channel's ends: back within 1 of where it started.
  int worst = 0;
  for (int32_t r = 0; r < 256; r += 3)
    for (int32_t g = 0; g < 256; g += 3)
      for (int32_t b = 0; b < 256; ++b) {
        Hsv h = ToHsv(r, g, b);
        Rgb c = ToRgb(h.h, h.s, h.v);
        worst = std::max(worst, std::abs(c.r - r));
        worst = std::max(worst, std::abs(c.g - g));
        worst = std::max(worst, std::abs(c.b - b));
        if (r == g && g == b) {
          ASSERT_TRUE(c.r == r && c.g == g && c.b == b);
        }
        ASSERT_EQ(std::max(c.r, std::max(c.g, c.b)), std::max(r, std::max(g, b)));
      }
  EXPECT_LE(worst, 1);
}

TEST(HighlightSoftFactor, KneeOnExactValues) {
  // L = 0.5: q = 2 x 0.5 x 0.5 x 0.5 = 0.25 exactly.
  EXPECT_EQ(HighlightSoftFactor(200.7f, 0.5f, 0.25f), 200);  // L - t = q: kept, truncated
  EXPECT_EQ(HighlightSoftFactor(100.0f, 0.5f, 0.375f), 50);  // 0.125/0.25 x 100 + 0.49
  EXPECT_EQ(HighlightSoftFactor(101.0f, 0.5f, 0.3125f), 76);  // 0.75 x 101 + 0.49 = 76.24
  // Bright pixel far above the threshold keeps its value.
  EXPECT_EQ(HighlightSoftFactor(180.9f, 0.9f, 0.1f), 180);
  // L = 1 gives q = 0 and keeps the channel.
  EXPECT_EQ(HighlightSoftFactor(42.0f, 1.0f, 0.5f), 42);
}

// Pixels where q = 2 f f L in float (f = 1 - L in double) and the same product taken whole in
// double truncate to different bytes; worked by hand from the float arithmetic.
TEST(HighlightSoftFactor, KneeInFloatAfterOneMinusLInDouble) {
  struct Row {
    int32_t b, g, r, threshold, channel, want;
  };
  const Row rows[] = {
      {56, 53, 123, 0, 123, 123},    // q = 0.292646319f: 123.000008 (double form: 122)
      {166, 48, 109, 16, 166, 139},
      {59, 226, 135, 160, 226, 149},
  };
  for (const Row& row : rows) {
    const float luma = float(38665 * row.g + 19660 * row.r + 7209 * row.b) / 65536.0f / 255.0f;
    EXPECT_EQ(HighlightSoftFactor(float(row.channel), luma, float(row.threshold) / 255.0f),
              row.want)
        << row.b << "," << row.g << "," << row.r;
  }
}

TEST(TemperatureFactors, KnownTemperatures) {
  float r, g, b;
  EXPECT_EQ(TemperatureFactors(6500.0f, &r, &g, &b), 0);
  EXPECT_EQ(r, 1.0f);
  EXPECT_NEAR(g, 0.9748f, 1e-4);
  EXPECT_NEAR(b, 0.9891f, 1e-4);

  EXPECT_EQ(TemperatureFactors(5000.0f, &r, &g, &b), 0);
  EXPECT_EQ(r, 1.0f);
  EXPECT_NEAR(g, 0.8949f, 1e-4);
  EXPECT_NEAR(b, 0.8089f, 1e-4);

  // Cool light: red 1745.043/7333.653 + 0.56, green 1216.617/7826.899 + 0.704, blue capped.
  EXPECT_EQ(TemperatureFactors(10000.0f, &r, &g, &b), 12);
  EXPECT_NEAR(r, 0.79795f, 1e-4);
  EXPECT_NEAR(g, 0.85944f, 1e-4);
  EXPECT_EQ(b, 1.0f);

  // Below 1000 K and above 40000 K are clamped.
  float r2, g2, b2;
  TemperatureFactors(1000.0f, &r, &g, &b);
  TemperatureFactors(300.0f, &r2, &g2, &b2);
  EXPECT_EQ(r, r2);
  EXPECT_EQ(g, g2);
  EXPECT_EQ(b, b2);
  EXPECT_NEAR(g, 0.2429f, 1e-4);  // -2902.196/2669.58 + 1.33
  EXPECT_EQ(b, 0.0f);            // -8257.8/3575.283 + 1.899 < 0
  TemperatureFactors(40000.0f, &r, &g, &b);
  TemperatureFactors(90000.0f, &r2, &g2, &b2);
  EXPECT_EQ(r, r2);
  EXPECT_EQ(g, g2);
}

TEST(SmoothstepClamp, Values) {
  EXPECT_EQ(SmoothstepClamp(0.0f, 1.0f, 0.5f), 0.5f);  // (3 - 1) x 0.25
  EXPECT_EQ(SmoothstepClamp(0.0f, 1.0f, 2.0f), 1.0f);
  EXPECT_EQ(SmoothstepClamp(0.0f, 1.0f, -1.0f), 0.0f);
  EXPECT_EQ(SmoothstepClamp(1000.0f, 0.0f, 6500.0f), 0.0f);  // the temperature call: u = 0
}

std::vector<uint8_t> Curve(const std::vector<CurvePoint>& pts, int32_t size = 256) {
  std::vector<uint8_t> t(size_t(size), 7);
  BuildToneCurve(pts.data(), int32_t(pts.size()), t.data(), size);
  return t;
}

TEST(ToneCurve, ThroughControlPoints) {
  std::vector<uint8_t> t = Curve({{0, 0}, {128, 160}, {255, 255}});
  EXPECT_EQ(t[0], 0);
  EXPECT_EQ(t[128], 160);
  EXPECT_EQ(t[255], 255);
  for (int x = 1; x < 256; ++x) EXPECT_GE(t[x], t[x - 1]) << x;  // this curve rises
}

TEST(ToneCurve, TwoPointsAreAStraightLine) {
  // b = 255/255 = 1, c = d = 0: trunc(u + 0.5) = u.
  std::vector<uint8_t> t = Curve({{0, 0}, {255, 255}});
  for (int x = 0; x < 256; ++x) EXPECT_EQ(t[x], x);
  std::vector<uint8_t> flat = Curve({{0, 40}, {255, 40}});
  for (int x = 0; x < 256; ++x) EXPECT_EQ(flat[x], 40);
}

TEST(ToneCurve, ValuesOutsideAByteWrap) {
  // Knots are hit exactly: trunc(300.5) = 300 -> 44; trunc(-19.5) = -19 -> 237.
  std::vector<uint8_t> up = Curve({{0, 0}, {1, 300}, {2, 0}}, 3);
  EXPECT_EQ(up[0], 0);
  EXPECT_EQ(up[1], 44);
  EXPECT_EQ(up[2], 0);
  std::vector<uint8_t> down = Curve({{0, 0}, {1, -20}, {2, 0}}, 3);
  EXPECT_EQ(down[1], 237);
}

TEST(ToneCurve, CloseToADoubleSpline) {
  // A nine-point film curve against the same spline in double: within one step everywhere.
  const std::vector<CurvePoint> pts = {{0, 0},     {30, 38},   {45, 50},   {60, 60},  {70, 65},
                                       {100, 92},  {150, 142}, {200, 193}, {255, 255}};
  std::vector<uint8_t> t = Curve(pts);
  const size_t n = pts.size();
  std::vector<double> h(n), mu(n), z(n), c(n, 0.0);
  for (size_t i = 0; i + 1 < n; ++i) h[i] = pts[i + 1].x - pts[i].x;
  for (size_t i = 1; i + 1 < n; ++i) {
    double alpha = 3.0 * (pts[i + 1].y - pts[i].y) / h[i] - 3.0 * (pts[i].y - pts[i - 1].y) / h[i - 1];
    double l = 2.0 * (pts[i + 1].x - pts[i - 1].x) - h[i - 1] * mu[i - 1];
    mu[i] = h[i] / l;
    z[i] = (alpha - h[i - 1] * z[i - 1]) / l;
  }
  for (size_t j = n - 1; j-- > 0;) c[j] = z[j] - mu[j] * c[j + 1];
  for (size_t i = 0; i + 1 < n; ++i) {
    double b = double(pts[i + 1].y - pts[i].y) / h[i] - h[i] * (c[i + 1] + 2 * c[i]) / 3;
    double d = (c[i + 1] - c[i]) / (3 * h[i]);
    for (int x = pts[i].x; x < pts[i + 1].x; ++x) {
      double u = x - pts[i].x;
      double want = pts[i].y + b * u + c[i] * u * u + d * u * u * u;
      EXPECT_NEAR(t[x], want, 1.0) << x;
    }
    EXPECT_EQ(t[pts[i].x], pts[i].y);
  }
}

TEST(ToneCurve, RefusedInputsLeaveTheTable) {
  const std::vector<uint8_t> untouched(256, 7);
  EXPECT_EQ(Curve({{0, 0}, {128, 160}, {254, 255}}), untouched);  // last x is not size - 1
  EXPECT_EQ(Curve({{1, 0}, {128, 160}, {255, 255}}), untouched);  // first x is not 0
  EXPECT_EQ(Curve({{0, 0}}), untouched);                           // one point
  const CurvePoint pts[2] = {{0, 0}, {255, 255}};
  std::vector<uint8_t> t(256, 7);
  BuildToneCurve(nullptr, 2, t.data(), 256);
  BuildToneCurve(pts, 2, nullptr, 256);
  EXPECT_EQ(t, untouched);
}

TEST(ToneCurve, DegeneratePointsStayInsideTheTable) {
  // Repeated and out-of-order x values divide by zero; nothing may be written outside.
  std::vector<uint8_t> t(8, 7);
  const CurvePoint pts[4] = {{0, 0}, {5, 9}, {5, 9}, {7, 3}};
  BuildToneCurve(pts, 4, t.data(), 8);
  EXPECT_EQ(t[7], 3);
  const CurvePoint wild[3] = {{0, 0}, {600, 9}, {7, 3}};
  BuildToneCurve(wild, 3, t.data(), 8);
  EXPECT_EQ(t[7], 3);
}

}  // namespace
}  // namespace Vantyx
