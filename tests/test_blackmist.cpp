// BlackMist end to end: the record checks and their order, hand-computed frames, rectangles,
// inputs the frame fuzzer (fuzz/) found, and the same bytes at every processor level and
// worker count.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "effects/blackmist/blackmist_effect.h"
#include "harness.h"

namespace Vantyx {
namespace {

using test::Image;
using Lines = std::vector<std::string>;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// One effect on a pool of its own, at processor level 0.
struct Mist {
  CThreadPool pool;
  BlackMistEffect effect{(pool.Create(3), &pool)};
};

// The full record that reproduces the basic call's defaults over the whole of src.
BlackMistFullParam FullDefaults(const ImageDesc& src, const ImageDesc& dst) {
  BlackMistFullParam p{};
  p.src = src, p.dst = dst;
  p.light_intensity = 1.0f;
  p.tint_brightness = 1.0f;
  p.blend_opacity = 255;
  p.weight_blur = 0.27f, p.weight_src = 0.73f;
  p.reserved_f = 1.0f;
  p.keep_saturation = p.blur_blended = 1;
  p.blend_blur_radius = float(std::max(src.width, src.height) / 8) * 0.06f;
  p.blend_mode = 5;
  p.output_mode = 2;
  p.strength = p.reserved_i = 1;
  p.process_rect = {0, 0, src.width, src.height};
  return p;
}

BlackMistParam BasicOf(const BlackMistFullParam& f) {
  return BlackMistParam{f.src,         f.mask,          f.dst,      f.light_intensity,
                        f.soft_radius, f.hlr_threshold, f.strength, f.process_rect};
}

// One table for every check of both records, in the order the effect makes them: each row
// breaks one thing in a good 64 x 40 record (maximum radius 64 / 8 = 8).
TEST(BlackMistChecks, CodesOfEveryRule) {
  Mist m;
  BlackMistEffect& effect = m.effect;
  Image src(64, 40), dst(64, 40), small(4, 4), mask(64, 40, PIXEL_GRAY8);
  const BlackMistFullParam good = FullDefaults(src.Desc(), dst.Desc());
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
      // Unchecked: an unknown blend mode fails its stage; a null destination, the first stage
      // that writes it.
      {"blend mode 29", false, VX_E_INVALIDARG, [](BlackMistFullParam& p) { p.blend_mode = 29; }},
      {"null destination", true, VX_E_POINTER, [](BlackMistFullParam& p) { p.dst.data = nullptr; }},
  };
  test::LogCapture quiet;
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
      // That glow screened over 200 at opacity 128, no second blur: F = 255 - 55 x 220 / 255
      // = 208; a = (255 x 128) >> 8 = 127, wb = 128, ws = 127: (127 x 208 + 128 x 200) / 255
      // = 203.98 -> 203 (at opacity 255 it would be 207).
      {"opacity 128", {200, 200, 200, 255}, 128, true,
       [](BlackMistFullParam& p) {
         p.light_intensity = 0.5f, p.hlr_threshold = 100, p.blur_blended = 0, p.blend_opacity = 128;
       },
       {203, 203, 203, 255}},
      // The knee keeps (56, 53, 123) only when its product is taken in float (in double it
      // gives 122); the glow and the result follow from that key.
      {"knee, result", {56, 53, 123, 255}, -1, false, [](BlackMistFullParam&) {}, {118, 112, 246, 255}},
      {"knee, glow", {56, 53, 123, 255}, -1, true, [](BlackMistFullParam& p) { p.output_mode = 0; },
       {81, 76, 240, 255}},
      // Brightness 0 takes every highlight colour away.
      {"tint brightness 0", {56, 53, 123, 255}, -1, true,
       [](BlackMistFullParam& p) { p.tint_brightness = 0, p.output_mode = 0; }, {0, 0, 0, 255}},
  };
  for (const auto& row : rows) {
    Mist m;
    ASSERT_EQ(m.effect.SetImageSize(16, 12), VX_OK);
    Image src(16, 12), dst(16, 12), mask(16, 12, PIXEL_GRAY8), want(16, 12);
    for (size_t i = 0; i < src.bytes.size(); i += 4) {
      std::memcpy(&src.bytes[i], row.src, 4);
      std::memcpy(&want.bytes[i], row.want, 4);
    }
    mask.Fill(uint8_t(row.mask));
    BlackMistFullParam p = FullDefaults(src.Desc(), dst.Desc());
    if (row.mask >= 0) p.mask = mask.Desc();
    row.edit(p);
    const BlackMistParam b = BasicOf(p);
    ASSERT_EQ(row.full ? m.effect.ProcessFull(&p) : m.effect.Process(&b), VX_OK) << row.what;
    EXPECT_TRUE(dst == want) << row.what << ": pixel 0 is " << int(dst.bytes[0]) << ","
                             << int(dst.bytes[1]) << "," << int(dst.bytes[2]) << "," << int(dst.bytes[3]);
  }
}

