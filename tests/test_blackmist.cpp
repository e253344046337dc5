// BlackMist end to end: the record checks and their order, hand-computed frames, rectangles,
// and the same bytes at every processor level and worker count.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>

#include "effects/blackmist/blackmist_effect.h"
#include "harness.h"

namespace Vantyx {
namespace {

using test::Image;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// The full record that reproduces the basic call's defaults for a w x h frame.
BlackMistFullParam FullDefaults(Image& src, Image& dst, int32_t strength = 1) {
  BlackMistFullParam p{};
  p.src = src.Desc();
  p.dst = dst.Desc();
  p.light_intensity = 1.0f;
  p.tint_brightness = 1.0f;
  p.blend_opacity = 255;
  p.weight_blur = 0.27f;
  p.weight_src = 0.73f;
  p.reserved_f = 1.0f;
  p.keep_saturation = 1;
  p.blur_blended = 1;
  p.blend_blur_radius = float(std::max(src.width, src.height) / 8) * 0.06f;
  p.blend_mode = 5;
  p.output_mode = 2;
  p.strength = strength;
  p.reserved_i = 1;
  p.process_rect = {0, 0, uint32_t(src.width), uint32_t(src.height)};
  return p;
}

BlackMistParam BasicOf(const BlackMistFullParam& f) {
  return BlackMistParam{f.src,           f.mask,          f.dst,      f.light_intensity,
                        f.soft_radius,   f.hlr_threshold, f.strength, f.process_rect};
}

// A frame of one colour; the destination holds the whole frame.
struct Flat {
  Flat(int32_t w, int32_t h, const uint8_t (&bgra)[4]) : src(w, h), dst(w, h) {
    for (int32_t y = 0; y < h; ++y)
      for (int32_t x = 0; x < w; ++x) std::memcpy(src.Pixel(x, y), bgra, 4);
  }
  Image src, dst;
};

bool AllPixels(Image& img, const uint8_t (&bgra)[4]) {
  for (int32_t y = 0; y < img.height; ++y)
    for (int32_t x = 0; x < img.width; ++x)
      if (std::memcmp(img.Pixel(x, y), bgra, 4) != 0) return false;
  return true;
}

// One table for every check of both records, in the order the effect makes them: each row
// breaks one thing in a good 64 x 40 record (maximum radius 64 / 8 = 8).
TEST(BlackMistChecks, CodesOfEveryRule) {
  CThreadPool pool;
  pool.Create(2);
  BlackMistEffect effect(&pool);
  Image src(64, 40), dst(64, 40), small(4, 4), mask(64, 40, PIXEL_GRAY8);
  const BlackMistFullParam good = FullDefaults(src, dst);
  using Edit = std::function<void(BlackMistFullParam&)>;
  const struct {
    const char* rule;
    bool basic_too;  // the basic record carries the fields too
    int32_t want;
    Edit edit;
  } rows[] = {
      {"good record", true, VX_OK, [](BlackMistFullParam&) {}},
      {"no source pixels", true, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.src.data = nullptr; }},
      {"source size", true, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.src.width = 63; }},
      {"null mask, other fields ignored", true, VX_OK,
       [](BlackMistFullParam& p) { p.mask.width = 3, p.mask.format = 99; }},
      {"mask not GRAY8", true, VX_E_INVALIDARG,
       [&](BlackMistFullParam& p) { p.mask = mask.Desc(), p.mask.format = PIXEL_BGRA32; }},
      {"mask with 4 channels", true, VX_E_INVALIDARG,
       [&](BlackMistFullParam& p) { p.mask = mask.Desc(), p.mask.channels = 4; }},
      {"destination narrower than the rectangle", true, VX_E_INVALIDARG,
       [](BlackMistFullParam& p) { p.dst.width = 63; }},
      {"float source", true, VX_E_NOTIMPL, [](BlackMistFullParam& p) { p.src.format = PIXEL_FLOAT96; }},
      {"size before format", true, VX_E_INVALIDARG,
       [](BlackMistFullParam& p) { p.src.format = PIXEL_FLOAT96, p.src.width = 3; }},
      {"gray destination", true, VX_E_NOTIMPL, [](BlackMistFullParam& p) { p.dst.format = PIXEL_GRAY8; }},
      {"rectangle past the right edge", true, VX_E_INVALIDARG,
       [&](BlackMistFullParam& p) { p.process_rect = {62, 0, 66, 4}, p.dst = small.Desc(); }},
      {"rectangle past the bottom", true, VX_E_INVALIDARG,
       [&](BlackMistFullParam& p) { p.process_rect = {0, 38, 4, 42}, p.dst = small.Desc(); }},
      {"left > right, wrapped width", true, VX_E_INVALIDARG,
       [](BlackMistFullParam& p) { p.process_rect.left = 5, p.process_rect.right = 4, p.dst.width = ~0u; }},
      {"edges that wrap to the width", true, VX_E_INVALIDARG,
       [](BlackMistFullParam& p) { p.process_rect.left = 0xFFFFFFC0u, p.process_rect.right = 0; }},
      {"edges beyond INT32_MAX", true, VX_E_INVALIDARG,
       [](BlackMistFullParam& p) { p.process_rect.top = 0x80000000u, p.process_rect.bottom = 0x80000028u; }},
      {"short source rows", true, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.src.stride = 255; }},
      {"short destination rows", true, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.dst.stride = 10; }},
      {"3-channel source", true, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.src.channels = 3; }},
      {"intensity 2", true, VX_OK, [](BlackMistFullParam& p) { p.light_intensity = 2.0f; }},
      {"intensity above 2", true, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.light_intensity = 2.01f; }},
      {"negative intensity", true, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.light_intensity = -0.001f; }},
      {"NaN intensity", true, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.light_intensity = kNaN; }},
      {"radius 8", true, VX_OK, [](BlackMistFullParam& p) { p.soft_radius = 8.0f; }},
      {"radius above 8", true, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.soft_radius = 8.001f; }},
      {"threshold 256", true, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.hlr_threshold = 256; }},
      {"negative tint", false, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.tint_amount = -0.5f; }},
      {"tint hue above 1", false, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.tint_hue = 1.5f; }},
      {"tint brightness above 1", false, VX_E_INVALIDARG,
       [](BlackMistFullParam& p) { p.tint_brightness = 1.01f; }},
      {"opacity 256", false, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.blend_opacity = 256; }},
      {"infinite weight", false, VX_E_INVALIDARG,
       [](BlackMistFullParam& p) { p.weight_blur = std::numeric_limits<float>::infinity(); }},
      // Unchecked: an unknown blend mode fails its stage.
      {"blend mode 29", false, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.blend_mode = 29; }},
  };
  EXPECT_EQ(effect.ProcessFull(&good), VX_E_INVALIDARG) << "before any size";
  EXPECT_EQ(effect.SetImageSize(0, 10), VX_E_INVALIDARG);
  ASSERT_EQ(effect.SetImageSize(64, 40), VX_OK);
  EXPECT_EQ(effect.Process(nullptr), VX_E_POINTER);
  EXPECT_EQ(effect.ProcessFull(nullptr), VX_E_POINTER);
  for (const auto& row : rows) {
    BlackMistFullParam p = good;
    row.edit(p);
    EXPECT_EQ(effect.ProcessFull(&p), row.want) << "full record: " << row.rule;
    const BlackMistParam b = BasicOf(p);
    if (row.basic_too) {
      EXPECT_EQ(effect.Process(&b), row.want) << "basic record: " << row.rule;
    }
  }
  // Reset forgets the size; the same size then builds again.
  ASSERT_EQ(effect.Reset(), VX_OK);
  EXPECT_EQ(effect.ProcessFull(&good), VX_E_INVALIDARG);
  ASSERT_EQ(effect.SetImageSize(64, 40), VX_OK);
  EXPECT_EQ(effect.ProcessFull(&good), VX_OK);
}

