// BlackMist end to end: validation order, output modes, presets, masks, rectangles, odd sizes,
// and identical bytes whatever the processor level or worker count.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>

#include "core/thread_pool.h"
#include "effects/blackmist/blackmist_effect.h"
#include "test_support.h"

namespace Vantyx {
namespace {

using test::Image;
using test::LogCapture;

class Fixture {
 public:
  explicit Fixture(int32_t workers = 4, int32_t simd = SIMD_NONE) {
    pool.Create(workers);
    effect = std::make_unique<BlackMistEffect>(&pool);
    SetLevel(simd);
  }
  void SetLevel(int32_t simd) {
    const CpuInfo info{8, simd, 0};
    effect->SetCpuInfo(&info);
  }
  CThreadPool pool;
  std::unique_ptr<BlackMistEffect> effect;
};

BlackMistParam Basic(Image& src, Image& dst, float intensity = 1.0f, float radius = 0.0f,
                     uint32_t threshold = 0, int32_t strength = 1) {
  BlackMistParam p{};
  p.src = src.Desc();
  p.dst = dst.Desc();
  p.light_intensity = intensity;
  p.soft_radius = radius;
  p.hlr_threshold = threshold;
  p.strength = strength;
  p.process_rect = {0, 0, uint32_t(src.width), uint32_t(src.height)};
  return p;
}

// The full record that reproduces the basic call's defaults.
BlackMistFullParam FullOf(const BlackMistParam& b, int32_t w, int32_t h) {
  BlackMistFullParam p{};
  p.src = b.src;
  p.mask = b.mask;
  p.dst = b.dst;
  p.light_intensity = b.light_intensity;
  p.soft_radius = b.soft_radius;
  p.hlr_threshold = b.hlr_threshold;
  p.tint_amount = 0.0f;
  p.tint_hue = 0.0f;
  p.tint_brightness = 1.0f;
  p.blend_opacity = 255;
  p.weight_blur = 0.27f;
  p.weight_src = 0.73f;
  p.reserved_f = 1.0f;
  p.keep_saturation = 1;
  p.blur_blended = 1;
  p.blend_blur_radius = float(std::max(w, h) / 8) * 0.06f;
  p.blend_mode = 5;
  p.output_mode = 2;
  p.strength = b.strength;
  p.reserved_i = 1;
  p.process_rect = b.process_rect;
  return p;
}

Image Uniform(int32_t w, int32_t h, uint8_t value, uint8_t alpha = 255) {
  Image img(w, h);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      uint8_t* p = img.Pixel(x, y);
      p[0] = p[1] = p[2] = value;
      p[3] = alpha;
    }
  return img;
}

void ExpectAll(Image& img, uint8_t b, uint8_t g, uint8_t r, uint8_t a) {
  for (int32_t y = 0; y < img.height; ++y)
    for (int32_t x = 0; x < img.width; ++x) {
      const uint8_t* p = img.Pixel(x, y);
      ASSERT_EQ(p[0], b) << x << "," << y;
      ASSERT_EQ(p[1], g) << x << "," << y;
      ASSERT_EQ(p[2], r) << x << "," << y;
      ASSERT_EQ(p[3], a) << x << "," << y;
    }
}

TEST(BlackMistValidation, SizeAndRecordChecksInOrder) {
  Fixture f;
  EXPECT_EQ(f.effect->SetImageSize(0, 10), VX_E_INVALIDARG);
  EXPECT_EQ(f.effect->SetImageSize(10, -1), VX_E_INVALIDARG);
  Image src(16, 8), dst(16, 8);
  BlackMistParam p = Basic(src, dst);
  // Created state: sizes are 0, so a real source does not match.
  EXPECT_EQ(f.effect->Process(&p), VX_E_INVALIDARG);
  ASSERT_EQ(f.effect->SetImageSize(16, 8), VX_OK);
  EXPECT_EQ(f.effect->Process(&p), VX_OK);
  EXPECT_EQ(f.effect->Process(nullptr), VX_E_POINTER);

  BlackMistParam q = p;
  q.src.data = nullptr;
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  q = p;
  q.src.width = 15;
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  // A mask with null data is ignored whatever its other fields hold.
  q = p;
  q.mask.width = 3;
  q.mask.format = 99;
  EXPECT_EQ(f.effect->Process(&q), VX_OK);
  Image mask(16, 8, PIXEL_GRAY8);
  q.mask = mask.Desc();
  q.mask.format = PIXEL_BGRA32;
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  // Destination one pixel narrower than the rectangle.
  q = p;
  q.dst.width = 15;
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  // Format after size: a float source with a good size is "not implemented" ...
  q = p;
  q.src.format = PIXEL_FLOAT96;
  EXPECT_EQ(f.effect->Process(&q), VX_E_NOTIMPL);
  // ... but a bad size still wins over the format.
  q.src.width = 3;
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  q = p;
  q.dst.format = PIXEL_GRAY8;
  EXPECT_EQ(f.effect->Process(&q), VX_E_NOTIMPL);
}

TEST(BlackMistValidation, RectangleStrideAndChannels) {
  Fixture f;
  ASSERT_EQ(f.effect->SetImageSize(16, 8), VX_OK);
  Image src(16, 8), dst(16, 8), small(4, 4);
  BlackMistParam p = Basic(src, dst);
  BlackMistParam q = p;
  q.process_rect = {14, 0, 18, 4};  // right beyond the frame
  q.dst = small.Desc();
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  q.process_rect = {0, 6, 4, 10};
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  // left > right: the unsigned width wraps and matches a wrapped destination width.
  q = p;
  q.process_rect = {5, 0, 4, 8};
  q.dst.width = 0xFFFFFFFFu;
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  q = p;
  q.src.stride = 16 * 4 - 1;
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  q = p;
  q.dst.stride = 10;
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  q = p;
  q.src.channels = 3;
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  Image mask(16, 8, PIXEL_GRAY8);
  q = p;
  q.mask = mask.Desc();
  q.mask.channels = 4;
  EXPECT_EQ(f.effect->Process(&q), VX_E_INVALIDARG);
  q.mask.channels = 1;
  EXPECT_EQ(f.effect->Process(&q), VX_OK);
}

TEST(BlackMistValidation, ParameterRanges) {
  Fixture f;
  ASSERT_EQ(f.effect->SetImageSize(64, 40), VX_OK);  // max radius 64 / 8 = 8
  Image src(64, 40), dst(64, 40);
  BlackMistParam p = Basic(src, dst);
  auto code = [&](BlackMistParam q) { return f.effect->Process(&q); };
  BlackMistParam q = p;
  q.light_intensity = 2.0f;
  EXPECT_EQ(code(q), VX_OK);
  q.light_intensity = 2.01f;
  EXPECT_EQ(code(q), VX_E_INVALIDARG);
  q = p;
  q.light_intensity = -0.001f;
  EXPECT_EQ(code(q), VX_E_INVALIDARG);
  q = p;
  q.soft_radius = 8.0f;
  EXPECT_EQ(code(q), VX_OK);
  q.soft_radius = 8.001f;
  EXPECT_EQ(code(q), VX_E_INVALIDARG);
  q = p;
  q.hlr_threshold = 256;
  EXPECT_EQ(code(q), VX_E_INVALIDARG);
  q = p;
  q.light_intensity = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(code(q), VX_E_INVALIDARG);

  BlackMistFullParam full = FullOf(p, 64, 40);
  auto full_code = [&](BlackMistFullParam r) { return f.effect->ProcessFull(&r); };
  EXPECT_EQ(full_code(full), VX_OK);
  BlackMistFullParam r = full;
  r.tint_amount = -0.5f;
  EXPECT_EQ(full_code(r), VX_E_INVALIDARG);
  r = full;
  r.tint_hue = 1.5f;
  EXPECT_EQ(full_code(r), VX_E_INVALIDARG);
  r = full;
  r.blend_opacity = 256;
  EXPECT_EQ(full_code(r), VX_E_INVALIDARG);
  r = full;
  r.tint_brightness = 1.01f;
  EXPECT_EQ(full_code(r), VX_E_INVALIDARG);
  r = full;
  r.weight_blur = std::numeric_limits<float>::infinity();
  EXPECT_EQ(full_code(r), VX_E_INVALIDARG);
  // The basic checks come first: a bad intensity wins over a bad tint.
  r = full;
  r.light_intensity = 3.0f;
  r.tint_hue = 7.0f;
  EXPECT_EQ(full_code(r), VX_E_INVALIDARG);
  // Unchecked fields are taken as they are; an unknown blend mode fails the blend stage.
  r = full;
  r.blend_mode = 29;
  LogCapture log;
  EXPECT_EQ(full_code(r), VX_E_INVALIDARG);
  EXPECT_TRUE(log.Contains("[Vantyx](blending hlr to result) - Return Code: 80070057"));
}

// White at full alpha: the highlight survives the key, the curve and the screen blend at 255;
// the weighting sum then gives 255 x (w1 + w2) / 65536 with w1 + w2 = 65535 for presets 0-3
// (e.g. 17694 + 47841), so 254, and exactly 255 for an unknown preset (0 + 65536).
TEST(BlackMistResult, WhiteFrameThroughEachPreset) {
  for (int32_t strength : {0, 1, 2, 3, 7}) {
    Fixture f;
    ASSERT_EQ(f.effect->SetImageSize(24, 16), VX_OK);
    Image src = Uniform(24, 16, 255), dst(24, 16);
    BlackMistParam p = Basic(src, dst, 1.0f, 2.0f, 0, strength);
    ASSERT_EQ(f.effect->Process(&p), VX_OK);
    const uint8_t v = strength == 7 ? 255 : 254;
    ExpectAll(dst, v, v, v, 255);
  }
}

// Grey 128 below a threshold of 200 has no highlight: the screen of 0 over 128 gives
// (254 x 128 + 1 x 128) / 255 = 128, the blur keeps it, and the weighting sum of preset 1
// gives 128 x 65535 / 65536 = 127.
TEST(BlackMistResult, GreyBelowThresholdLosesOneStepInTheWeightedSum) {
  Fixture f;
  ASSERT_EQ(f.effect->SetImageSize(20, 12), VX_OK);
  Image src = Uniform(20, 12, 128), dst(20, 12);
  BlackMistParam p = Basic(src, dst, 1.0f, 2.0f, 200, 1);
  ASSERT_EQ(f.effect->Process(&p), VX_OK);
  ExpectAll(dst, 127, 127, 127, 255);

  // Custom weights of the full call replace the preset's: 0 and 1.0 keep the blend as it is.
  BlackMistFullParam full = FullOf(p, 20, 12);
  full.weight_blur = 0.0f;
  full.weight_src = 1.0f;
  ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
  ExpectAll(dst, 128, 128, 128, 255);
}

TEST(BlackMistResult, OutputModes) {
  Fixture f;
  const int32_t w = 21, h = 13;
  ASSERT_EQ(f.effect->SetImageSize(w, h), VX_OK);
  Image src(w, h), dst(w, h);
  src.FillRandom(5);
  BlackMistFullParam full = FullOf(Basic(src, dst, 1.2f, 2.0f, 90, 1), w, h);

  full.output_mode = 3;  // the source, unchanged
  ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
  EXPECT_EQ(dst.bytes, src.bytes);

  // Glow only: with every source pixel below the threshold the layer has no colour and the
  // source's alpha.
  Image dark = Uniform(w, h, 10, 77);
  full.src = dark.Desc();
  full.output_mode = 0;
  ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
  ExpectAll(dst, 0, 0, 0, 77);

  // The blurred blend: a uniform picture stays uniform (grey 128 under a screen of nothing).
  Image grey = Uniform(w, h, 128);
  full.src = grey.Desc();
  full.hlr_threshold = 250;
  full.output_mode = 1;
  ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
  ExpectAll(dst, 128, 128, 128, 255);
}

TEST(BlackMistResult, FullCallWithBasicDefaultsMatchesBasicCall) {
  Fixture f;
  const int32_t w = 37, h = 29;
  ASSERT_EQ(f.effect->SetImageSize(w, h), VX_OK);
  Image src(w, h), a(w, h), b(w, h);
  src.FillRandom(11);
  BlackMistParam p = Basic(src, a, 1.5f, 3.0f, 60, 2);
  ASSERT_EQ(f.effect->Process(&p), VX_OK);
  BlackMistFullParam full = FullOf(p, w, h);
  full.dst = b.Desc();
  full.weight_blur = 0.2f;  // preset 2's weights as custom weights
  full.weight_src = 0.8f;
  ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
  EXPECT_EQ(a.bytes, b.bytes);

  // A tint that changes nothing is still skipped only at exactly (0, 0, 1.0): brightness 0
  // takes every highlight colour away, so the glow-only output turns black.
  full.output_mode = 0;
  full.tint_brightness = 0.0f;
  ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) ASSERT_EQ(b.Pixel(x, y)[0] | b.Pixel(x, y)[1] | b.Pixel(x, y)[2], 0);
}