// The full call given the basic call's fixed settings (and preset 2's weights as its own)
// renders the basic call's bytes.
TEST(BlackMistResult, FullCallWithTheBasicSettingsMatchesTheBasicCall) {
  Mist m;
  ASSERT_EQ(m.effect.SetImageSize(37, 29), VX_OK);
  Image src(37, 29), basic(37, 29), full(37, 29);
  src.FillRandom(11);
  BlackMistFullParam p = FullDefaults(src.Desc(), basic.Desc());
  p.light_intensity = 1.5f, p.soft_radius = 3.0f, p.hlr_threshold = 60, p.strength = 2;
  const BlackMistParam b = BasicOf(p);
  ASSERT_EQ(m.effect.Process(&b), VX_OK);
  p.dst = full.Desc(), p.weight_blur = 0.2f, p.weight_src = 0.8f;
  ASSERT_EQ(m.effect.ProcessFull(&p), VX_OK);
  EXPECT_TRUE(basic == full);
}

TEST(BlackMistResult, RadiusSpreadsTheGlow) {
  // A 4 x 4 white spot: without a radius the glow stays on the spot, with one it spreads.
  Mist m;
  ASSERT_EQ(m.effect.SetImageSize(32, 32), VX_OK);
  Image src(32, 32), dst(32, 32);
  for (int32_t y = 14; y < 18; ++y)
    for (int32_t x = 14; x < 18; ++x) std::memset(src.Pixel(x, y), 255, 3);
  BlackMistFullParam p = FullDefaults(src.Desc(), dst.Desc());
  p.output_mode = 0;
  ASSERT_EQ(m.effect.ProcessFull(&p), VX_OK);
  EXPECT_EQ(dst.Pixel(10, 16)[2], 0);
  EXPECT_EQ(dst.Pixel(15, 15)[2], 255);
  p.soft_radius = 4.0f;
  ASSERT_EQ(m.effect.ProcessFull(&p), VX_OK);
  EXPECT_GT(dst.Pixel(10, 16)[2], 0);
  EXPECT_LT(dst.Pixel(15, 15)[2], 255);
}

// A rectangle renders the crop of the whole frame, for every output that works per pixel of
// the frame (the final blur works on the destination alone).
TEST(BlackMistRect, RectangleIsTheCropOfTheFrame) {
  Mist m;
  ASSERT_EQ(m.effect.SetImageSize(33, 17), VX_OK);
  Image src(33, 17), whole(33, 17), part(21, 8, PIXEL_BGRA32, 12);
  src.FillRandom(21);
  BlackMistFullParam p = FullDefaults(src.Desc(), whole.Desc());
  p.light_intensity = 1.3f, p.soft_radius = 2.0f, p.hlr_threshold = 40, p.blur_blended = 0;
  for (int32_t mode : {0, 2, 3}) {
    p.output_mode = mode;
    p.dst = whole.Desc();
    p.process_rect = {0, 0, 33, 17};
    ASSERT_EQ(m.effect.ProcessFull(&p), VX_OK);
    p.dst = part.Desc();
    p.process_rect = {5, 3, 26, 11};
    ASSERT_EQ(m.effect.ProcessFull(&p), VX_OK);
    for (int32_t y = 0; y < 8; ++y)
      ASSERT_EQ(0, std::memcmp(part.Pixel(0, y), whole.Pixel(5, 3 + y), 21 * 4)) << mode << " row " << y;
  }
}

// ---- Inputs the frame fuzzer found: each once crashed, overflowed or pinned down a rule ------