// Flat frames whose results are worked by hand; each row gives the source pixel, the mask
// value (-1 for none), what differs from the basic call's defaults and the result.
TEST(BlackMistResult, HandComputedFlatFrames) {
  using Edit = std::function<void(BlackMistFullParam&)>;
  const Edit none = [](BlackMistFullParam&) {};
  const struct {
    const char* what;
    uint8_t src[4];
    int32_t mask;
    bool full;
    Edit edit;
    uint8_t want[4];
  } rows[] = {
      // White survives key, curve and screen at 255; the weighting sum then gives
      // 255 x (w1 + w2) / 65536 with w1 + w2 = 65535 for presets 0-3 (17694 + 47841 for
      // preset 1): 254; an unknown preset weighs 0 + 65536: 255.
      {"white, preset 0", {255, 255, 255, 255}, -1, false,
       [](BlackMistFullParam& p) { p.strength = 0; }, {254, 254, 254, 255}},
      {"white, preset 3", {255, 255, 255, 255}, -1, false,
       [](BlackMistFullParam& p) { p.strength = 3; }, {254, 254, 254, 255}},
      {"white, preset 7", {255, 255, 255, 255}, -1, false,
       [](BlackMistFullParam& p) { p.strength = 7; }, {255, 255, 255, 255}},
      // Grey 128 under threshold 200 has no highlight: the screen of 0 gives
      // (254 x 128 + 1 x 128) / 255 = 128 and preset 1's sum 128 x 65535 / 65536 = 127 ...
      {"grey below the threshold", {128, 128, 128, 255}, -1, false,
       [](BlackMistFullParam& p) { p.hlr_threshold = 200; }, {127, 127, 127, 255}},
      // ... and custom weights 0 and 1.0 keep the blend.
      {"custom weights 0 and 1", {128, 128, 128, 255}, -1, true,
       [](BlackMistFullParam& p) { p.hlr_threshold = 200, p.weight_blur = 0, p.weight_src = 1; },
       {128, 128, 128, 255}},
      // Glow only below the threshold: no colour, the source's alpha.
      {"glow of a dark frame", {10, 10, 10, 77}, -1, true,
       [](BlackMistFullParam& p) { p.hlr_threshold = 90, p.output_mode = 0; }, {0, 0, 0, 77}},
      // The blurred blend of a flat frame stays flat.
      {"blurred blend", {128, 128, 128, 255}, -1, true,
       [](BlackMistFullParam& p) { p.hlr_threshold = 250, p.output_mode = 1; }, {128, 128, 128, 255}},
      // A mask weights the thresholded colour: (200 - 100) x 128 / 256 = 50; gain 2 x 0.5 = 1
      // and the curve take 50 / 255 to about 0.1395, byte 35. A zero mask leaves nothing.
      {"mask 128", {200, 200, 200, 255}, 128, true,
       [](BlackMistFullParam& p) { p.light_intensity = 0.5f, p.hlr_threshold = 100, p.output_mode = 0; },
       {35, 35, 35, 255}},
      {"mask 0", {200, 200, 200, 255}, 0, true,
       [](BlackMistFullParam& p) { p.light_intensity = 0.5f, p.hlr_threshold = 100, p.output_mode = 0; },
       {0, 0, 0, 255}},
      // The knee keeps (56, 53, 123) only when its product is taken in float (in double it
      // gives 122); the glow and the result follow from that key.
      {"knee, result", {56, 53, 123, 255}, -1, false, none, {118, 112, 246, 255}},
      {"knee, glow", {56, 53, 123, 255}, -1, true, [](BlackMistFullParam& p) { p.output_mode = 0; },
       {81, 76, 240, 255}},
      // Brightness 0 takes every highlight colour away.
      {"tint brightness 0", {56, 53, 123, 255}, -1, true,
       [](BlackMistFullParam& p) { p.tint_brightness = 0, p.output_mode = 0; }, {0, 0, 0, 255}},
  };
  CThreadPool pool;
  pool.Create(3);
  for (const auto& row : rows) {
    BlackMistEffect effect(&pool);
    ASSERT_EQ(effect.SetImageSize(16, 12), VX_OK);
    Flat f(16, 12, row.src);
    Image mask(16, 12, PIXEL_GRAY8);
    mask.Fill(uint8_t(row.mask));
    BlackMistFullParam p = FullDefaults(f.src, f.dst);
    if (row.mask >= 0) p.mask = mask.Desc();
    row.edit(p);
    const BlackMistParam b = BasicOf(p);
    ASSERT_EQ(row.full ? effect.ProcessFull(&p) : effect.Process(&b), VX_OK) << row.what;
    EXPECT_TRUE(AllPixels(f.dst, row.want)) << row.what << ": got " << int(f.dst.Pixel(5, 5)[0])
                                            << "," << int(f.dst.Pixel(5, 5)[1]) << ","
                                            << int(f.dst.Pixel(5, 5)[2]) << ","
                                            << int(f.dst.Pixel(5, 5)[3]);
  }
}