// A mask weights the thresholded colour: (200 - 100) x 128 / 256 = 50 at the key; with gain 1
// and no blur the curve maps 50 / 255 to about 0.1395, that is byte 35.
TEST(BlackMistResult, MaskWeightsTheHighlight) {
  Fixture f;
  const int32_t w = 16, h = 12;
  ASSERT_EQ(f.effect->SetImageSize(w, h), VX_OK);
  Image src = Uniform(w, h, 200), dst(w, h), mask(w, h, PIXEL_GRAY8);
  mask.Fill(128);
  BlackMistFullParam full = FullOf(Basic(src, dst, 0.5f, 0.0f, 100, 1), w, h);
  full.mask = mask.Desc();
  full.output_mode = 0;
  ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
  ExpectAll(dst, 35, 35, 35, 255);

  mask.Fill(0);
  ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
  ExpectAll(dst, 0, 0, 0, 255);
}

// A flat frame whose knee lands next to an integer: the key keeps (56, 53, 123) only when the
// knee term is a float product; the glow and the whole result follow from it.
TEST(BlackMistResult, KneeOfAFlatFrame) {
  Fixture f;
  ASSERT_EQ(f.effect->SetImageSize(8, 8), VX_OK);
  Image src(8, 8), dst(8, 8), key(4, 4);
  for (int32_t y = 0; y < 8; ++y)
    for (int32_t x = 0; x < 8; ++x) {
      const uint8_t px[4] = {56, 53, 123, 255};
      std::memcpy(src.Pixel(x, y), px, 4);
    }
  ASSERT_EQ(detect_highlights_plain(src.View(), key.View(), nullptr, nullptr, 0, SaturationRule::kRescaleWhenLit,
                                               ProcessRect{0, 0, 4, 4}),
            VX_OK);
  ExpectAll(key, 56, 53, 123, 255);

  BlackMistParam p = Basic(src, dst, 1.0f, 0.0f, 0, 1);
  ASSERT_EQ(f.effect->Process(&p), VX_OK);
  ExpectAll(dst, 118, 112, 246, 255);

  BlackMistFullParam full = FullOf(p, 8, 8);
  full.output_mode = 0;
  ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
  ExpectAll(dst, 81, 76, 240, 255);
}

