// The glow pipeline's fused passes against its stage-by-stage form, and the exactness claims
// its fast kernels rest on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "core/thread_pool.h"
#include "effects/blackmist/blackmist_effect.h"
#include "harness.h"
#include "effects/blackmist/blackmist_kernels.h"
#include "imageops/box_blur.h"
#include "imageops/box_blur_internal.h"
#include "imageops/highlight.h"
#include "test_support.h"

namespace Vantyx {
namespace {

using test::Image;

// The frames' parameters. The blurred blend: output modes 1 and 2, blend radii of 2 to 24 (the
// rows of neighbouring strips in every window), a half-size blur, an opacity of 0 on some
// frames (the blur then works on the destination's own bytes), weights of any sign. The other
// kind: every output mode, blend radii of none, one and past the fused passes' limit. (Records
// that fail a stage are HandPickedRecordsFusedOrNot's.)
BlackMistFullParam DrawFull(test::Frame& f, bool blurred_blend) {
  const float max_radius = float(std::max(f.width, f.height) / 8);
  BlackMistFullParam p{};
  f.Place(p);
  p.light_intensity = f.Float(0, 2);
  p.soft_radius = blurred_blend ? f.Float(max_radius / 2, max_radius) : f.Float(0, max_radius);
  p.hlr_threshold = uint32_t(f.Int(0, 255));
  p.tint_amount = f.Pick({0, 1}) ? f.Float(0, 1.5f) : 0.0f;
  p.tint_hue = f.Float(0, 1);
  p.tint_brightness = f.Float(0, 1);
  p.blend_opacity = uint32_t(f.Pick({0, 255, f.Int(1, 254)}));
  p.weight_blur = f.Float(-1.2f, 2.2f);
  p.weight_src = f.Float(-1.2f, 2.2f);
  p.use_tone_mapping = uint8_t(f.Int(0, 1));
  p.keep_saturation = uint8_t(f.Int(0, 1));
  p.strength = f.Int(-1, 4);
  if (blurred_blend) {
    p.blur_blended = 1;
    p.blend_blur_radius = f.Float(2, 24);
    p.blend_mode = f.Int(0, 28);
    p.output_mode = f.Pick({1, 2});
  } else {
    p.blur_blended = uint8_t(f.Int(0, 1));
    p.blend_blur_radius = float(f.Pick({0, 1, 140, 400}));
    p.blend_mode = f.Int(0, 28);
    p.output_mode = f.Int(0, 3);
  }
  return p;
}

// One frame's call on its own pool of `workers` (0: the harness's pool), fused or not.
int32_t RunFull(CThreadPool* pool, const CpuInfo& cpu, test::Frame& f, int32_t workers, bool fused,
                bool blurred_blend, const std::function<void(BlackMistFullParam&)>& adjust = nullptr) {
  CThreadPool own;
  if (workers > 0) own.Create(workers);
  BlackMistEffect effect(workers > 0 ? &own : pool);
  effect.SetCpuInfo(&cpu);
  effect.UseFusedPasses(fused);
  const int32_t rc = effect.SetImageSize(f.width, f.height);
  if (rc < 0) return rc;
  BlackMistFullParam p = DrawFull(f, blurred_blend);
  if (adjust) adjust(p);
  return effect.ProcessFull(&p);
}

// A destination of its own: one pixel wide (or high) at the middle of the frame, or the source
// itself (in place, over the whole frame; rows that other strips blur are rewritten meanwhile).
// What it holds afterwards goes into the harness's destination, which is compared.
int32_t RunOwnDestination(CThreadPool* pool, const CpuInfo& cpu, test::Frame& f, int32_t kind) {
  const uint32_t w = uint32_t(f.width), h = uint32_t(f.height);
  const ProcessRect rects[] = {{w / 2, 0, w / 2 + 1, h}, {0, h / 2, w, h / 2 + 1}, {0, 0, w, h}};
  const ProcessRect rect = rects[kind];
  Image own(int32_t(rect.right - rect.left), int32_t(rect.bottom - rect.top));
  if (kind == 2) std::memcpy(own.bytes.data(), f.src.data, own.bytes.size());
  else own.FillRandom(7);
  ImageDesc src = f.src;
  if (kind == 2) src.data = own.bytes.data(), src.stride = uint32_t(own.stride);
  const int32_t rc = RunFull(pool, cpu, f, 0, true, true, [&](BlackMistFullParam& p) {
    p.src = src;
    p.dst = own.Desc();
    p.process_rect = rect;
  });
  const size_t row = std::min<size_t>(size_t(own.stride), size_t(f.dst.width) * 4);
  for (int32_t y = 0; y < std::min<int32_t>(own.height, int32_t(f.dst.height)); ++y)
    std::memcpy(static_cast<uint8_t*>(f.dst.data) + size_t(y) * f.dst.stride, own.Pixel(0, y), row);
  return rc;
}

// Fused from level 5, stage by stage below it (and in the third row at every level): the same
// codes and bytes with 1, 3 and 8 workers (the fused rows draw a pool of one worker on some
// frames, at every level).
TEST(GlowFused, SameBytesAsStageByStage) {
  using test::EffectRow;
  using test::Frame;
  test::ExpectEffectRunsAgree({
      EffectRow{"fused, blurred blend", [](CThreadPool* pool, const CpuInfo& c, Frame& f) {
                  return RunFull(pool, c, f, f.Pick({0, 0, 1}), true, true);
                }},
      EffectRow{"fused, every mode and radius", [](CThreadPool* pool, const CpuInfo& c, Frame& f) {
                  return RunFull(pool, c, f, f.Pick({0, 0, 1}), true, false);
                }},
      EffectRow{"stage by stage", [](CThreadPool* pool, const CpuInfo& c, Frame& f) {
                  return RunFull(pool, c, f, 0, false, true);
                }},
      EffectRow{"own destination", [](CThreadPool* pool, const CpuInfo& c, Frame& f) {
                  return RunOwnDestination(pool, c, f, f.Int(0, 2));
                }},
  });
}

struct Outcome {
  int32_t code = 0;
  std::vector<std::string> log;
  std::vector<uint8_t> dst;
};

// Hand-picked records at level 5, fused or not: the same code, log lines and bytes. Failing
// stages (a negative blend radius, an unknown blend mode, no destination, a frame too narrow to
// halve), and a white frame whose blend radius of 140 sums windows of 279 rows of 255, past
// 16 bits (the stage-by-stage form must take it).
TEST(GlowFused, HandPickedRecordsFusedOrNot) {
  if (!test::HasSse41()) GTEST_SKIP();
  const struct {
    int32_t w, h;
    float blend_radius;
    int32_t blend_mode;
    bool dst_null, white;
  } cases[] = {{40, 30, -3.0f, 5, false, false}, {40, 30, 4.0f, 29, false, false},
               {40, 30, 4.0f, 5, true, false},   {1, 9, 4.0f, 5, false, false},
               {24, 600, 140.0f, 5, false, true}};
  for (const auto& c : cases) {
    Outcome runs[2];
    for (int fused = 0; fused < 2; ++fused) {
      CThreadPool pool;
      pool.Create(3);
      BlackMistEffect effect(&pool);
      const CpuInfo cpu{3, SIMD_SSE41, 0};
      effect.SetCpuInfo(&cpu);
      effect.UseFusedPasses(fused != 0);
      ASSERT_EQ(effect.SetImageSize(c.w, c.h), VX_OK);
      Image src(c.w, c.h), dst(c.w, c.h);
      if (c.white) src.Fill(255); else src.FillRandom(3);
      BlackMistFullParam p{};
      p.src = src.Desc();
      p.dst = dst.Desc();
      if (c.dst_null) p.dst.data = nullptr;
      p.light_intensity = 1.0f;
      p.tint_brightness = 1.0f;
      p.blend_opacity = 255;
      p.weight_blur = 0.5f;
      p.weight_src = 0.5f;
      p.blur_blended = 1;
      p.blend_blur_radius = c.blend_radius;
      p.blend_mode = c.blend_mode;
      p.output_mode = 2;
      p.process_rect = {0, 0, uint32_t(c.w), uint32_t(c.h)};
      test::LogCapture log;
      runs[fused].code = effect.ProcessFull(&p);
      runs[fused].log = log.Lines();
      runs[fused].dst = dst.bytes;
    }
    const std::string where = std::to_string(c.w) + "x" + std::to_string(c.h);
    EXPECT_EQ(runs[0].code < 0, !c.white) << where;
    EXPECT_EQ(runs[1].code, runs[0].code) << where;
    EXPECT_EQ(runs[1].log, runs[0].log) << where;
    EXPECT_TRUE(runs[1].dst == runs[0].dst) << where;
  }
}

// The fused passes' blurs, both passes of a direction at once, against two plain passes: along
// rows one row at a time, down columns streamed through rings of rows (floats in the plain
// form's order, bytes in 16-bit sums).
int32_t TwoPasses(test::Case& c, bool rows) {
  const ImageView img = c.View(0);
  const ProcessRect a = c.Area(0);
  const int32_t n = int32_t(rows ? a.right - a.left : a.bottom - a.top);
  // Byte sums stay within 16 bits up to windows of 257 (the fused passes keep r <= 128).
  const int32_t drawn = c.Pick({1, 2, 3, 8, n / 2 + 1, n, c.Int(1, 128)});
  const int32_t r = img.format == PIXEL_FLOAT96 ? drawn : std::min(drawn, 128);
  if (!c.Fast()) {
    for (int pass = 0; pass < 2; ++pass)
      if (const int32_t rc = (rows ? box_blur_rows_plain : box_blur_cols_plain)(img, nullptr, r, c.strip)) return rc;
    return 0;
  }
  const Area s = Clip(AreaOf(c.strip), img);
  if (s.Empty()) return 0;
  const bool floats = img.format == PIXEL_FLOAT96;
  const int32_t w = s.right - s.left, h = s.bottom - s.top, bytes = w * (floats ? 12 : 4);
  if (rows) {
    std::vector<float> x(size_t(w) * 3 + 1), y(size_t(w) * 3 + 1);
    for (int32_t row = s.top; row < s.bottom; ++row) {
      uint8_t* p = img.At(s.left, row);
      uint8_t* mid = reinterpret_cast<uint8_t*>(y.data());
      std::memcpy(x.data(), p, size_t(bytes));
      const float *xp = x.data(), *yp = y.data();
      if (floats) {
        detail::BoxBlurF96RowsSse41(&mid, &xp, 1, w, r);
        detail::BoxBlurF96RowsSse41(&p, &yp, 1, w, r);
      } else {
        detail::BoxBlurBgraRowSse41(p, mid, w, r);
        detail::BoxBlurBgraRowSse41(mid, p, w, r);
      }
    }
    return 0;
  }
  detail::ColumnBoxStream first, second;
  first.Init(floats, h, r, 0, h, bytes);
  second.Init(floats, h, r, 0, h, bytes);
  std::vector<uint8_t> ring(size_t(second.Capacity()) * size_t(bytes)), out(size_t(h) * size_t(bytes));
  for (int32_t i = 0; i < h; ++i) {
    first.Push(i, img.At(s.left, s.top + i));
    for (int32_t j; (j = first.Ready()) >= 0;) {
      uint8_t* v = ring.data() + size_t(j % second.Capacity()) * size_t(bytes);
      first.EmitSse41(v);
      second.Push(j, v);
      for (int32_t k; (k = second.Ready()) >= 0;) second.EmitSse41(out.data() + size_t(k) * size_t(bytes));
    }
  }
  for (int32_t i = 0; i < h; ++i)
    std::memcpy(img.At(s.left, s.top + i), out.data() + size_t(i) * size_t(bytes), size_t(bytes));
  return 0;
}

TEST(GlowKernels, BothBlurPassesAtOnceMatchTwoPlainPasses) {
  const std::vector<uint32_t> formats = {PIXEL_BGRA32, PIXEL_FLOAT96};
  test::ExpectFormsAgree(
      {test::KernelRow("rows, twice", {formats}, [](test::Case& c) { return TwoPasses(c, true); }),
       test::KernelRow("columns, twice", {formats}, [](test::Case& c) { return TwoPasses(c, false); })
           .Columns()});
}

// Every `step`-th colour once, 4096 to a row (alpha varies too).
Image EveryColour(uint32_t step) {
  Image img(4096, int32_t((1u << 24) / step / 4096));
  for (uint32_t k = 0; k < uint32_t(img.width * img.height); ++k) {
    const uint32_t c = k * step;
    uint8_t* p = img.bytes.data() + 4 * size_t(k);
    p[0] = uint8_t(c), p[1] = uint8_t(c >> 8), p[2] = uint8_t(c >> 16), p[3] = uint8_t(c * 7);
  }
  return img;
}

// The fast key has its own knee: on every colour it keys as the plain one, at thresholds where
// the knee fades nearly every pixel, some and few, and under each saturation rule.
TEST(GlowKernels, FastKeyMatchesPlainOnEveryColour) {
  if (!test::HasSse41()) GTEST_SKIP();
  Image src = EveryColour(1);
  const ProcessRect all{0, 0, 4096, 4096};
  const struct {
    uint32_t threshold;
    SaturationRule rule;
  } cases[] = {{0, SaturationRule::kNone}, {16, SaturationRule::kRescaleWhenLit},
               {160, SaturationRule::kRescaleWhenBrighter}};
  for (const auto& c : cases) {
    Image plain(4096, 4096), fast(4096, 4096);
    ASSERT_EQ(detect_highlights(src.View(), plain.View(), nullptr, nullptr, c.threshold, c.rule, all, SIMD_SSE3), 0);
    ASSERT_EQ(detect_highlights(src.View(), fast.View(), nullptr, nullptr, c.threshold, c.rule, all, SIMD_SSE41), 0);
    ASSERT_TRUE(plain == fast) << "threshold " << c.threshold;
  }
}

// The fast tint on every third colour (each channel takes every value): a light tint, and
// one past 1 at another hue with the brightness halved.
TEST(GlowKernels, FastTintMatchesPlainOnColours) {
  if (!test::HasSse41()) GTEST_SKIP();
  const Image src = EveryColour(3);
  const ProcessRect all{0, 0, uint32_t(src.width), uint32_t(src.height)};
  const float params[][3] = {{0.3f, 0.08f, 1.0f}, {1.5f, 0.99f, 0.5f}};
  for (const auto& p : params) {
    Image plain = src, fast = src;
    ASSERT_EQ(blackmist::adjust_color_plain(plain.View(), p[0], p[1], p[2], all), 0);
    ASSERT_EQ(blackmist::adjust_color_sse41(fast.View(), p[0], p[1], p[2], all), 0);
    ASSERT_TRUE(plain == fast) << "amount " << p[0];
  }
}

// The fused byte blurs round (S + c / 2) / c: for every count a window can have and every sum
// of that many bytes that is the plain form's trunc(double(S / c) + 0.5), and the 16-bit
// division gives it.
TEST(GlowKernels, WindowMeanRoundingAndDivision) {
  std::vector<uint16_t> n, q;
  for (int32_t c = 1; c <= 255; ++c) {
    const detail::ByteDivisor d = detail::MakeByteDivisor(c);
    n.clear();
    for (int32_t s = 0; s <= 255 * c; ++s) {
      const int32_t plain = int32_t(double(float(s) / float(c)) + 0.5);
      ASSERT_EQ((s + c / 2) / c, plain) << "sum " << s << " count " << c;
      n.push_back(uint16_t(s + d.half));
    }
    if (!test::HasSse41()) continue;
    q.resize(n.size());
    detail::BoxBlurDivideSse41(n.data(), q.data(), n.size(), d);
    for (size_t k = 0; k < n.size(); ++k) ASSERT_EQ(q[k], n[k] / c) << "n " << n[k] << " count " << c;
  }
}

}  // namespace
}  // namespace Vantyx