TEST(BlackMistResult, RadiusSpreadsTheGlow) {
  // A 4 x 4 white spot: without a radius the glow stays on the spot, with one it spreads.
  CThreadPool pool;
  pool.Create(2);
  BlackMistEffect effect(&pool);
  ASSERT_EQ(effect.SetImageSize(32, 32), VX_OK);
  const uint8_t black[4] = {0, 0, 0, 255};
  Flat f(32, 32, black);
  for (int32_t y = 14; y < 18; ++y)
    for (int32_t x = 14; x < 18; ++x) std::memset(f.src.Pixel(x, y), 255, 3);
  BlackMistFullParam p = FullDefaults(f.src, f.dst);
  p.output_mode = 0;
  ASSERT_EQ(effect.ProcessFull(&p), VX_OK);
  EXPECT_EQ(f.dst.Pixel(10, 16)[2], 0);
  EXPECT_EQ(f.dst.Pixel(15, 15)[2], 255);
  p.soft_radius = 4.0f;
  ASSERT_EQ(effect.ProcessFull(&p), VX_OK);
  EXPECT_GT(f.dst.Pixel(10, 16)[2], 0);
  EXPECT_LT(f.dst.Pixel(15, 15)[2], 255);
}

// A rectangle renders the crop of the whole frame, for every output that works per pixel of
// the frame (the final blur works on the destination alone).
TEST(BlackMistRect, RectangleIsTheCropOfTheFrame) {
  CThreadPool pool;
  pool.Create(3);
  BlackMistEffect effect(&pool);
  ASSERT_EQ(effect.SetImageSize(33, 17), VX_OK);
  Image src(33, 17), whole(33, 17), part(21, 8, PIXEL_BGRA32, 12);
  src.FillRandom(21);
  BlackMistFullParam p = FullDefaults(src, whole, 0);
  p.light_intensity = 1.3f, p.soft_radius = 2.0f, p.hlr_threshold = 40, p.blur_blended = 0;
  for (int32_t mode : {0, 2, 3}) {
    p.output_mode = mode;
    p.dst = whole.Desc();
    p.process_rect = {0, 0, 33, 17};
    ASSERT_EQ(effect.ProcessFull(&p), VX_OK);
    p.dst = part.Desc();
    p.process_rect = {5, 3, 26, 11};
    ASSERT_EQ(effect.ProcessFull(&p), VX_OK);
    for (int32_t y = 0; y < 8; ++y)
      ASSERT_EQ(0, std::memcmp(part.Pixel(0, y), whole.Pixel(5, 3 + y), 21 * 4)) << mode << " row " << y;
  }
}