TEST(BlackMistResult, RadiusZeroSkipsTheFirstBlur) {
  // A single bright pixel stays a single bright pixel in the half-size layer without a blur.
  Fixture f;
  const int32_t w = 32, h = 32;
  ASSERT_EQ(f.effect->SetImageSize(w, h), VX_OK);
  Image src = Uniform(w, h, 0), dst(w, h);
  for (int32_t y = 14; y < 18; ++y)
    for (int32_t x = 14; x < 18; ++x) std::fill(src.Pixel(x, y), src.Pixel(x, y) + 3, 255);
  BlackMistFullParam full = FullOf(Basic(src, dst, 1.0f, 0.0f, 0, 1), w, h);
  full.output_mode = 0;
  ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
  EXPECT_EQ(dst.Pixel(0, 0)[2], 0);
  EXPECT_EQ(dst.Pixel(15, 15)[2], 255);
  full.soft_radius = 4.0f;  // now the glow spreads to its neighbourhood
  ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
  EXPECT_GT(dst.Pixel(10, 16)[2], 0);
  EXPECT_LT(dst.Pixel(15, 15)[2], 255);
}

// A rectangle renders exactly the crop of the whole frame for every stage that works per pixel
// of the frame (the final blur works on the destination only, so it is left out here).
TEST(BlackMistRect, RectangleIsTheCropOfTheFrame) {
  Fixture f;
  const int32_t w = 33, h = 17;
  ASSERT_EQ(f.effect->SetImageSize(w, h), VX_OK);
  Image src(w, h), whole(w, h);
  src.FillRandom(21);
  BlackMistFullParam full = FullOf(Basic(src, whole, 1.3f, 2.0f, 40, 0), w, h);
  full.blur_blended = 0;
  for (int32_t mode : {0, 2, 3}) {
    full.output_mode = mode;
    full.dst = whole.Desc();
    full.process_rect = {0, 0, uint32_t(w), uint32_t(h)};
    ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
    const ProcessRect r{5, 3, 26, 11};
    Image part(21, 8, PIXEL_BGRA32, 12);  // padded rows
    full.dst = part.Desc();
    full.process_rect = r;
    ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
    for (int32_t y = 0; y < 8; ++y)
      ASSERT_EQ(0, std::memcmp(part.Pixel(0, y), whole.Pixel(5, 3 + y), 21 * 4)) << mode << " row " << y;
  }
}