// SetImageSize(INT32_MAX, 1) overflowed the signed sum n + n % 4 of the aligned width; now the
// sum wraps unsigned, the buffers are too large for 32-bit byte counts and the size is refused.
// A refused size forgets the frame size and its buffers: a frame of the old size is refused,
// one of 0 x 0 meets no working buffer; a fresh size recovers.
TEST(BlackMistFuzzFinds, RefusedSizes) {
  Mist m;
  ASSERT_EQ(m.effect.SetImageSize(16, 16), VX_OK);
  test::LogCapture log;
  for (const auto& size : std::vector<std::pair<int32_t, int32_t>>{
           {INT32_MAX, 1}, {1, INT32_MAX}, {INT32_MIN, 4}, {1 << 30, 2}})
    EXPECT_EQ(m.effect.SetImageSize(size.first, size.second), VX_E_INVALIDARG) << size.first;
  // The first buffer too large names itself; a side below 1 is refused before any buffer.
  const std::string hlr = "[VNTX] [Vantyx] CreateSmartBufferData(m_scaled_hlr, m_scaled_img_w, "
                          "m_scaled_img_h, PIXEL_BGRA32) Error! - Return Code: 80070057\n";
  EXPECT_EQ(log.Lines(), (Lines{hlr, "[VNTX] [Vantyx] CreateSmartBufferData(m_aligned_hlr, "
                                     "m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - "
                                     "Return Code: 80070057\n", hlr}));
  Image src(16, 16), dst(16, 16);
  const BlackMistParam p = BasicOf(FullDefaults(src.Desc(), dst.Desc()));
  EXPECT_EQ(m.effect.Process(&p), VX_E_INVALIDARG);
  uint8_t byte = 0x5A;
  const ImageDesc empty{&byte, 0, 0, 0, 4, PIXEL_BGRA32, 0};  // 0 x 0 but present
  const BlackMistParam e = BasicOf(FullDefaults(empty, empty));
  EXPECT_EQ(m.effect.Process(&e), VX_E_POINTER);
  EXPECT_EQ(byte, 0x5A);
  ASSERT_EQ(m.effect.SetImageSize(16, 16), VX_OK);
  EXPECT_EQ(m.effect.Process(&p), VX_OK);
  // The same empty frame after Reset: the first stage meets no buffer, nothing is written.
  ASSERT_EQ(m.effect.Reset(), VX_OK);
  EXPECT_EQ(m.effect.Process(&e), VX_E_POINTER);
  EXPECT_EQ(byte, 0x5A);
}

// A side of 1 has a half-size side of trunc(0.5) = 0: "downsampling src" answers 0x80004005,
// logged with the kernel's name, the stage's and "total process". Copying the source (output
// mode 3) needs no half-size image and works.
TEST(BlackMistFuzzFinds, FailingStagesAreLogged) {
  Mist m;
  for (const auto& size : std::vector<std::pair<int32_t, int32_t>>{{1, 9}, {1, 1}, {9, 1}}) {
    ASSERT_EQ(m.effect.SetImageSize(size.first, size.second), VX_OK);
    Image src(size.first, size.second), dst(size.first, size.second);
    src.FillRandom(7);
    BlackMistFullParam p = FullDefaults(src.Desc(), dst.Desc());
    test::LogCapture log;
    EXPECT_EQ(m.effect.ProcessFull(&p), VX_E_FAIL);
    EXPECT_EQ(log.Lines(), (Lines{"[VNTX] [Vantyx](resize buff) - Return Code: 80004005\n",
                                  "[VNTX] [Vantyx](downsampling src) - Return Code: 80004005\n",
                                  "[VNTX] [Vantyx](total process) - Return Code: 80004005\n"}));
    p.output_mode = 3;
    EXPECT_EQ(m.effect.ProcessFull(&p), VX_OK);
    EXPECT_EQ(dst.bytes, src.bytes);
  }
}

// The blend-blur radius has no range. Far too large, it saturates (2 x radius x 0.5 + 0.5 is
// taken to int32 with saturation) and every window is the whole line, so the blurred blend
// (output mode 1) holds one value per channel. Below -0.5 it truncates to a negative radius,
// which the first "BoxBlurH" refuses.
TEST(BlackMistFuzzFinds, UnrangedBlendBlurRadius) {
  Mist m;
  ASSERT_EQ(m.effect.SetImageSize(11, 9), VX_OK);
  Image src(11, 9), dst(11, 9);
  src.FillRandom(19);
  BlackMistFullParam p = FullDefaults(src.Desc(), dst.Desc());
  for (float radius : {1e9f, 1e30f, 3.4e38f, 2147483520.0f, 40.0f}) {
    p.blend_blur_radius = radius;
    p.output_mode = 2;
    EXPECT_EQ(m.effect.ProcessFull(&p), VX_OK) << radius;
    p.output_mode = 1;
    EXPECT_EQ(m.effect.ProcessFull(&p), VX_OK) << radius;
    for (size_t i = 0; i < dst.bytes.size(); ++i)
      ASSERT_TRUE(i % 4 == 3 || dst.bytes[i] == dst.bytes[i % 4]) << radius << " at byte " << i;
  }
  p.blend_blur_radius = -2.0f;
  test::LogCapture quiet;
  EXPECT_EQ(m.effect.ProcessFull(&p), VX_E_INVALIDARG);
}

// The basic call runs every stage on every frame; the full call draws every parameter over its
// range, unchecked ones included. Masks and sub-rectangles come with the frames.
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
