// The glow pipeline's fused passes against its stage-by-stage form: every output mode, mask,
// rectangle, stride and radius gives the same bytes and the same code at levels below 5 and at
// 5 with 1, 3 and 8 workers, fused or not; a failing stage logs the same lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/thread_pool.h"
#include "effects/blackmist/blackmist_effect.h"
#include "test_support.h"

namespace Vantyx {
namespace {

using test::Image;

// Deterministic draws for one case.
struct Draw {
  uint32_t s;
  int32_t Int(int32_t lo, int32_t hi) {
    s ^= s << 13, s ^= s >> 17, s ^= s << 5;
    return lo + int32_t(s % uint32_t(hi - lo + 1));
  }
  float Float(float lo, float hi) { return lo + (hi - lo) * float(Int(0, 1 << 20)) / float(1 << 20); }
};

struct Frame {
  int32_t w, h;
  ProcessRect rect;
  bool mask;
};

// The frames: odd sizes, sub-rectangles one pixel wide or high, a frame too small to halve.
const Frame kFrames[] = {
    {5, 7, {0, 0, 5, 7}, false},       {33, 17, {3, 2, 30, 15}, true},
    {64, 3, {0, 0, 64, 3}, false},     {3, 64, {1, 0, 2, 64}, true},
    {203, 117, {7, 4, 190, 111}, true}, {203, 117, {0, 0, 203, 117}, false},
    {97, 61, {40, 0, 41, 61}, false},  {97, 61, {0, 30, 97, 31}, true},
    {1, 9, {0, 0, 1, 9}, false},       {400, 300, {0, 0, 400, 300}, false},
};

struct Outcome {
  int32_t code = 0;
  std::vector<uint8_t> dst;
  std::vector<std::string> log;
};

Outcome Render(const Frame& fr, Image& src, Image& mask, const Image& stale, const BlackMistFullParam& p0,
           int32_t level, int32_t workers, bool fused) {
  CThreadPool pool;
  pool.Create(workers);
  BlackMistEffect effect(&pool);
  const CpuInfo cpu{workers, level, 0};
  effect.SetCpuInfo(&cpu);
  effect.UseFusedPasses(fused);
  Outcome out;
  if ((out.code = effect.SetImageSize(fr.w, fr.h)) < 0) return out;
  Image dst = stale;
  BlackMistFullParam p = p0;
  p.src = src.Desc();
  p.mask = fr.mask ? mask.Desc() : ImageDesc{};
  p.dst = dst.Desc();
  p.process_rect = fr.rect;
  test::LogCapture log;
  out.code = effect.ProcessFull(&p);
  out.dst = dst.bytes;
  out.log = log.Lines();
  return out;
}

TEST(GlowFused, SameBytesAsStageByStage) {
  const struct {
    int32_t level, workers;
    bool fused;
  } configs[] = {{SIMD_SSE41, 1, true}, {SIMD_SSE41, 3, true}, {SIMD_SSE42, 8, true},
                 {SIMD_SSE41, 3, false}, {SIMD_SSE3, 8, true}};
  int32_t compared = 0;
  for (uint32_t seed = 1; seed <= 48; ++seed) {
    const Frame& fr = kFrames[seed % (sizeof(kFrames) / sizeof(kFrames[0]))];
    Draw d{seed * 2654435761u};
    Image src(fr.w, fr.h, PIXEL_BGRA32, d.Int(0, 2) * 4), mask(fr.w, fr.h, PIXEL_GRAY8, d.Int(0, 3));
    src.FillRandom(seed);
    mask.FillRandom(seed + 7);
    for (int32_t y = fr.h / 4; y < fr.h / 2; ++y)  // a bright block: every stage has work
      for (int32_t x = fr.w / 3; x < fr.w / 2 + 1; ++x) std::memset(src.Pixel(x, y), 250, 3);
    if (seed % 3 == 0)
      for (int32_t y = 0; y < fr.h; ++y)
        for (int32_t x = 0; x < fr.w; ++x) src.Pixel(x, y)[3] = 255;
    Image stale(int32_t(fr.rect.right - fr.rect.left), int32_t(fr.rect.bottom - fr.rect.top),
                PIXEL_BGRA32, d.Int(0, 1) * 8);
    stale.FillRandom(seed + 3);

    const int32_t max_side = std::max(fr.w, fr.h);
    BlackMistFullParam p{};
    p.light_intensity = d.Float(0.0f, 2.0f);
    p.soft_radius = d.Int(0, 3) == 0 ? 0.0f : d.Float(0.0f, float(max_side / 8));
    p.hlr_threshold = uint32_t(d.Int(0, 255));
    p.tint_amount = d.Int(0, 2) == 0 ? d.Float(0.0f, 1.5f) : 0.0f;
    p.tint_hue = p.tint_amount > 0.0f ? d.Float(0.0f, 1.0f) : 0.0f;
    p.tint_brightness = p.tint_amount > 0.0f ? d.Float(0.0f, 1.0f) : 1.0f;
    // Opacity 0 blends nothing: the blur then works on the destination's own bytes.
    const uint32_t opacities[] = {0, uint32_t(d.Int(1, 254)), 255, 255};
    p.blend_opacity = opacities[d.Int(0, 3)];
    p.weight_blur = d.Float(-0.5f, 1.5f);
    p.weight_src = d.Float(-0.5f, 1.5f);
    p.use_tone_mapping = uint8_t(d.Int(0, 1));
    p.keep_saturation = uint8_t(d.Int(0, 1));
    p.blur_blended = uint8_t(d.Int(0, 4) != 0);
    // Radii: none, one, small, longer than the frame, past the fused limit, negative.
    const float radii[] = {0.0f, 1.0f, 2.5f, d.Float(2.0f, 40.0f), 400.0f, 140.0f, -3.0f};
    p.blend_blur_radius = radii[d.Int(0, 6)];
    p.blend_mode = d.Int(0, 30) == 30 ? 29 : d.Int(0, 28);
    p.output_mode = d.Int(0, 5) > 3 ? 2 : d.Int(0, 3);
    p.strength = d.Int(-1, 4);

    // Bytes and codes against the plain stages; log lines against the fast stages (the
    // resampling kernel logs under its own name at each level).
    const Outcome reference = Render(fr, src, mask, stale, p, SIMD_SSE3, 1, false);
    const Outcome staged = test::HasSse41() ? Render(fr, src, mask, stale, p, SIMD_SSE41, 2, false) : reference;
    for (const auto& c : configs) {
      if (c.level >= SIMD_SSE41 && !test::HasSse41()) continue;
      const Outcome run = Render(fr, src, mask, stale, p, c.level, c.workers, c.fused);
      const std::string where = "seed " + std::to_string(seed) + " level " + std::to_string(c.level) +
                                " workers " + std::to_string(c.workers) + (c.fused ? " fused" : "");
      ASSERT_EQ(run.code, reference.code) << where;
      ASSERT_EQ(run.log, c.level >= SIMD_SSE41 ? staged.log : reference.log) << where;
      ASSERT_TRUE(run.dst == reference.dst) << where;
      ++compared;
    }
  }
  EXPECT_GT(compared, 0);
}

}  // namespace
}  // namespace Vantyx