TEST(BlackMistRect, SmallRectangleWithBlurStaysInside) {
  Fixture f;
  const int32_t w = 40, h = 30;
  ASSERT_EQ(f.effect->SetImageSize(w, h), VX_OK);
  Image src(w, h), dst(3, 2);
  src.FillRandom(8);
  BlackMistParam p = Basic(src, dst, 1.0f, 5.0f, 30, 1);
  p.process_rect = {37, 28, 40, 30};
  EXPECT_EQ(f.effect->Process(&p), VX_OK);
  p.process_rect = {10, 10, 10, 10};  // empty: nothing to write, but a real destination pointer
  p.dst.width = p.dst.height = 0;
  EXPECT_EQ(f.effect->Process(&p), VX_OK);
}

TEST(BlackMistSizes, OddFrameSizes) {
  for (auto size : {std::make_pair(5, 7), std::make_pair(33, 17), std::make_pair(1921, 1081)}) {
    Fixture f;
    ASSERT_EQ(f.effect->SetImageSize(size.first, size.second), VX_OK);
    Image src(size.first, size.second), dst(size.first, size.second);
    src.FillRandom(uint32_t(size.first));
    BlackMistParam p = Basic(src, dst, 1.0f, float(std::max(size.first, size.second) / 8), 50, 0);
    EXPECT_EQ(f.effect->Process(&p), VX_OK) << size.first << "x" << size.second;
  }
}

