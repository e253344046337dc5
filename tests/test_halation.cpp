// Halation: the gaussian kernel and a blurred line by hand, the record checks and their order,
// every view on flat frames worked by hand, portrait frames, rectangles, the caches, stage
// failures in the log, and the same bytes from every form, level and worker count.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>

#include "effects/halation/halation_effect.h"
#include "effects/halation/halation_kernels.h"
#include "harness.h"
#include "imageops/channels.h"
#include "imageops/gaussian_blur.h"

namespace Vantyx {
namespace {

using test::Image;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// The full record of the basic call's forced fields, on a w x h frame.
HalationParamsEx FullDefaults(Image& src, Image& dst) {
  HalationParamsEx p{};
  p.src = src.Desc();
  p.dst = dst.Desc();
  p.opacity = 255;
  p.highlight_threshold = 203;
  p.blur_radius = p.blur_radius_2 = 36;
  p.midtone_threshold = 216;
  p.curve_strength = 50;
  p.show_threshold = 203;
  p.process_rect = {0, 0, uint32_t(dst.width), uint32_t(dst.height)};
  p.keyer_gain = 1.0f;
  p.tone_mapping = 1;
  p.blend_mode = 4;
  p.debug_view = 9;
  return p;
}

HalationParams BasicOf(const HalationParamsEx& f) {
  return HalationParams{f.src, f.mask, f.dst, f.opacity, f.highlight_threshold, f.blur_radius,
                        f.midtone_threshold, f.curve_strength, f.show_threshold, f.process_rect};
}

void Paint(Image& img, const uint8_t (&bgra)[4]) {
  for (int32_t y = 0; y < img.height; ++y)
    for (int32_t x = 0; x < img.width; ++x) std::memcpy(img.Pixel(x, y), bgra, 4);
}

// ---- The kernel -------------------------------------------------------------------------------

// sigma = float(r - 1) * 0.3f + 0.8f; the kept radius is the last i with e^(-i^2 / 2 sigma^2)
// above 1/32, i < sigma sqrt(2 ln 32) = 2.6327 sigma: 0 -> 0, 1 -> 1 (2.1), 36 -> 29 (29.75),
// 4096 -> 3236 (sigma 1229.3000488, 3236.5). Radius 1: w1 / w0 = e^(-0.78125) = 0.4578334
// (e and sigma as floats), so w0 = 1 / 1.9156668 = 0.5220115 and w1 = 0.2389943.
TEST(HalationKernel, SigmaRadiusAndWeights) {
  const struct {
    int32_t r;
    double sigma;
    int32_t radius;
  } rows[] = {{0, 0.5, 0},
              {1, 0.800000011920929, 1},
              {36, 11.300000190734863, 29},
              {4096, 1229.300048828125, 3236}};
  for (const auto& row : rows) {
    const GaussianKernel k = BuildGaussianKernel(row.r);
    EXPECT_EQ(k.sigma, row.sigma) << row.r;
    ASSERT_EQ(k.radius, row.radius) << row.r;
    ASSERT_EQ(k.weights.size(), size_t(row.radius) + 1);
    double sum = k.weights[0];
    for (int32_t i = 1; i <= k.radius; ++i) {
      sum += 2.0 * k.weights[size_t(i)];
      EXPECT_GT(k.weights[size_t(i)], k.weights[0] / 32.0f) << row.r << " weight " << i;
    }
    EXPECT_NEAR(sum, 1.0, 1e-6) << row.r;
  }
  const GaussianKernel one = BuildGaussianKernel(1);
  EXPECT_NEAR(one.weights[0], 0.5220115, 1e-7);
  EXPECT_NEAR(one.weights[1], 0.2389943, 1e-7);
}

// Radius 1 on the line 255, 0, 0, 0, 255 (clamped at both ends):
// x0: (0.2389943 + 0.5220115) 255 = 194.06 -> 194; x1: 0.2389943 x 255 = 60.94 -> 61; x2: 0.
// Alpha stays; radius 0 copies.
TEST(HalationKernel, LineByHandInEveryFormAndDirection) {
  const GaussianKernel one = BuildGaussianKernel(1), none = BuildGaussianKernel(0);
  using Fn = int32_t (*)(const ImageView&, const float*, int32_t, const ProcessRect&);
  const struct {
    Fn fn;
    bool rows, fast;
  } forms[] = {{gaussian_blur_rows_plain, true, false},
               {gaussian_blur_cols_plain, false, false},
               {gaussian_blur_rows_sse41, true, true},
               {gaussian_blur_cols_sse41, false, true}};
  const uint8_t line[5] = {255, 0, 0, 0, 255}, want[5] = {194, 61, 0, 61, 194};
  for (const auto& f : forms) {
    if (f.fast && !test::HasSse41()) continue;
    Image img(f.rows ? 5 : 1, f.rows ? 1 : 5), copy;
    for (int32_t i = 0; i < 5; ++i) {
      uint8_t* p = f.rows ? img.Pixel(i, 0) : img.Pixel(0, i);
      const uint8_t px[4] = {line[i], line[4 - i], 0, uint8_t(i)};
      std::memcpy(p, px, 4);
    }
    copy = img;
    const ProcessRect all{0, 0, uint32_t(img.width), uint32_t(img.height)};
    ASSERT_EQ(f.fn(img.View(), none.weights.data(), 0, all), 0);
    EXPECT_TRUE(img == copy) << "radius 0 copies";
    ASSERT_EQ(f.fn(img.View(), one.weights.data(), 1, all), 0);
    for (int32_t i = 0; i < 5; ++i) {
      const uint8_t* p = f.rows ? img.Pixel(i, 0) : img.Pixel(0, i);
      EXPECT_EQ(p[0], want[i]) << f.rows << f.fast << " sample " << i;
      EXPECT_EQ(p[1], want[4 - i]);
      EXPECT_EQ(p[3], i);
    }
    EXPECT_EQ(f.fn(img.View(), one.weights.data(), -1, all), VX_E_INVALIDARG);
  }
}

// ---- The record checks ------------------------------------------------------------------------

// One table for every check of both records, in the order the effect makes them; a refused
// record writes nothing.
TEST(HalationChecks, CodesOfEveryRule) {
  CThreadPool pool;
  pool.Create(2);
  HalationEffect effect(&pool);
  Image src(24, 16), dst(24, 16), small(4, 4), mask(24, 16, PIXEL_GRAY8);
  const HalationParamsEx good = FullDefaults(src, dst);
  using Edit = std::function<void(HalationParamsEx&)>;
  const struct {
    const char* rule;
    bool basic_too;
    int32_t want;
    Edit edit;
  } rows[] = {
      {"good record", true, VX_OK, [](HalationParamsEx&) {}},
      {"no source pixels", true, VX_E_INVALIDARG,
       [](HalationParamsEx& p) { p.src.data = nullptr; }},
      {"source size", true, VX_E_INVALIDARG, [](HalationParamsEx& p) { p.src.height = 15; }},
      {"mask with another size", true, VX_E_INVALIDARG,
       [&](HalationParamsEx& p) { p.mask = mask.Desc(), p.mask.width = 23; }},
      {"mask not GRAY8", true, VX_E_INVALIDARG,
       [&](HalationParamsEx& p) { p.mask = mask.Desc(), p.mask.format = PIXEL_BGRA32; }},
      {"destination shorter than the rectangle", true, VX_E_INVALIDARG,
       [](HalationParamsEx& p) { p.dst.height = 15; }},
      {"float source", true, VX_E_NOTIMPL,
       [](HalationParamsEx& p) { p.src.format = PIXEL_FLOAT96; }},
      {"size before format", true, VX_E_INVALIDARG,
       [](HalationParamsEx& p) { p.src.format = PIXEL_FLOAT96, p.src.width = 3; }},
      {"rectangle past the right edge", true, VX_E_INVALIDARG,
       [&](HalationParamsEx& p) { p.process_rect = {22, 0, 26, 4}, p.dst = small.Desc(); }},
      {"format before fields", true, VX_E_NOTIMPL,
       [](HalationParamsEx& p) { p.dst.format = PIXEL_GRAY8, p.opacity = 256; }},
      {"opacity 256", true, VX_E_INVALIDARG, [](HalationParamsEx& p) { p.opacity = 256; }},
      {"highlight threshold 256", true, VX_E_INVALIDARG,
       [](HalationParamsEx& p) { p.highlight_threshold = 256; }},
      {"negative radius", true, VX_E_INVALIDARG, [](HalationParamsEx& p) { p.blur_radius = -1; }},
      {"radius 4096", true, VX_OK, [](HalationParamsEx& p) { p.blur_radius = 4096; }},
      {"radius 4097", true, VX_E_INVALIDARG, [](HalationParamsEx& p) { p.blur_radius = 4097; }},
      {"midtone threshold 256", true, VX_E_INVALIDARG,
       [](HalationParamsEx& p) { p.midtone_threshold = 256; }},
      {"strength 19", true, VX_E_INVALIDARG, [](HalationParamsEx& p) { p.curve_strength = 19; }},
      {"strength 20", true, VX_OK, [](HalationParamsEx& p) { p.curve_strength = 20; }},
      {"strength 100", true, VX_OK, [](HalationParamsEx& p) { p.curve_strength = 100; }},
      {"strength 101", true, VX_E_INVALIDARG, [](HalationParamsEx& p) { p.curve_strength = 101; }},
      {"show threshold 256", true, VX_E_INVALIDARG,
       [](HalationParamsEx& p) { p.show_threshold = 256; }},
      {"unchecked second radius", false, VX_OK, [](HalationParamsEx& p) { p.blur_radius_2 = ~0u; }},
      {"NaN gain", false, VX_E_INVALIDARG, [](HalationParamsEx& p) { p.keyer_gain = kNaN; }},
      {"infinite gain", false, VX_E_INVALIDARG,
       [](HalationParamsEx& p) { p.keyer_gain = std::numeric_limits<float>::infinity(); }},
      {"huge finite gain", false, VX_OK, [](HalationParamsEx& p) { p.keyer_gain = -3e38f; }},
      {"blend mode 22", false, VX_OK, [](HalationParamsEx& p) { p.blend_mode = 22; }},
      {"blend mode 23", false, VX_E_INVALIDARG, [](HalationParamsEx& p) { p.blend_mode = 23; }},
      {"blend mode -1", false, VX_E_INVALIDARG, [](HalationParamsEx& p) { p.blend_mode = -1; }},
      {"view 10 runs and shows nothing", false, VX_OK,
       [](HalationParamsEx& p) { p.debug_view = 10; }},
  };
  EXPECT_EQ(effect.ProcessFull(&good), VX_E_INVALIDARG) << "before any size";
  EXPECT_EQ(effect.SetImageSize(24, 0), VX_E_INVALIDARG);
  ASSERT_EQ(effect.SetImageSize(24, 16), VX_OK);
  EXPECT_EQ(effect.Process(nullptr), VX_E_POINTER);
  EXPECT_EQ(effect.ProcessFull(nullptr), VX_E_POINTER);
  for (const auto& row : rows) {
    HalationParamsEx p = good;
    row.edit(p);
    dst.Fill(7);
    const Image before = dst;
    EXPECT_EQ(effect.ProcessFull(&p), row.want) << "full record: " << row.rule;
    if (row.want != VX_OK) {
      EXPECT_TRUE(dst == before) << "full record wrote: " << row.rule;
    }
    const HalationParams b = BasicOf(p);
    if (row.basic_too) {
      EXPECT_EQ(effect.Process(&b), row.want) << "basic record: " << row.rule;
    }
  }
}

// ---- Views, worked by hand ----------------------------------------------------------------

// Flat frames pass the resizes and the blur unchanged, so each view is the stage's pixel laid
// over the source. Slot 0 with opacity 255, layer alpha 255 and source alpha 255 gives
// a = 254 and (254 l + b) / 255. Each row gives the view, the highlight, midtone and show
// thresholds and curve_strength, any other change, and the pixel; the destination starts at 7.
TEST(HalationViews, FlatFramesByHand) {
  using Edit = std::function<void(HalationParamsEx&)>;
  const Edit none = [](HalationParamsEx&) {};
  const struct {
    const char* what;
    uint8_t src[3];
    int32_t view;
    uint32_t key_t, mid_t, show_t, strength;
    Edit edit;
    uint8_t want[4];
  } rows[] = {
      // L of (60, 150, 160) is 9377890 >> 16 = 143. T = 144: f = 14 / 15 gives 56, 140, 149.
      {"keyer fades one below", {60, 150, 160}, 0, 144, 216, 203, 50, none, {56, 140, 149, 255}},
      // L of (255, 255, 0) is 178; at T = 178 it is kept and R = (0 - 178) 2 + 178 = -178,
      // low byte 78, shown as 254 x 78 / 255 = 77; a huge gain saturates, low byte 0.
      {"keyer keeps at L = T, red wraps", {255, 255, 0}, 0, 178, 216, 203, 50,
       [](HalationParamsEx& p) { p.keyer_gain = 2; }, {255, 255, 77, 255}},
      {"keyer, red saturates", {255, 255, 0}, 0, 178, 216, 203, 50,
       [](HalationParamsEx& p) { p.keyer_gain = 3e38f; }, {255, 255, 0, 255}},
      // Midtone T = 163: D = 57, f = 1 - 20 / 57 gives 38, 97, 103.
      {"midtone fades", {60, 150, 160}, 6, 203, 163, 203, 50, none, {38, 97, 103, 255}},
      // At L = T the midtone is copied; tone-mapped B = 0 and R = C[160] = 180; the combine
      // brings back B 60 from the split: R (254 x 180 + 160) / 255 = 179.
      {"midtone combined", {60, 150, 160}, 7, 203, 143, 203, 50, none, {60, 150, 179, 255}},
      // The split keeps one channel; B and G of m_split_r stay 0: 60 / 255, 150 / 255 -> 0.
      {"blurred red", {60, 150, 160}, 1, 143, 216, 203, 50, none, {0, 0, 160, 255}},
      {"blurred green", {60, 150, 160}, 3, 143, 216, 203, 50, none, {0, 150, 0, 255}},
      // L of (60, 150, 120) is 131. Curve A puts 120 at 200 (strength 50), 152 (20) and 230
      // (100), and its second point at (72, 170), (94, 134), (60, 190): (254 y + R) / 255.
      {"red curve, 50", {60, 150, 120}, 2, 131, 216, 203, 50, none, {0, 0, 199, 255}},
      {"red curve, 20", {60, 150, 120}, 2, 131, 216, 203, 20, none, {0, 0, 151, 255}},
      {"red curve, 100", {60, 150, 120}, 2, 131, 216, 203, 100, none, {0, 0, 229, 255}},
      {"red curve x1, 50", {0, 0, 72}, 2, 0, 216, 203, 50, none, {0, 0, 169, 255}},
      {"red curve x1, 20", {0, 0, 94}, 2, 0, 216, 203, 20, none, {0, 0, 133, 255}},
      {"red curve x1, 100", {0, 0, 60}, 2, 0, 216, 203, 100, none, {0, 0, 189, 255}},
      {"no tone mapping", {60, 150, 120}, 2, 131, 216, 203, 50,
       [](HalationParamsEx& p) { p.tone_mapping = 0; }, {0, 0, 120, 255}},
      // Curve B puts 150 at 175: (254 x 175 + 150) / 255 = 174.
      {"green curve", {60, 150, 120}, 4, 131, 216, 203, 50, none, {0, 174, 0, 255}},
      // Midtone T = 255 leaves nothing (D = 20, L <= 235): compare gives (60, 175, 200).
      {"compare", {60, 150, 120}, 5, 131, 255, 203, 50, none, {60, 174, 199, 255}},
      // The fade: L = T keeps alpha 255; L = T + 1 gives trunc(255 x 0.99) = 252, a = 251 and
      // (251 l + 4 b) / 255; L = T + 100 gives 0, and nothing is written.
      {"fade at L = T", {60, 150, 120}, 8, 131, 255, 131, 50, none, {60, 174, 199, 255}},
      {"fade at L = T + 1", {60, 150, 120}, 8, 131, 255, 130, 50, none, {60, 174, 198, 255}},
      {"fade at L = T + 100", {60, 150, 120}, 8, 131, 255, 31, 50, none, {7, 7, 7, 7}},
      // The composite with multiply (slot 2): 60 x 60 / 255 = 14, 150 x 175 / 255 = 102,
      // 120 x 200 / 255 = 94, then (254 F + b) / 255.
      {"result, multiply", {60, 150, 120}, 9, 131, 255, 131, 50,
       [](HalationParamsEx& p) { p.blend_mode = 2; }, {14, 102, 94, 255}},
      {"show threshold 0 writes nothing", {60, 150, 120}, 9, 131, 255, 0, 50, none, {7, 7, 7, 7}},
      // View 0 shows a black key (60 / 255 -> 0 ...), then slot 14 writes alpha only:
      // (255 - 254) x 255 / 255 = 1.
      {"view 0, then the blur mask", {60, 150, 120}, 0, 203, 216, 203, 50,
       [](HalationParamsEx& p) { p.show_blur_mask = 1; }, {0, 0, 0, 1}},
      {"blur mask 2 is none", {60, 150, 120}, 10, 203, 216, 203, 50,
       [](HalationParamsEx& p) { p.show_blur_mask = 2; }, {7, 7, 7, 7}},
  };
  CThreadPool pool;
  pool.Create(3);
  // One effect for all rows: curve A and the kernel are rebuilt between them.
  HalationEffect effect(&pool);
  ASSERT_EQ(effect.SetImageSize(10, 6), VX_OK);
  Image src(10, 6), dst(10, 6);
  for (const auto& row : rows) {
    const uint8_t colour[4] = {row.src[0], row.src[1], row.src[2], 255};
    Paint(src, colour);
    dst.Fill(7);
    HalationParamsEx p = FullDefaults(src, dst);
    p.debug_view = row.view;
    p.highlight_threshold = row.key_t, p.midtone_threshold = row.mid_t;
    p.show_threshold = row.show_t, p.curve_strength = row.strength;
    p.blur_radius = row.src[2] % 7;  // flat frames blur to themselves
    row.edit(p);
    ASSERT_EQ(effect.ProcessFull(&p), VX_OK) << row.what;
    for (int32_t y = 0; y < 6; ++y)
      for (int32_t x = 0; x < 10; ++x) {
        const uint8_t* got = dst.Pixel(x, y);
        ASSERT_EQ(0, std::memcmp(got, row.want, 4)) << row.what << " at " << x << "," << y << ": "
                                                    << int(got[0]) << "," << int(got[1]) << ","
                                                    << int(got[2]) << "," << int(got[3]);
      }
  }
  // The basic call forces gain 1, the tone curves, no blur mask, lighten and view 9, whatever
  // the last full call held.
  HalationParamsEx p = FullDefaults(src, dst);
  p.highlight_threshold = p.show_threshold = 131, p.midtone_threshold = 255;
  HalationParamsEx odd = p;
  odd.keyer_gain = 0, odd.tone_mapping = 0, odd.show_blur_mask = 1, odd.blend_mode = 2;
  odd.debug_view = 3;
  ASSERT_EQ(effect.ProcessFull(&odd), VX_OK);
  const HalationParams basic = BasicOf(p);
  ASSERT_EQ(effect.Process(&basic), VX_OK);
  EXPECT_EQ(0, std::memcmp(dst.Pixel(4, 3), "\x3c\xae\xc7\xff", 4)) << "lighten: 60, 174, 199";
}

// A portrait frame's square m_split_output (aligned width on both sides) ends above the
// frame's last rows: views 1 to 4 leave those rows as they were.
TEST(HalationViews, PortraitFramesKeepRowsBelowTheSquare) {
  CThreadPool pool;
  pool.Create(2);
  HalationEffect effect(&pool);
  ASSERT_EQ(effect.SetImageSize(6, 11), VX_OK);  // aligned width 8: rows 0..7 shown
  Image src(6, 11), dst(6, 11);
  const uint8_t colour[4] = {60, 150, 120, 255};
  Paint(src, colour);
  for (int32_t view = 1; view <= 4; ++view) {
    dst.Fill(7);
    HalationParamsEx p = FullDefaults(src, dst);
    p.highlight_threshold = 131;
    p.debug_view = view;
    ASSERT_EQ(effect.ProcessFull(&p), VX_OK);
    for (int32_t y = 0; y < 11; ++y)
      EXPECT_EQ(dst.Pixel(3, y)[3], y < 8 ? 255 : 7) << "view " << view << " row " << y;
  }
}

// The destination holds exactly the rectangle: a rectangle renders the crop of the frame.
TEST(HalationViews, RectangleIsTheCropOfTheFrame) {
  CThreadPool pool;
  pool.Create(3);
  HalationEffect effect(&pool);
  ASSERT_EQ(effect.SetImageSize(33, 17), VX_OK);
  Image src(33, 17), whole(33, 17), part(21, 8, PIXEL_BGRA32, 12);
  src.FillRandom(21);
  for (int32_t view : {0, 5, 7, 9}) {
    HalationParamsEx p = FullDefaults(src, whole);
    p.highlight_threshold = 90, p.show_threshold = 150, p.blur_radius = 3, p.debug_view = view;
    ASSERT_EQ(effect.ProcessFull(&p), VX_OK);
    p.dst = part.Desc();
    p.process_rect = {5, 3, 26, 11};
    ASSERT_EQ(effect.ProcessFull(&p), VX_OK);
    for (int32_t y = 0; y < 8; ++y)
      ASSERT_EQ(0, std::memcmp(part.Pixel(0, y), whole.Pixel(5, 3 + y), 21 * 4))
          << view << " row " << y;
  }
}

// ---- Caches, reset and failures -----------------------------------------------------------

TEST(HalationState, CachesRebuildOnlyOnChange) {
  CThreadPool pool;
  pool.Create(2);
  HalationEffect effect(&pool);
  ASSERT_EQ(effect.SetImageSize(16, 8), VX_OK);  // curve A at 50, the kernel at 36
  Image src(16, 8), dst(16, 8);
  src.FillRandom(3);
  HalationParamsEx p = FullDefaults(src, dst);
  const struct {
    int32_t radius;
    uint32_t strength;
    int32_t blend_mode;
    int32_t kernels, curves;  // builds so far
  } steps[] = {{36, 50, 4, 1, 1}, {36, 50, 4, 1, 1}, {5, 50, 4, 2, 1}, {5, 80, 4, 2, 2},
               {9, 20, 23, 2, 2}, {5, 80, 4, 2, 2},  {36, 50, 4, 3, 3}};
  for (const auto& s : steps) {
    p.blur_radius = s.radius, p.curve_strength = s.strength, p.blend_mode = s.blend_mode;
    EXPECT_EQ(effect.ProcessFull(&p), s.blend_mode == 4 ? VX_OK : VX_E_INVALIDARG);
    EXPECT_EQ(effect.KernelBuilds(), s.kernels) << s.radius << " " << s.strength;
    EXPECT_EQ(effect.CurveBuilds(), s.curves) << s.radius << " " << s.strength;
  }
  // Reset keeps the kernel and the curves; the next size builds for the defaults.
  p.blur_radius = 7, p.curve_strength = 30;
  ASSERT_EQ(effect.ProcessFull(&p), VX_OK);
  ASSERT_EQ(effect.Reset(), VX_OK);
  EXPECT_EQ(effect.KernelBuilds(), 4);
  EXPECT_EQ(effect.ProcessFull(&p), VX_E_INVALIDARG) << "no size after a reset";
  ASSERT_EQ(effect.SetImageSize(16, 8), VX_OK);
  EXPECT_EQ(effect.KernelBuilds(), 5);
  EXPECT_EQ(effect.CurveBuilds(), 5);
}

TEST(HalationState, FailuresNameTheStageAndTheBuffer) {
  CThreadPool pool;
  pool.Create(2);
  for (int32_t level : {SIMD_SSE3, SIMD_SSE41}) {
    HalationEffect effect(&pool);
    const CpuInfo cpu{2, level, 0};
    effect.SetCpuInfo(&cpu);
    // One pixel wide: no half size, the downsampling fails after view 0 was shown.
    ASSERT_EQ(effect.SetImageSize(1, 9), VX_OK);
    Image src(1, 9), dst(1, 9);
    const uint8_t black[4] = {0, 0, 0, 255};
    Paint(src, black);
    dst.Fill(7);
    HalationParamsEx p = FullDefaults(src, dst);
    p.debug_view = 0;
    test::LogCapture log;
    EXPECT_EQ(effect.ProcessFull(&p), VX_E_FAIL);
    const char* kernel = level >= SIMD_SSE41
                             ? "[VNTX] [Vantyx](resize buffer SSE) - Return Code: 80004005\n"
                             : "[VNTX] [Vantyx](resize buffer) - Return Code: 80004005\n";
    EXPECT_EQ(log.Lines(),
              (std::vector<std::string>{
                  kernel, "[VNTX] [Vantyx](downsampling hlr) - Return Code: 80004005\n",
                  "[VNTX] [Vantyx](total process) - Return Code: 80004005\n"}));
    EXPECT_EQ(dst.Pixel(0, 0)[3], 255) << "view 0 was shown";
  }
  // The square buffer: 70000 x 70000 pixels do not fit in 32 bits.
  HalationEffect effect(&pool);
  test::LogCapture log;
  EXPECT_EQ(effect.SetImageSize(70000, 2), VX_E_INVALIDARG);
  EXPECT_TRUE(
      log.Contains("CreateSmartBufferData(m_split_output, m_aligned_img_w, m_aligned_img_w, "
                   "PIXEL_BGRA32) Error! - Return Code: 80070057"));
}

// ---- Plain against fast; levels and workers ---------------------------------------------------

TEST(HalationForms, FastMatchesPlain) {
  using test::Case;
  // Kernels of radius 0 to 36, smaller on long lines (the plain form is slow there).
  auto kernel = [](Case& c) {
    const int32_t longest = std::max(c.View(0).width, c.View(0).height);
    return BuildGaussianKernel(longest > 200 ? c.Int(0, 4) : c.Pick({0, 1, 2, 5, 12, 36}));
  };
  auto blur = [kernel](bool rows) {
    return [kernel, rows](Case& c) {
      const GaussianKernel k = kernel(c);
      auto fn = rows ? c.Form(gaussian_blur_rows_plain, gaussian_blur_rows_sse41)
                     : c.Form(gaussian_blur_cols_plain, gaussian_blur_cols_sse41);
      return fn(c.View(0), k.weights.data(), k.radius, c.strip);
    };
  };
  const std::vector<uint32_t> bgra{PIXEL_BGRA32}, either{PIXEL_BGRA32, PIXEL_GRAY8};
  test::ExpectFormsAgree({
      test::KernelRow("gaussian_blur_rows", {bgra}, blur(true)).DarkImages(),
      test::KernelRow("gaussian_blur_cols", {bgra}, blur(false)).Columns().DarkImages(),
      test::KernelRow("split_channels", {bgra, bgra, bgra, either},
                      [](Case& c) {
                        return c.Form(split_channels_plain, split_channels_sse41)(
                            c.View(0), c.View(1), c.View(2), c.View(3), c.strip);
                      }),
      test::KernelRow("merge_channels", {bgra, bgra, either},
                      [](Case& c) {  // the midtone's combine: R from the destination itself
                        return c.Form(merge_channels_plain, merge_channels_sse41)(
                            c.View(0), c.View(1), c.View(2), c.View(2), c.strip);
                      }),
      test::KernelRow(
          "key_luma", {bgra, either},
          [](Case& c) {
            const int32_t t = c.Int(0, 255);
            const float gain = c.Pick({0, 1, 2}) == 2 ? c.Pick({-1, 1}) * 3e38f : c.Float(-2, 4);
            return c.Form(halation::key_luma_plain, halation::key_luma_sse41)(c.View(0), c.View(1),
                                                                              t, gain, c.strip);
          })
          .DarkImages(),
      test::KernelRow("extract_midtone", {bgra, bgra},
                      [](Case& c) {
                        return c.Form(halation::extract_midtone_plain,
                                      halation::extract_midtone_sse41)(c.View(0), c.View(1),
                                                                       c.Int(0, 255), c.strip);
                      })
          .DarkImages(),
      test::KernelRow("compare_masks", {bgra, bgra, bgra},
                      [](Case& c) {
                        return c.Form(halation::compare_masks_plain, halation::compare_masks_sse41)(
                            c.View(0), c.View(1), c.View(2), c.strip);
                      }),
      test::KernelRow(
          "decide_visible", {bgra, bgra, either},
          [](Case& c) {
            return c.Form(halation::decide_visible_plain, halation::decide_visible_sse41)(
                c.View(0), c.View(1), c.View(2), c.Pick({0, c.Int(40, 215)}), c.strip);
          }),
  });
}

TEST(HalationForms, LevelsAndWorkersAgree) {
  test::ExpectEffectRunsAgree({
      test::EffectRow::Of<HalationEffect>("basic",
                                          [](HalationEffect& e, test::Frame& f) {
                                            HalationParams p{};
                                            f.Place(p);
                                            p.opacity = uint32_t(f.Int(0, 255));
                                            p.highlight_threshold = uint32_t(f.Int(0, 255));
                                            p.blur_radius = f.Pick({0, 1, 9, 36, f.Int(0, 60)});
                                            p.midtone_threshold = uint32_t(f.Int(0, 255));
                                            p.curve_strength = uint32_t(f.Int(20, 100));
                                            p.show_threshold = uint32_t(f.Int(0, 255));
                                            return e.Process(&p);
                                          }),
      test::EffectRow::Of<HalationEffect>("full",
                                          [](HalationEffect& e, test::Frame& f) {
                                            HalationParamsEx p{};
                                            f.Place(p);
                                            p.opacity = uint32_t(f.Int(0, 255));
                                            p.highlight_threshold = uint32_t(f.Int(0, 255));
                                            p.blur_radius = f.Int(0, 40);
                                            p.midtone_threshold = uint32_t(f.Int(0, 255));
                                            p.curve_strength = uint32_t(f.Int(20, 100));
                                            p.show_threshold = uint32_t(f.Int(0, 255));
                                            p.keyer_gain = f.Float(-2, 3);
                                            p.tone_mapping = uint8_t(f.Int(0, 1));
                                            p.show_blur_mask = uint8_t(f.Pick({0, 0, 0, 1}));
                                            p.blend_mode = f.Int(0, 22);
                                            p.debug_view = f.Int(-1, 10);
                                            return e.ProcessFull(&p);
                                          }),
  });
}

}  // namespace
}  // namespace Vantyx
