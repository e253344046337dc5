// Infrared: the band set-up and every kernel on pixels worked by hand, the record checks and
// their order, each view on flat frames, the presets of the basic call, stage failures in the
// log, and the same bytes from every form, level and worker count.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include "effects/infrared/infrared_effect.h"
#include "effects/infrared/infrared_kernels.h"
#include "harness.h"

namespace Vantyx {
namespace {

using test::Image;
using namespace infrared;  // NOLINT(build/namespaces)
using Edit = std::function<void(InfraredParamsEx&)>;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

InfraredParamsEx FullRecord(Image& src, Image& dst) {
  InfraredParamsEx p{};
  p.src = src.Desc(), p.dst = dst.Desc(), p.opacity = 255;
  p.process_rect = {0, 0, uint32_t(dst.width), uint32_t(dst.height)};
  p.hue_range = 0.3f, p.hue_start = 0.12f, p.hue_shift = 0.9f, p.saturation_threshold = 0.2f;
  p.hue_tolerance = 20, p.flag = 1, p.blend_mode = 22, p.debug_view = 9;
  return p;
}

InfraredParams BasicOf(const InfraredParamsEx& f) {
  return {f.src,      f.mask,      f.dst,           f.opacity, f.hue_shift,
          f.saturation, f.luminance, f.hue_tolerance, f.preset,  f.process_rect};
}

void Paint(Image& img, const uint8_t (&rgb)[3], uint8_t alpha) {
  const uint8_t bgra[4] = {rgb[2], rgb[1], rgb[0], alpha};
  for (int32_t y = 0; y < img.height; ++y)
    for (int32_t x = 0; x < img.width; ++x) std::memcpy(img.Pixel(x, y), bgra, 4);
}

// ---- The kernels by hand ----------------------------------------------------------------------

// Limits trunc(fmod(v, 1) x 36000) as floats; limit colours by HsvToRgb at full saturation and
// value (43.2 degrees: t = 32640 - (1680 x 32640 + 3000) / 6000 = 23501, (23501 + 64) >> 7 =
// 184); K = tolerance x 585225 / 360 + 1.
TEST(InfraredKernels, BandSetUpByHand) {
  const struct {
    float start, range;
    uint32_t tolerance;
    bool whole;
    int32_t h1, h2, p1[3], p2[3], k;
  } rows[] = {
      {0.12f, 0.3f, 20, false, 4320, 15120, {255, 184, 0}, {0, 255, 133}, 32513},
      {0.9f, 0.2f, 360, false, 32400, 3600, {255, 0, 153}, {255, 153, 0}, 585226},  // wraps
      {0.0f, 0.9995f, 0, true, 0, 35982, {255, 0, 0}, {255, 0, 1}, 1},  // |0.9995 - 1| < 0.001
      {0.0f, 0.998f, 20, false, 0, 35928, {255, 0, 0}, {255, 0, 3}, 32513},
  };
  for (const auto& row : rows) {
    const HueBand b = MakeHueBand(row.start, row.range, row.tolerance);
    EXPECT_EQ((std::vector<int32_t>{b.whole, b.h1, b.h2, b.tolerance, b.p1[0], b.p1[1], b.p1[2],
                                    b.p2[0], b.p2[1], b.p2[2]}),
              (std::vector<int32_t>{row.whole, row.h1, row.h2, row.k, row.p1[0], row.p1[1],
                                    row.p1[2], row.p2[0], row.p2[1], row.p2[2]}))
        << row.start << " + " << row.range;
  }
  const int32_t longest[] = {1, 349, 350, 2239, 2240, 4000}, radius[] = {1, 1, 6, 6, 7, 12};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(BlurRadius(longest[i]), radius[i]) << longest[i];
}

// One row per rule, on 5 x 1 images of one pixel (four through the fast loop, one through its
// tail), in both forms. The result starts as a copy of the first image; in-place kernels work
// on it. Colours are R, G, B; alpha 9 (77 in the second image).
TEST(InfraredKernels, PixelsByHand) {
  enum Kernel { kBand, kRemove, kBackground, kAdjust, kCombine };
  const struct {
    const char* what;
    Kernel kernel;
    float x, y, z;  // the band (start, range, tolerance), threshold or shift
    uint8_t rgb[3], other[3];
    int32_t want[4];  // R, G, B, A of the result
  } rows[] = {
      // Green (hue 12000) lies in 4320..15120 and is copied.
      {"inside", kBand, 0.12f, 0.3f, 20, {0, 255, 0}, {}, {0, 255, 0, 9}},
      // Blue to (255, 184, 0): rbar 127.5, (639.5 x 65025 + 639.5 x 65025) / 256 + 4 x 33856 =
      // 460285.9; to (0, 255, 133): 304693.9, the nearer. q = 304693 / 585226 = 0.52064,
      // S' = trunc(0.47936 x 32640) = 15646: p = (16994 x 32640 + 16320) / 32640 = 16994 -> 133.
      {"outside, tolerance 360", kBand, 0.12f, 0.3f, 360, {0, 0, 255}, {}, {133, 133, 255, 9}},
      // (40, 60, 200): hue 23251, S 26112, V 25600; d = 168523.8, q = 0.28796: S' = 18592.
      {"partly kept", kBand, 0.12f, 0.3f, 360, {40, 60, 200}, {}, {86, 100, 200, 9}},
      {"greyed", kBand, 0.12f, 0.3f, 20, {40, 60, 200}, {}, {200, 200, 200, 9}},  // q = 5.18
      // 32400..3600 wraps: red (hue 0) is inside; K = 1 greys green at its value.
      {"wrapping band, inside", kBand, 0.9f, 0.2f, 0, {255, 0, 0}, {}, {255, 0, 0, 9}},
      {"tolerance 0", kBand, 0.9f, 0.2f, 0, {0, 255, 0}, {}, {255, 255, 255, 9}},
      // h1 = h2 = 9000: hue 9360 is within 360; 9361 and 8639 are not.
      {"one hue, +360", kBand, 0.25f, 0.0f, 0, {81, 184, 0}, {}, {81, 184, 0, 9}},
      {"one hue, +361", kBand, 0.25f, 0.0f, 0, {11, 25, 0}, {}, {25, 25, 25, 9}},
      {"one hue, -361", kBand, 0.25f, 0.0f, 0, {65, 116, 0}, {}, {116, 116, 116, 9}},
      {"whole circle copies", kBand, 0.2f, 1.0f, 0, {40, 60, 200}, {}, {40, 60, 200, 9}},
      // S of (255, 1, 1) = 32640 - (127 + 32640) / 255 = 32512; of (127, 127, 254) 16320.
      {"threshold 0 keeps", kRemove, 0.0f, 0, 0, {255, 1, 1}, {}, {255, 1, 1, 9}},
      {"threshold 1 removes", kRemove, 1.0f, 0, 0, {255, 1, 1}, {}, {0, 0, 0, 9}},
      {"16320 > 16320 is false", kRemove, 0.5f, 0, 0, {127, 127, 254}, {}, {127, 127, 254, 9}},
      {"16323.3 > 16320", kRemove, 0.5001f, 0, 0, {127, 127, 254}, {}, {0, 0, 0, 9}},
      {"grey removed", kRemove, 0.0001f, 0, 0, {90, 90, 90}, {}, {0, 0, 0, 9}},
      {"lit foreground", kBackground, 0, 0, 0, {0, 0, 1}, {10, 20, 30}, {0, 0, 0, 77}},
      {"black foreground", kBackground, 0, 0, 0, {0, 0, 0}, {10, 20, 30}, {10, 20, 30, 77}},
      // Green: H' = 12000 / 4 + 32400 = 35400, sector 5: q = (32640 - 29376) x 32640 / 32640
      // = 3264 -> 26.
      {"hue shift 0.9", kAdjust, 0.9f, 0, 0, {0, 255, 0}, {}, {255, 0, 26, 9}},
      {"luminance -0.5", kAdjust, 0.9f, 0, -0.5f, {0, 255, 0}, {}, {128, 0, 13, 9}},
      {"luminance +1 clamps", kAdjust, 0, 0, 1, {100, 0, 0}, {}, {255, 0, 0, 9}},
      {"saturation -1 greys", kAdjust, 0.25f, -1, 0, {0, 0, 200}, {}, {200, 200, 200, 9}},
      // Grey: hue -1 gives trunc(-0.25 + 18000) = 17999; S' = 16320, V' = 16384 + 6528.
      {"grey gains colour", kAdjust, 0.5f, 0.5f, 0.2f, {128, 128, 128}, {}, {90, 179, 179, 9}},
      {"black stays black", kAdjust, 0.9f, 1, 1, {0, 0, 0}, {}, {0, 0, 0, 9}},
      {"sums saturate, alpha too", kCombine, 0, 0, 0, {200, 20, 0}, {100, 30, 0}, {255, 50, 0, 86}},
  };
  for (bool fast : {false, true}) {
    if (fast && !test::HasSse41()) continue;
    for (const auto& row : rows) {
      Image a(5, 1), b(5, 1);
      Paint(a, row.rgb, 9), Paint(b, row.other, 77);
      Image d = a;
      const ImageView va = a.View(), vb = b.View(), vd = d.View();
      const ProcessRect all{0, 0, 5, 1};
      int32_t rc = VX_E_FAIL;
      switch (row.kernel) {
        case kBand: {
          const HueBand h = MakeHueBand(row.x, row.y, uint32_t(row.z));
          rc = (fast ? extract_hue_band_sse41 : extract_hue_band_plain)(va, vd, h, all);
          break;
        }
        case kRemove: rc = (fast ? remove_low_saturation_sse41 : remove_low_saturation_plain)(vd, row.x, all); break;
        case kBackground: rc = (fast ? extract_background_sse41 : extract_background_plain)(va, vb, vd, all); break;
        case kAdjust: rc = (fast ? adjust_hsv_sse41 : adjust_hsv_plain)(vd, MakeHsvShift(row.x, row.y, row.z), all); break;
        case kCombine: rc = (fast ? combine_layers_sse41 : combine_layers_plain)(va, vb, vd, all); break;
      }
      ASSERT_EQ(rc, VX_OK) << row.what;
      for (int32_t x = 0; x < 5; ++x) {
        const uint8_t* p = d.Pixel(x, 0);
        EXPECT_EQ((std::vector<int32_t>{p[2], p[1], p[0], p[3]}),
                  (std::vector<int32_t>(row.want, row.want + 4)))
            << row.what << (fast ? ", fast" : ", plain") << ", pixel " << x;
      }
    }
  }
}

// ---- The record checks ------------------------------------------------------------------------

// Every field check of both records, and its place after the frame's; a refused record writes
// nothing.
TEST(InfraredChecks, CodesOfEveryRule) {
  const struct {
    const char* rule;
    bool basic_too;
    int32_t want;
    Edit edit;
  } rows[] = {
      {"good record", true, VX_OK, [](InfraredParamsEx&) {}},
      {"format before fields", true, VX_E_NOTIMPL,
       [](InfraredParamsEx& p) { p.src.format = PIXEL_FLOAT96, p.hue_tolerance = 361; }},
      {"opacity 256", true, VX_E_INVALIDARG, [](InfraredParamsEx& p) { p.opacity = 256; }},
      {"tolerance 360", true, VX_OK, [](InfraredParamsEx& p) { p.hue_tolerance = 360; }},
      {"tolerance 361", true, VX_E_INVALIDARG, [](InfraredParamsEx& p) { p.hue_tolerance = 361; }},
      {"ends of the ranges", true, VX_OK,
       [](InfraredParamsEx& p) { p.hue_shift = 0, p.saturation = -1, p.luminance = 1; }},
      {"hue shift 1", true, VX_OK, [](InfraredParamsEx& p) { p.hue_shift = 1; }},
      {"hue shift above 1", true, VX_E_INVALIDARG, [](InfraredParamsEx& p) { p.hue_shift = 1.0001f; }},
      {"hue shift NaN", true, VX_E_INVALIDARG, [](InfraredParamsEx& p) { p.hue_shift = kNaN; }},
      {"saturation below -1", true, VX_E_INVALIDARG, [](InfraredParamsEx& p) { p.saturation = -1.0001f; }},
      {"luminance NaN", true, VX_E_INVALIDARG, [](InfraredParamsEx& p) { p.luminance = kNaN; }},
      {"any preset", true, VX_OK, [](InfraredParamsEx& p) { p.preset = 77; }},
      {"hue range 1", false, VX_OK, [](InfraredParamsEx& p) { p.hue_range = 1; }},
      {"hue range above 1", false, VX_E_INVALIDARG, [](InfraredParamsEx& p) { p.hue_range = 1.0001f; }},
      {"hue start NaN", false, VX_E_INVALIDARG, [](InfraredParamsEx& p) { p.hue_start = kNaN; }},
      {"negative threshold", false, VX_E_INVALIDARG,
       [](InfraredParamsEx& p) { p.saturation_threshold = -0.0001f; }},
      // Refused before the display of view 11 (slot 0) could write.
      {"blend mode 23", false, VX_E_INVALIDARG,
       [](InfraredParamsEx& p) { p.blend_mode = 23, p.debug_view = 11; }},
      {"blend mode -1", false, VX_E_INVALIDARG, [](InfraredParamsEx& p) { p.blend_mode = -1; }},
      {"flag and show_original unchecked", false, VX_OK,
       [](InfraredParamsEx& p) { p.flag = ~0u, p.show_original = 2; }},
  };
  CThreadPool pool;
  pool.Create(2);
  InfraredEffect effect(&pool);
  Image src(24, 16), dst(24, 16);
  src.FillRandom(5);
  ASSERT_EQ(effect.SetImageSize(24, 16), VX_OK);
  EXPECT_EQ(effect.Process(nullptr), VX_E_POINTER);
  EXPECT_EQ(effect.ProcessFull(nullptr), VX_E_POINTER);
  for (const auto& row : rows) {
    InfraredParamsEx p = FullRecord(src, dst);
    row.edit(p);
    dst.Fill(7);
    const Image before = dst;
    EXPECT_EQ(effect.ProcessFull(&p), row.want) << "full record: " << row.rule;
    EXPECT_EQ(row.want == VX_OK, !(dst == before)) << "full record: " << row.rule;
    const InfraredParams b = BasicOf(p);
    if (row.basic_too) {
      EXPECT_EQ(effect.Process(&b), row.want) << "basic record: " << row.rule;
    }
  }
}

// ---- Views, worked by hand ----------------------------------------------------------------

// Flat frames stay flat through every stage, so a view shows one colour: the intermediate l
// composited with normal (slot 0) over the source b: (254 l + b) / 255. Colours are R, G, B;
// the destination starts at 7.
TEST(InfraredViews, EveryViewOnFlatFrames) {
  const Edit none = [](InfraredParamsEx&) {};
  const struct {
    const char* what;
    uint8_t rgb[3];
    int32_t view;
    Edit edit;
    uint8_t want[4];  // R, G, B, A
  } rows[] = {
      // The kernel rows' values: (40, 60, 200) greyed to 200: (254 x 200 + 60) / 255 = 199.
      {"extracted hue", {40, 60, 200}, 0, none, {199, 199, 200, 255}},
      {"whole band", {40, 60, 200}, 0, [](InfraredParamsEx& p) { p.hue_range = 1; }, {40, 60, 200, 255}},
      // Tolerance 360 keeps (86, 100, 200), S 18605: kept at threshold 0.5 (16320), removed at
      // 0.6 (19584), and the background is then the source.
      {"saturated kept", {40, 60, 200}, 11,
       [](InfraredParamsEx& p) { p.hue_tolerance = 360, p.saturation_threshold = 0.5f; }, {85, 99, 200, 255}},
      {"saturated removed", {40, 60, 200}, 11,
       [](InfraredParamsEx& p) { p.hue_tolerance = 360, p.saturation_threshold = 0.6f; }, {0, 0, 0, 255}},
      {"background", {40, 60, 200}, 10,
       [](InfraredParamsEx& p) { p.hue_tolerance = 360, p.saturation_threshold = 0.6f; }, {40, 60, 200, 255}},
      {"no background under the band", {40, 60, 200}, 10,
       [](InfraredParamsEx& p) { p.hue_tolerance = 360, p.saturation_threshold = 0.5f; }, {0, 0, 0, 255}},
      // Preset 1 tone-maps: 75 -> 88, 160 -> 180, 255 -> 255 (the curve's points).
      {"tone-mapped", {75, 160, 255}, 12,
       [](InfraredParamsEx& p) { p.preset = 1, p.saturation_threshold = 1; }, {87, 179, 255, 255}},
      {"not tone-mapped", {75, 160, 255}, 12,
       [](InfraredParamsEx& p) { p.preset = 2, p.saturation_threshold = 1; }, {75, 160, 255, 255}},
      // Green shifted to (255, 0, 26), then (128, 0, 13) at luminance -0.5.
      {"adjusted", {0, 255, 0}, 5, none, {254, 1, 25, 255}},
      {"blurred", {0, 255, 0}, 1, [](InfraredParamsEx& p) { p.luminance = -0.5f; }, {127, 1, 12, 255}},
      {"result", {0, 255, 0}, 9, none, {254, 1, 25, 255}},
      // Slot 14 writes alpha only: (255 - 254) x 255 / 255.
      {"original input", {0, 255, 0}, 9, [](InfraredParamsEx& p) { p.show_original = 1; }, {7, 7, 7, 1}},
      {"view without a display", {0, 255, 0}, 7, none, {7, 7, 7, 7}},
  };
  CThreadPool pool;
  pool.Create(3);
  InfraredEffect effect(&pool);
  ASSERT_EQ(effect.SetImageSize(10, 6), VX_OK);
  Image src(10, 6), dst(10, 6), want(10, 6);
  for (const auto& row : rows) {
    Paint(src, row.rgb, 255), dst.Fill(7);
    const uint8_t rgb[3] = {row.want[0], row.want[1], row.want[2]};
    Paint(want, rgb, row.want[3]);
    InfraredParamsEx p = FullRecord(src, dst);
    p.blend_mode = 0, p.debug_view = row.view;
    row.edit(p);
    ASSERT_EQ(effect.ProcessFull(&p), VX_OK) << row.what;
    const uint8_t* got = dst.Pixel(0, 0);
    EXPECT_TRUE(dst == want) << row.what << ": " << int(got[2]) << "," << int(got[1]) << ","
                             << int(got[0]) << "," << int(got[3]);
  }
}

// ---- Presets, reset and failures ----------------------------------------------------------

// The basic call loads the band of presets 0 and 1 and keeps it for any other preset: each
// basic call renders what a full call with that band renders, in sequence on one effect.
TEST(InfraredState, BasicCallLoadsPresetsZeroAndOne) {
  CThreadPool pool;
  pool.Create(2);
  InfraredEffect effect(&pool);
  ASSERT_EQ(effect.SetImageSize(40, 30), VX_OK);
  Image src(40, 30), dst(40, 30), want(40, 30);
  src.FillRandom(11);
  const struct {
    uint32_t preset;
    float range, start, threshold;
    bool basic;  // false: only the full call runs, and its band must stay for the next step
  } steps[] = {
      {2, 0.3f, 0.12f, 0.2f, true},  // a new effect's band
      {0, 0.35f, 0.11388889f, 0.1f, true},
      {1, 0.38611111f, 0.15555556f, 0.1f, true},
      {2, 0.38611111f, 0.15555556f, 0.1f, true},
      {9, 0.6f, 0.05f, 0.3f, false},
      {7, 0.6f, 0.05f, 0.3f, true},
  };
  auto full = [&](const auto& s, Image& out) {
    InfraredParamsEx p = FullRecord(src, out);
    p.preset = s.preset, p.hue_range = s.range, p.hue_start = s.start;
    p.saturation_threshold = s.threshold, p.hue_shift = 0.7f, p.luminance = 0.1f;
    return p;
  };
  for (const auto& s : steps) {
    InfraredParamsEx p = full(s, want);
    ASSERT_EQ(effect.ProcessFull(&p), VX_OK) << s.preset;
    if (!s.basic) continue;
    const InfraredParams b = BasicOf(full(s, dst));
    ASSERT_EQ(effect.Process(&b), VX_OK) << s.preset;
    EXPECT_TRUE(dst == want) << "preset " << s.preset << ", band from " << s.start;
  }
  // Reset brings the first band back; the size must be given again.
  ASSERT_EQ(effect.Reset(), VX_OK);
  const InfraredParams b = BasicOf(full(steps[0], dst));
  EXPECT_EQ(effect.Process(&b), VX_E_INVALIDARG);
  ASSERT_EQ(effect.SetImageSize(40, 30), VX_OK);
  ASSERT_EQ(effect.Process(&b), VX_OK);
  InfraredParamsEx p = full(steps[0], want);
  ASSERT_EQ(effect.ProcessFull(&p), VX_OK);
  EXPECT_TRUE(dst == want);
}

TEST(InfraredState, FailuresNameTheStageAndTheBuffer) {
  CThreadPool pool;
  pool.Create(2);
  InfraredEffect effect(&pool);
  ASSERT_EQ(effect.SetImageSize(1, 9), VX_OK);  // one pixel wide: no half size
  Image src(1, 9), dst(1, 9);
  InfraredParamsEx p = FullRecord(src, dst);
  test::LogCapture log;
  EXPECT_EQ(effect.ProcessFull(&p), VX_E_FAIL);
  EXPECT_TRUE(log.Contains("[Vantyx](downsampling hlr) - Return Code: 80004005"));
  EXPECT_TRUE(log.Contains("[Vantyx](total process) - Return Code: 80004005"));
  EXPECT_EQ(effect.SetImageSize(40000, 40000), VX_E_INVALIDARG);
  EXPECT_TRUE(log.Contains("CreateSmartBufferData(m_adjusted_src, m_aligned_img_w, "
                           "m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: 80070057"));
}

// ---- Plain against fast; levels and workers ---------------------------------------------------

TEST(InfraredForms, FastMatchesPlain) {
  using test::Case;
  // Bands of every kind: any, one hue, wrapping, the whole circle.
  auto band = [](Case& c) {
    const int32_t kind = c.Int(0, 3);
    const float start = kind == 2 ? c.Float(0.7f, 1) : c.Float(0, 1);
    const float range = kind == 1 ? 0.0f : kind == 3 ? 1.0f : c.Float(0, 1);
    return MakeHueBand(start, range, uint32_t(c.Pick({0, 20, 360, c.Int(0, 360)})));
  };
  const std::vector<uint32_t> bgra{PIXEL_BGRA32}, either{PIXEL_BGRA32, PIXEL_GRAY8};
  test::ExpectFormsAgree({
      test::KernelRow("extract_hue_band", {bgra, either}, [band](Case& c) {
        const HueBand b = band(c);
        return c.Form(extract_hue_band_plain, extract_hue_band_sse41)(c.View(0), c.View(1), b, c.strip);
      }),
      test::KernelRow("remove_low_saturation", {either}, [](Case& c) {
        const float t = c.Pick({0, 1, 2}) == 2 ? c.Float(0, 1) : float(c.Int(0, 1));
        return c.Form(remove_low_saturation_plain, remove_low_saturation_sse41)(c.View(0), t, c.strip);
      }),
      test::KernelRow("extract_background", {bgra, bgra, either}, [](Case& c) {
        return c.Form(extract_background_plain, extract_background_sse41)(c.View(0), c.View(1),
                                                                          c.View(2), c.strip);
      }).DarkImages(),
      test::KernelRow("adjust_hsv", {either}, [](Case& c) {
        const float hue = c.Pick({0, 1, 2}) == 0 ? 1.0f : c.Float(0, 1);
        const HsvShift s = MakeHsvShift(hue, c.Float(-1, 1), c.Float(-1, 1));
        return c.Form(adjust_hsv_plain, adjust_hsv_sse41)(c.View(0), s, c.strip);
      }).DarkImages(),
      test::KernelRow("combine_layers", {bgra, bgra, either}, [](Case& c) {
        return c.Form(combine_layers_plain, combine_layers_sse41)(c.View(0), c.View(1), c.View(2),
                                                                  c.strip);
      }),
  });
}

TEST(InfraredForms, LevelsAndWorkersAgree) {
  using test::Frame;
  test::ExpectEffectRunsAgree({
      test::EffectRow::Of<InfraredEffect>("basic", [](InfraredEffect& e, Frame& f) {
        InfraredParams p{};
        f.Place(p);
        p.opacity = uint32_t(f.Int(0, 255)), p.hue_shift = f.Float(0, 1);
        p.saturation = f.Float(-1, 1), p.luminance = f.Float(-1, 1);
        p.hue_tolerance = uint32_t(f.Int(0, 360)), p.preset = uint32_t(f.Int(0, 2));
        return e.Process(&p);
      }),
      test::EffectRow::Of<InfraredEffect>("full", [](InfraredEffect& e, Frame& f) {
        InfraredParamsEx p{};
        f.Place(p);
        p.opacity = uint32_t(f.Int(0, 255)), p.show_original = uint32_t(f.Pick({0, 0, 0, 1}));
        p.hue_range = f.Pick({0, 1}) ? f.Float(0, 1) : 1.0f, p.hue_start = f.Float(0, 1);
        p.hue_shift = f.Float(0, 1), p.saturation = f.Float(-1, 1), p.luminance = f.Float(-1, 1);
        p.saturation_threshold = f.Float(0, 1), p.hue_tolerance = uint32_t(f.Int(0, 360));
        p.preset = uint32_t(f.Int(0, 2)), p.blend_mode = f.Int(0, 22);
        p.debug_view = f.Pick({0, 1, 5, 9, 10, 11, 12, 3});
        return e.ProcessFull(&p);
      }),
  });
}

}  // namespace
}  // namespace Vantyx