// A side of one pixel halves to nothing: the downsampling stage refuses it.
TEST(BlackMistSizes, OnePixelSideFailsDownsamplingExceptSourceCopy) {
  Fixture f;
  ASSERT_EQ(f.effect->SetImageSize(1, 9), VX_OK);
  Image src(1, 9), dst(1, 9);
  src.FillRandom(3);
  BlackMistFullParam full = FullOf(Basic(src, dst), 1, 9);
  LogCapture log;
  EXPECT_EQ(f.effect->ProcessFull(&full), VX_E_FAIL);
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "[VNTX] [Vantyx](resize buff) - Return Code: 80004005\n");
  EXPECT_EQ(lines[1], "[VNTX] [Vantyx](downsampling src) - Return Code: 80004005\n");
  EXPECT_EQ(lines[2], "[VNTX] [Vantyx](total process) - Return Code: 80004005\n");
  full.output_mode = 3;
  EXPECT_EQ(f.effect->ProcessFull(&full), VX_OK);
  EXPECT_EQ(dst.bytes, src.bytes);
}

TEST(BlackMistLog, FailingStageThenTotalProcess) {
  Fixture f;
  ASSERT_EQ(f.effect->SetImageSize(8, 8), VX_OK);
  Image src(8, 8), dst(8, 8);
  BlackMistParam p = Basic(src, dst);
  p.dst.data = nullptr;  // nothing checks it before the first stage that writes it
  LogCapture log;
  EXPECT_EQ(f.effect->Process(&p), VX_E_POINTER);
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "[VNTX] [Vantyx](blending hlr to result) - Return Code: 80004003\n");
  EXPECT_EQ(lines[1], "[VNTX] [Vantyx](total process) - Return Code: 80004003\n");
}

