// Amberfade end to end: the record checks and their order, flat frames worked by hand (both
// looks, every tone stage, the glow's colour shift, the blue weighting), the derived values, the
// process-wide last gamma, and the same bytes at every processor level and worker count.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "effects/amberfade/amberfade_effect.h"
#include "effects/amberfade/amberfade_kernels.h"
#include "harness.h"

namespace Vantyx {
namespace {

using test::Image;

struct Fade {
  CThreadPool pool;
  AmberfadeEffect effect{(pool.Create(3), &pool)};
};

// A full record that changes nothing: no glow, contrast and gamma 1, no colour shift, no blur.
AmberfadeFullParam Neutral(const ImageDesc& src, const ImageDesc& dst) {
  AmberfadeFullParam p{};
  p.src = src, p.dst = dst;
  p.gamma = 1.0f, p.contrast = 1.0f, p.intensity = 1.0f;
  p.cool_look = 1;
  p.weight_tint = 0.27f, p.weight_result = 0.73f;
  p.blend_mode = 5;
  p.output_mode = 2;
  p.process_rect = {0, 0, src.width, src.height};
  return p;
}

AmberfadeParam BasicOf(const AmberfadeFullParam& f) {
  AmberfadeParam b{};
  b.src = f.src, b.mask = f.mask, b.dst = f.dst;
  b.intensity = f.intensity, b.colour = f.colour, b.gamma = f.gamma;
  b.cool_look = uint8_t(f.cool_look);
  b.process_rect = f.process_rect;
  return b;
}

// Every check of both records in the order the effect makes them, on a good 64 x 40 record
// (blur radius at most 64 / 8 = 8). kFullOnly: the basic record has no such field.
constexpr int32_t kFullOnly = 1;
TEST(AmberfadeChecks, CodesOfEveryRule) {
  Fade f;
  Image src(64, 40), dst(64, 40), mask(64, 40, PIXEL_GRAY8);
  const AmberfadeFullParam good = Neutral(src.Desc(), dst.Desc());
  const struct {
    const char* rule;
    int32_t full, basic;
    std::function<void(AmberfadeFullParam&)> edit;
  } rows[] = {
      {"good record", VX_OK, VX_OK, [](AmberfadeFullParam&) {}},
      {"source size", VX_E_INVALIDARG, VX_E_INVALIDARG, [](AmberfadeFullParam& p) { p.src.height = 39; }},
      {"mask not GRAY8", VX_E_INVALIDARG, VX_E_INVALIDARG,
       [&](AmberfadeFullParam& p) { p.mask = mask.Desc(), p.mask.format = PIXEL_BGRA32; }},
      {"destination narrower", VX_E_INVALIDARG, VX_E_INVALIDARG, [](AmberfadeFullParam& p) { p.dst.width = 63; }},
      {"size before format", VX_E_INVALIDARG, VX_E_INVALIDARG,
       [](AmberfadeFullParam& p) { p.src.format = PIXEL_FLOAT96, p.dst.width = 3; }},
      {"float source", VX_E_NOTIMPL, VX_E_NOTIMPL, [](AmberfadeFullParam& p) { p.src.format = PIXEL_FLOAT96; }},
      {"format before parameters", VX_E_NOTIMPL, VX_E_NOTIMPL,
       [](AmberfadeFullParam& p) { p.dst.format = PIXEL_GRAY8, p.gamma = 2, p.hlr_gain = 3; }},
      {"gamma 0", VX_OK, VX_OK, [](AmberfadeFullParam& p) { p.gamma = 0; }},
      {"gamma above 1", VX_E_INVALIDARG, VX_E_INVALIDARG, [](AmberfadeFullParam& p) { p.gamma = 1.001f; }},
      {"colour -1 and intensity 5", VX_OK, VX_OK, [](AmberfadeFullParam& p) { p.colour = -1, p.intensity = 5; }},
      {"colour above 2, unchecked in full", VX_OK, VX_E_INVALIDARG, [](AmberfadeFullParam& p) { p.colour = 2.01f; }},
      {"intensity above 5, unchecked in full", VX_OK, VX_E_INVALIDARG,
       [](AmberfadeFullParam& p) { p.intensity = 5.01f; }},
      {"negative intensity", VX_OK, VX_E_INVALIDARG, [](AmberfadeFullParam& p) { p.intensity = -0.01f; }},
      {"gain 2", VX_OK, kFullOnly, [](AmberfadeFullParam& p) { p.hlr_gain = 2; }},
      {"gain above 2", VX_E_INVALIDARG, kFullOnly, [](AmberfadeFullParam& p) { p.hlr_gain = 2.01f; }},
      {"radius 8", VX_OK, kFullOnly, [](AmberfadeFullParam& p) { p.blur_radius = 8; }},
      {"radius above 8", VX_E_INVALIDARG, kFullOnly, [](AmberfadeFullParam& p) { p.blur_radius = 8.01f; }},
      {"threshold 256", VX_E_INVALIDARG, kFullOnly, [](AmberfadeFullParam& p) { p.hlr_threshold = 256; }},
      {"threshold below 0", VX_OK, kFullOnly, [](AmberfadeFullParam& p) { p.hlr_threshold = INT32_MIN; }},
      {"contrast 40, weights -3 and 9", VX_OK, kFullOnly,
       [](AmberfadeFullParam& p) { p.contrast = 40, p.weight_tint = -3, p.weight_result = 9; }},
      {"NaN contrast", VX_E_INVALIDARG, kFullOnly,
       [](AmberfadeFullParam& p) { p.contrast = std::numeric_limits<float>::quiet_NaN(); }},
      {"blend mode 29", VX_E_INVALIDARG, kFullOnly, [](AmberfadeFullParam& p) { p.blend_mode = 29; }},
      {"negative result blur", VX_E_INVALIDARG, kFullOnly,
       [](AmberfadeFullParam& p) { p.blur_result_on = 1, p.result_blur_radius = -3; }},
  };
  test::LogCapture quiet;
  EXPECT_EQ(f.effect.Process(nullptr), VX_E_POINTER);
  ASSERT_EQ(f.effect.SetImageSize(64, 40), VX_OK);
  for (const auto& row : rows) {
    AmberfadeFullParam p = good;
    row.edit(p);
    EXPECT_EQ(f.effect.ProcessFull(&p), row.full) << "full: " << row.rule;
    const AmberfadeParam b = BasicOf(p);
    if (row.basic != kFullOnly) {
      EXPECT_EQ(f.effect.Process(&b), row.basic) << "basic: " << row.rule;
    }
  }
  EXPECT_TRUE(quiet.Contains("[VNTX] [Vantyx](BoxBlurH) - Return Code: 80070057\n"));
  EXPECT_TRUE(quiet.Contains("[VNTX] [Vantyx](total process) - Return Code: 80070057\n"));
  // Reset drops all six buffers and the size.
  ASSERT_EQ(f.effect.Reset(), VX_OK);
  EXPECT_EQ(f.effect.ProcessFull(&good), VX_E_INVALIDARG);
  ASSERT_EQ(f.effect.SetImageSize(64, 40), VX_OK);
  EXPECT_EQ(f.effect.ProcessFull(&good), VX_OK);
}

// Flat 16 x 12 frames whose results are worked by hand from the source pixel and what differs
// from the neutral record (basic: the basic call with that record's fields).
TEST(AmberfadeResult, HandComputedFlatFrames) {
  using Edit = std::function<void(AmberfadeFullParam&)>;
  const struct {
    const char* what;
    uint8_t src[4];
    bool basic;
    Edit edit;
    uint8_t want[4];
  } rows[] = {
      {"source through", {30, 140, 250, 9}, false, [](AmberfadeFullParam& p) { p.output_mode = 3; }, {30, 140, 250, 9}},
      // Warm basic call at intensity 0: gain 0, radius 0, contrast 1.0, only the temperature.
      // 5000 K: g = -2902.196 / 6669.58 + 1.33 = 0.8949, b = -8257.8 / 7575.283 + 1.899 =
      // 0.8089: (100, 100, 100) -> (80, 89, 100); Y0 = 100 x 65534 >> 8 = 25599, Y1 =
      // (80 x 7209 + 89 x 38665 + 100 x 19660) >> 8 = 23374; x Y0 / Y1: (87, 97, 109).
      {"warm, 5000 K", {100, 100, 100, 255}, true,
       [](AmberfadeFullParam& p) { p.cool_look = 0, p.intensity = 0; }, {87, 97, 109, 255}},
      // 6500 K (colour 1.5): g 0.9748, b 0.9891: (98, 97, 100), Y1 = 25089: (99, 98, 102).
      {"warm, 6500 K", {100, 100, 100, 255}, true,
       [](AmberfadeFullParam& p) { p.cool_look = 0, p.intensity = 0, p.colour = 1.5f; }, {99, 98, 102, 255}},
      // Gamma 0.5 on grey 128: index 128 x 65536 >> 10 = 8192, Yg = trunc((8192 / 16383)^2 x
      // 65536) = 16386; U = V = 32768; B = R = 16386 >> 8 = 64, G = (-32 + 16386) >> 8 = 63.
      {"gamma 0.5", {128, 128, 128, 255}, false, [](AmberfadeFullParam& p) { p.gamma = 0.5f; }, {64, 63, 64, 255}},
      // Contrast 2: a = -50, c x 177 / 127 - 50: 100 -> 89.4; 250 -> 298 and 10 -> -36 clamp.
      {"contrast 2", {250, 100, 10, 255}, false, [](AmberfadeFullParam& p) { p.contrast = 2; }, {255, 89, 0, 255}},
      // The glow of white at threshold 0: the key keeps 255 (m1 = m2, no rescale), the light
      // curve gives the gain 2 x 0.25 at 1.0: byte 127; blue x trunc(1.2f x 65536) = 78643:
      // 152, red x 58982 (0.9): 114.
      {"glow, colour 0", {255, 255, 255, 255}, false,
       [](AmberfadeFullParam& p) { p.hlr_gain = 0.25f, p.adjust_colour_on = 1, p.output_mode = 0; },
       {152, 127, 114, 255}},
      // Colour 20 (unchecked): blue factor 5.2 saturates, red 1 - 2.1 is below 0.
      {"glow, colour 20", {255, 255, 255, 255}, false,
       [](AmberfadeFullParam& p) { p.hlr_gain = 0.25f, p.adjust_colour_on = 1, p.colour = 20, p.output_mode = 0; },
       {255, 127, 0, 255}},
      // Where the key differs from BlackMist's: (56, 53, 123) at threshold 60 has L = 0.29148,
      // t = 0.23529, q = 2 (1 - L)^2 L = 0.29265, so the knee fades to (11, 10, 24); m1 = 24 is
      // below m2 = 63 (d = (0, 0, 63)), so d stays (BlackMist would take it to 24). Gain 1 takes
      // 63 to 47 (24 would give 15).
      {"glow keeps d when the knee is darker", {56, 53, 123, 255}, false,
       [](AmberfadeFullParam& p) { p.hlr_gain = 0.5f, p.hlr_threshold = 60, p.output_mode = 0; },
       {0, 0, 47, 255}},
      // Warm glow: the tone curve takes 127 to 159 (curve through (128, 160)).
      {"warm glow", {255, 255, 255, 255}, false,
       [](AmberfadeFullParam& p) { p.hlr_gain = 0.25f, p.cool_look = 0, p.output_mode = 0; },
       {159, 159, 159, 255}},
      // Blue weighting of a flat blend (100, 100, 100) with colour 1: R' = trunc(100 x 0.7f) =
      // 70 (the float product rounds to 70), G' = 60; Y0 = 6553400, Y1 = (720900 + 1376200 +
      // 2319900) >> 8 = 17253; x 25599 / 17253: (148, 89, 103); weights 17694 and 47841:
      // (148 x 17694 + 100 x 47841) / 65536 = 112.96 and so on: (112, 97, 100).
      {"blue weighting", {100, 100, 100, 255}, false,
       [](AmberfadeFullParam& p) { p.colour = 1, p.blur_result_on = 1, p.result_blur_radius = 3; },
       {112, 97, 100, 255}},
  };
  for (const auto& row : rows) {
    AmberfadeEffect::s_last_gamma.store(1.0f);  // every object here builds its own table
    Fade f;
    ASSERT_EQ(f.effect.SetImageSize(16, 12), VX_OK);
    Image src(16, 12), dst(16, 12), want(16, 12);
    for (size_t i = 0; i < src.bytes.size(); i += 4) {
      std::memcpy(&src.bytes[i], row.src, 4);
      std::memcpy(&want.bytes[i], row.want, 4);
    }
    AmberfadeFullParam p = Neutral(src.Desc(), dst.Desc());
    row.edit(p);
    const AmberfadeParam b = BasicOf(p);
    ASSERT_EQ(row.basic ? f.effect.Process(&b) : f.effect.ProcessFull(&p), VX_OK) << row.what;
    EXPECT_TRUE(dst == want) << row.what << ": pixel 0 is " << int(dst.bytes[0]) << ","
                             << int(dst.bytes[1]) << "," << int(dst.bytes[2]) << "," << int(dst.bytes[3]);
  }
}

// The values derived from the intensity, worked out for a 64 x 40 frame (maxdim 64), given to
// the full call by hand, render what the derivation renders; the basic call is the full call
// with its fixed settings.
TEST(AmberfadeResult, DerivedValuesAndBothCalls) {
  const struct {
    bool cool;
    float intensity, gain, radius;
    int32_t threshold;
  } rows[] = {
      {true, 0.5f, 0.165f, 0.84f, 160},  // 0.33 s; s x 0.21 x 64 / 8
      {true, 1.5f, 0.495f, 5.04f, 160},  // s above 1 doubles: 3 x 0.21 x 8
      {false, 2.0f, 0.264f, 0.8f, 200},  // 0.066 s^2; min(s x 0.05 x 8, 64 x 0.158 / 8)
      {false, 5.0f, 1.65f, 1.264f, 200},
  };
  Fade f;
  ASSERT_EQ(f.effect.SetImageSize(64, 40), VX_OK);
  Image src(64, 40), derived(64, 40), given(64, 40), basic(64, 40);
  src.FillRandom(5);
  for (const auto& row : rows) {
    AmberfadeFullParam p = Neutral(src.Desc(), derived.Desc());
    p.cool_look = row.cool, p.intensity = row.intensity, p.colour = 0.5f, p.gamma = 0.8f;
    p.contrast = row.cool ? 0.7f : 1.0f, p.adjust_colour_on = p.blur_result_on = 1;
    p.result_blur_radius = 8, p.derive_from_intensity = 1, p.hlr_threshold = 7;
    ASSERT_EQ(f.effect.ProcessFull(&p), VX_OK);
    const AmberfadeParam b = [&] { AmberfadeParam r = BasicOf(p); r.dst = basic.Desc(); return r; }();
    ASSERT_EQ(f.effect.Process(&b), VX_OK);
    p.dst = given.Desc(), p.derive_from_intensity = 0;
    p.hlr_gain = row.gain, p.blur_radius = row.radius, p.hlr_threshold = row.threshold;
    ASSERT_EQ(f.effect.ProcessFull(&p), VX_OK);
    EXPECT_TRUE(derived == given) << row.intensity;
    EXPECT_TRUE(derived == basic) << row.intensity;
  }
}

// The result blur's radius is clamped by the half-size picture (24 x 10: 12 x 6, at most
// (6 - 1) / 2 = 2), unlike BlackMist's: 5 pixels (r = 5) and 1000 blur the same.
TEST(AmberfadeResult, ResultBlurRadiusClampedByTheHalfSize) {
  Fade f;
  ASSERT_EQ(f.effect.SetImageSize(24, 10), VX_OK);
  Image src(24, 10), small(24, 10), huge(24, 10);
  src.FillRandom(8);
  AmberfadeFullParam p = Neutral(src.Desc(), small.Desc());
  p.blur_result_on = 1, p.output_mode = 1, p.result_blur_radius = 5;
  ASSERT_EQ(f.effect.ProcessFull(&p), VX_OK);
  p.dst = huge.Desc(), p.result_blur_radius = 1000;
  ASSERT_EQ(f.effect.ProcessFull(&p), VX_OK);
  EXPECT_TRUE(small == huge);
}

// Contrast and gamma at exactly 1.0 leave a random frame as it is. The last gamma is one
// value for the process: a second object asked for it keeps its own table, still zero, and
// turns grey black (Yg = 0: B = R = 0 >> 8, G = -32 + 0 < 256); after it builds another gamma
// the first object, asked for that one, keeps its older table. A run that ends before the
// gamma stage (the glow alone, output mode 0) builds nothing and leaves the last gamma.
// Objects on two threads race on that value without undefined behaviour (ThreadSanitizer
// watches).
TEST(AmberfadeGamma, OneLastGammaForTheProcess) {
  AmberfadeEffect::s_last_gamma.store(1.0f);
  Fade a, b;
  ASSERT_EQ(a.effect.SetImageSize(9, 7), VX_OK);
  ASSERT_EQ(b.effect.SetImageSize(9, 7), VX_OK);
  Image src(9, 7), dst(9, 7), other_dst(9, 7);
  src.FillRandom(3);
  for (size_t i = 3; i < src.bytes.size(); i += 4) src.bytes[i] = 255;  // screen keeps opaque pixels
  AmberfadeFullParam p = Neutral(src.Desc(), dst.Desc());
  ASSERT_EQ(a.effect.ProcessFull(&p), VX_OK);
  EXPECT_TRUE(dst == src);

  src.Fill(128);
  for (size_t i = 3; i < src.bytes.size(); i += 4) src.bytes[i] = 255;
  auto grey = [&](AmberfadeEffect& e, float gamma, int32_t mode = 2) {
    p.gamma = gamma, p.output_mode = mode;
    EXPECT_EQ(e.ProcessFull(&p), VX_OK);
    return std::vector<int>{dst.bytes[0], dst.bytes[1], dst.bytes[2]};
  };
  EXPECT_EQ(grey(b.effect, 0.5f, 0), (std::vector<int>{0, 0, 0}));
  EXPECT_EQ(grey(a.effect, 0.5f), (std::vector<int>{64, 63, 64}));
  EXPECT_EQ(grey(b.effect, 0.5f), (std::vector<int>{0, 0, 0}));
  EXPECT_NE(grey(b.effect, 0.25f), (std::vector<int>{0, 0, 0}));
  EXPECT_EQ(grey(a.effect, 0.25f), (std::vector<int>{64, 63, 64}));

  std::thread other([&] {
    AmberfadeFullParam q = Neutral(src.Desc(), other_dst.Desc());
    for (int i = 0; i < 20; ++i) {
      q.gamma = 0.3f + 0.01f * float(i);
      EXPECT_EQ(b.effect.ProcessFull(&q), VX_OK);
    }
  });
  for (int i = 0; i < 20; ++i) grey(a.effect, 0.6f + 0.01f * float(i));
  other.join();
}

// The kernels' two forms on the harness: gamma tables and factors drawn over their ranges,
// colour and weights past them.
TEST(AmberfadeForms, FastKernelsMatchPlain) {
  using namespace amberfade;  // NOLINT(build/namespaces)
  test::ExpectFormsAgree({
      test::KernelRow("apply_gamma", {{PIXEL_BGRA32}}, [](test::Case& c) {
        std::vector<uint32_t> table(kGammaSize);
        BuildGammaTable(c.Float(0, 1), table.data());
        return c.Form(apply_gamma_plain, apply_gamma_sse41)(c.View(0), table.data(), c.strip);
      }),
      test::KernelRow("adjust_temperature", {{PIXEL_BGRA32}}, [](test::Case& c) {
        TemperatureTable t;
        BuildTemperatureTable(c.Float(0, 1), c.Float(0, 1), c.Float(0, 1), &t);
        return c.Form(adjust_temperature_plain, adjust_temperature_sse41)(c.View(0), t, c.strip);
      }),
      test::KernelRow("weight_blue", {{PIXEL_BGRA32}, {PIXEL_BGRA32}}, [](test::Case& c) {
        BlueWeights w;
        BuildBlueWeights(c.Float(-3, 4), c.Float(-1, 2), c.Float(-1, 2), &w);
        return c.Form(weight_blue_plain, weight_blue_sse41)(c.View(0), c.View(1), w, c.strip);
      }),
  });
}

// Every frame at levels below 5 and from 5, one worker and eight. Each object first runs a
// gamma of 1 so that it builds its own table for the gamma drawn next.
TEST(AmberfadeForms, LevelsAndWorkersAgree) {
  auto warm_up = [](AmberfadeEffect& e, test::Frame& f) {
    AmberfadeParam p{};
    f.Place(p);
    p.gamma = 1.0f;
    e.Process(&p);
  };
  test::ExpectEffectRunsAgree({
      test::EffectRow::Of<AmberfadeEffect>("basic", [warm_up](AmberfadeEffect& e, test::Frame& f) {
        warm_up(e, f);
        AmberfadeParam p{};
        f.Place(p);
        p.intensity = f.Float(0, 5);
        p.colour = f.Float(-1, 2);
        p.gamma = f.Pick({0, 1}) ? f.Float(0, 1) : 1.0f;
        p.cool_look = uint8_t(f.Int(0, 1));
        return e.Process(&p);
      }),
      test::EffectRow::Of<AmberfadeEffect>("full", [warm_up](AmberfadeEffect& e, test::Frame& f) {
        warm_up(e, f);
        AmberfadeFullParam p{};
        f.Place(p);
        p.hlr_gain = f.Float(0, 2);
        p.blur_radius = f.Float(0, float(std::max(f.width, f.height) / 8));
        p.hlr_threshold = f.Int(-300, 255);
        p.intensity = f.Float(-1, 6);
        p.gamma = f.Float(0, 1);
        p.colour = f.Float(-3, 4);
        p.cool_look = f.Int(0, 1);
        p.weight_tint = f.Float(-1, 2);
        p.weight_result = f.Float(-1, 2);
        p.contrast = f.Float(-1, 3);
        p.adjust_colour_on = uint8_t(f.Int(0, 1));
        p.blur_result_on = uint8_t(f.Int(0, 1));
        p.result_blur_radius = f.Float(0, 300);
        p.blend_mode = f.Int(0, 28);
        p.output_mode = f.Int(0, 3);
        p.derive_from_intensity = f.Int(0, 1);
        return e.ProcessFull(&p);
      }),
  });
}

}  // namespace
}  // namespace Vantyx