// Every parameter drawn over its range, unchecked ones included, masks and sub-rectangles.
TEST(BlackMistForms, LevelsAndWorkersAgree) {
  test::ExpectEffectRunsAgree({
      test::EffectRow::Of<BlackMistEffect>("basic", [](BlackMistEffect& e, test::Frame& f) {
        BlackMistParam p{};
        f.Place(p);
        p.light_intensity = f.Float(0, 2);
        p.soft_radius = f.Float(0, float(std::max(f.width, f.height) / 8));
        p.hlr_threshold = uint32_t(f.Int(0, 255));
        p.strength = f.Int(-1, 4);
        return e.Process(&p);
      }),
      test::EffectRow::Of<BlackMistEffect>("full", [](BlackMistEffect& e, test::Frame& f) {
        BlackMistFullParam p{};
        f.Place(p);
        p.light_intensity = f.Float(0, 2);
        p.soft_radius = f.Float(0, float(std::max(f.width, f.height) / 8));
        p.hlr_threshold = uint32_t(f.Int(0, 255));
        p.tint_amount = f.Pick({0, 1}) ? f.Float(0, 1) : 0.0f;
        p.tint_hue = f.Float(0, 1);
        p.tint_brightness = f.Float(0, 1);
        p.blend_opacity = uint32_t(f.Int(0, 255));
        p.weight_blur = f.Float(0, 1);
        p.weight_src = 1.0f - p.weight_blur;
        p.use_tone_mapping = uint8_t(f.Int(0, 1));
        p.keep_saturation = uint8_t(f.Int(0, 1));
        p.blur_blended = uint8_t(f.Int(0, 1));
        p.blend_blur_radius = f.Float(0, 5);
        p.blend_mode = f.Int(0, 28);
        p.output_mode = f.Int(0, 3);
        p.strength = f.Int(-1, 4);
        return e.ProcessFull(&p);
      }),
  });
}

}  // namespace
}  // namespace Vantyx