TEST(BlackMistState, ResetDropsTheSize) {
  Fixture f;
  ASSERT_EQ(f.effect->SetImageSize(12, 12), VX_OK);
  Image src(12, 12), dst(12, 12);
  BlackMistParam p = Basic(src, dst);
  ASSERT_EQ(f.effect->Process(&p), VX_OK);
  EXPECT_EQ(f.effect->Reset(), VX_OK);
  EXPECT_EQ(f.effect->Process(&p), VX_E_INVALIDARG);
  ASSERT_EQ(f.effect->SetImageSize(12, 12), VX_OK);  // the same size builds again after Reset
  EXPECT_EQ(f.effect->Process(&p), VX_OK);
}

// The same frame gives the same bytes with the plain or fast kernels and with 1 or 8 workers.
TEST(BlackMistDeterminism, LevelsAndWorkersAgree) {
  const int32_t w = 203, h = 117;
  Image src(w, h);
  src.FillRandom(99);
  for (int32_t y = 20; y < 60; ++y)  // a bright block so that every stage has work
    for (int32_t x = 30; x < 90; ++x) std::fill(src.Pixel(x, y), src.Pixel(x, y) + 3, 250);
  Image mask(w, h, PIXEL_GRAY8);
  mask.FillRandom(4);
  for (int32_t variant = 0; variant < 4; ++variant) {
    Image reference(w, h);
    bool have_reference = false;
    for (auto run : {std::make_pair(1, int32_t(SIMD_SSE3)), std::make_pair(8, int32_t(SIMD_SSE3)),
                     std::make_pair(8, int32_t(SIMD_SSE41)), std::make_pair(3, int32_t(SIMD_SSE42))}) {
      if (run.second >= SIMD_SSE41 && !test::HasSse41()) continue;
      Fixture f(run.first, run.second);
      ASSERT_EQ(f.effect->SetImageSize(w, h), VX_OK);
      Image dst(w - 20, h - 10);
      BlackMistFullParam full = FullOf(Basic(src, dst, 1.4f, 20.0f, 70, 0), w, h);
      full.process_rect = {7, 4, uint32_t(w - 13), uint32_t(h - 6)};
      full.use_tone_mapping = variant & 1;
      full.blend_mode = variant == 2 ? 22 : 5;
      full.tint_amount = variant == 3 ? 0.4f : 0.0f;
      full.tint_hue = variant == 3 ? 0.6f : 0.0f;
      if (variant == 2) full.mask = mask.Desc();
      ASSERT_EQ(f.effect->ProcessFull(&full), VX_OK);
      if (!have_reference) {
        reference = dst;
        have_reference = true;
      } else {
        ASSERT_EQ(dst.bytes, reference.bytes) << "variant " << variant << " workers " << run.first
                                              << " level " << run.second;
      }
    }
  }
}

}  // namespace
}  // namespace Vantyx
