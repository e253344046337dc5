// Long use of one engine, as a host would run it: effects created and deleted over and over,
// thousands of small frames of changing sizes, rectangles, masks and settings, refusals mixed
// in. What must hold: every good frame succeeds, nothing leaks (LeakSanitizer checks that under
// the asan preset), and the same input gives the same bytes at the end as at the start.
//
// VANTYX_STRESS_SCALE multiplies the number of rounds (default 1, about 3000 frames); use a
// smaller fraction such as 0.25 on a slow machine under a sanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <vector>

#include "effects/blackmist/blackmist_effect.h"
#include "effects/halation/halation_effect.h"
#include "test_support.h"
#include "vantyx.h"

namespace Vantyx {
namespace {

using test::Image;

int32_t Rounds(int32_t base) {
  double scale = 1.0;
  if (const char* env = std::getenv("VANTYX_STRESS_SCALE")) scale = std::atof(env);
  return std::max(1, static_cast<int32_t>(base * scale));
}

// A small deterministic generator, so a failing round can be replayed.
class Dice {
 public:
  explicit Dice(uint32_t seed) : s_(seed ? seed : 1) {}
  uint32_t Next() {
    s_ ^= s_ << 13;
    s_ ^= s_ >> 17;
    s_ ^= s_ << 5;
    return s_;
  }
  int32_t In(int32_t lo, int32_t hi) { return lo + int32_t(Next() % uint32_t(hi - lo + 1)); }
  float Unit() { return float(Next() % 1001) / 1000.0f; }

 private:
  uint32_t s_;
};

// One frame's images and full record; the basic record is derived from it.
struct FrameInput {
  Image src, mask, dst;
  bool use_mask = false;
  bool full = true;
  BlackMistFullParam p{};

  BlackMistParam Basic() const {
    BlackMistParam b{};
    b.src = p.src;
    b.mask = p.mask;
    b.dst = p.dst;
    b.light_intensity = p.light_intensity;
    b.soft_radius = p.soft_radius;
    b.hlr_threshold = p.hlr_threshold;
    b.strength = p.strength;
    b.process_rect = p.process_rect;
    return b;
  }
  int32_t Run(BlackMistFull* effect) const {
    if (full) return effect->ProcessFull(&p);
    const BlackMistParam b = Basic();
    return effect->Process(&b);
  }
};

FrameInput MakeFrame(Dice& dice, int32_t w, int32_t h) {
  FrameInput f;
  f.src = Image(w, h, PIXEL_BGRA32, dice.In(0, 2) * 4 + dice.In(0, 3));
  f.src.FillRandom(dice.Next());
  f.use_mask = dice.In(0, 3) == 0;
  if (f.use_mask) {
    f.mask = Image(w, h, PIXEL_GRAY8, dice.In(0, 5));
    f.mask.FillRandom(dice.Next());
  }
  ProcessRect r;
  r.left = uint32_t(dice.In(0, w - 1));
  r.top = uint32_t(dice.In(0, h - 1));
  r.right = uint32_t(dice.In(int32_t(r.left) + 1, w));
  r.bottom = uint32_t(dice.In(int32_t(r.top) + 1, h));
  if (dice.In(0, 2) == 0) r = {0, 0, uint32_t(w), uint32_t(h)};
  f.dst = Image(int32_t(r.right - r.left), int32_t(r.bottom - r.top), PIXEL_BGRA32, dice.In(0, 3) * 4);
  f.dst.Fill(uint8_t(dice.Next()));

  BlackMistFullParam& p = f.p;
  p.src = f.src.Desc();
  p.mask = f.use_mask ? f.mask.Desc() : ImageDesc{};
  p.dst = f.dst.Desc();
  const int32_t max8 = std::max(w, h) / 8;
  p.light_intensity = 2.0f * dice.Unit();
  p.soft_radius = float(max8) * dice.Unit();
  p.hlr_threshold = uint32_t(dice.In(0, 255));
  p.tint_amount = dice.In(0, 1) ? 0.0f : dice.Unit();
  p.tint_hue = dice.In(0, 1) ? 0.0f : dice.Unit();
  p.tint_brightness = dice.In(0, 1) ? 1.0f : dice.Unit();
  p.blend_opacity = uint32_t(dice.In(0, 255));
  p.weight_blur = dice.Unit();
  p.weight_src = 1.0f - p.weight_blur;
  p.reserved_f = 1.0f;
  p.use_tone_mapping = uint8_t(dice.In(0, 1));
  p.keep_saturation = uint8_t(dice.In(0, 1));
  p.blur_blended = uint8_t(dice.In(0, 1));
  p.blend_blur_radius = float(dice.In(0, 3));
  p.blend_mode = dice.In(0, 28);
  p.output_mode = dice.In(0, 3);
  p.strength = dice.In(-1, 4);
  p.reserved_i = 1;
  p.process_rect = r;
  f.full = dice.In(0, 1) == 1;
  return f;
}

// The input compared at the start and the end: a mask, a sub-rectangle, the blurs and a tint.
FrameInput ReferenceFrame() {
  Dice dice(2024);
  FrameInput f = MakeFrame(dice, 37, 29);
  f.mask = Image(37, 29, PIXEL_GRAY8, 3);
  f.mask.FillRandom(5);
  f.use_mask = true;
  f.p.mask = f.mask.Desc();
  f.p.process_rect = {3, 2, 35, 27};
  f.dst = Image(32, 25, PIXEL_BGRA32, 8);
  f.p.dst = f.dst.Desc();
  f.p.soft_radius = 4.0f;
  f.p.blend_blur_radius = 2.0f;
  f.p.tint_amount = 0.4f;
  f.p.tint_hue = 0.6f;
  f.p.tint_brightness = 0.9f;
  f.p.blur_blended = 1;
  f.p.output_mode = 2;
  f.p.blend_mode = 5;
  f.full = true;
  return f;
}

std::vector<uint8_t> RunReference(BlackMistFull* effect) {
  FrameInput f = ReferenceFrame();
  EXPECT_EQ(effect->SetImageSize(37, 29), VX_OK);
  EXPECT_EQ(f.Run(effect), VX_OK);
  f.full = false;  // and the basic call, into the same destination
  EXPECT_EQ(f.Run(effect), VX_OK);
  return f.dst.bytes;
}

void SetLevel(BlackMistFull* effect, int32_t simd) {
  const CpuInfo info{4, simd, 0};
  static_cast<BlackMistEffect*>(effect)->SetCpuInfo(&info);
}

// A Halation frame of random settings over every view, or (reference) a fixed one.
struct HalationInput {
  Image src, dst;
  HalationParamsEx p{};
  bool full = true;
  int32_t Run(HalationFull* effect) const {
    if (full) return effect->ProcessFull(&p);
    const HalationParams b{p.src, p.mask, p.dst, p.opacity, p.highlight_threshold, p.blur_radius,
                           p.midtone_threshold, p.curve_strength, p.show_threshold, p.process_rect};
    return effect->Process(&b);
  }
};

HalationInput MakeHalationFrame(Dice& dice, int32_t w, int32_t h, bool reference = false) {
  HalationInput f;
  f.src = Image(w, h, PIXEL_BGRA32, dice.In(0, 2) * 4);
  f.src.FillRandom(dice.Next());
  ProcessRect r{0, 0, uint32_t(w), uint32_t(h)};
  if (dice.In(0, 1)) r = {uint32_t(dice.In(0, w - 1)), uint32_t(dice.In(0, h - 1)), uint32_t(w), uint32_t(h)};
  f.dst = Image(int32_t(r.right - r.left), int32_t(r.bottom - r.top));
  HalationParamsEx& p = f.p;
  p.src = f.src.Desc(), p.dst = f.dst.Desc(), p.process_rect = r;
  p.opacity = uint32_t(dice.In(0, 255));
  p.highlight_threshold = uint32_t(dice.In(0, 255));
  p.blur_radius = reference ? 9 : dice.In(0, 40);
  p.blur_radius_2 = uint32_t(p.blur_radius);
  p.midtone_threshold = uint32_t(dice.In(0, 255));
  p.curve_strength = uint32_t(dice.In(20, 100));
  p.show_threshold = uint32_t(dice.In(0, 255));
  p.keyer_gain = 2.0f * dice.Unit();
  p.tone_mapping = uint8_t(dice.In(0, 1));
  p.show_blur_mask = uint8_t(reference ? 0 : dice.In(0, 4) == 0);
  p.blend_mode = dice.In(0, 22);
  p.debug_view = reference ? 9 : dice.In(0, 10);
  f.full = reference || dice.In(0, 1);
  return f;
}

std::vector<uint8_t> RunHalationReference(HalationFull* effect) {
  Dice dice(2025);
  HalationInput f = MakeHalationFrame(dice, 41, 23, true);
  EXPECT_EQ(effect->SetImageSize(41, 23), VX_OK);
  EXPECT_EQ(f.Run(effect), VX_OK);
  f.full = false;
  EXPECT_EQ(f.Run(effect), VX_OK);
  return f.dst.bytes;
}

TEST(Stress, OneEngineManyEffectsAndFrames) {
  VantyxEngine* engine = nullptr;
  CreateVantyxEngine(&engine);
  ASSERT_NE(engine, nullptr);

  // A long-lived effect that sees every size change, and the reference from a fresh one.
  void* keeper = nullptr;
  ASSERT_EQ(engine->CreateEffect(&keeper, EFFECT_BLACKMIST), VX_OK);
  const std::vector<uint8_t> first = RunReference(AsBlackMistFull(keeper));
  void* halation_keeper = nullptr;
  ASSERT_EQ(engine->CreateEffect(&halation_keeper, EFFECT_HALATION), VX_OK);
  HalationFull* const glow_keeper = AsHalationFull(halation_keeper);
  const std::vector<uint8_t> first_glow = RunHalationReference(glow_keeper);

  Dice dice(77);
  const int32_t rounds = Rounds(300);
  int32_t frames = 0;
  std::vector<void*> left_alive;  // handed to DeleteVantyxEngine at the end
  for (int32_t round = 0; round < rounds; ++round) {
    void* handle = nullptr;
    ASSERT_EQ(engine->CreateEffect(&handle, EFFECT_BLACKMIST), VX_OK);
    BlackMistFull* effect = AsBlackMistFull(handle);
    SetLevel(effect, test::HasSse41() && dice.In(0, 1) ? SIMD_SSE41 : SIMD_NONE);

    // Families not built yet answer 0x80004001 and create nothing; a built one is made and
    // deleted again.
    void* other = nullptr;
    const uint32_t other_type = uint32_t(dice.In(3, 4));
    const int32_t other_rc = engine->CreateEffect(&other, other_type);
    EXPECT_TRUE(other_rc == VX_OK || other_rc == VX_E_NOTIMPL) << std::hex << other_rc;
    if (other) {
      EXPECT_EQ(engine->DeleteEffect(&other, other_type), VX_OK);
    }

    for (int32_t size_change = 0; size_change < 3; ++size_change) {
      const int32_t w = dice.In(2, 40), h = dice.In(2, 40);
      ASSERT_EQ(effect->SetImageSize(w, h), VX_OK);
      BlackMistFull* const keeper_effect = AsBlackMistFull(keeper);
      if (size_change == 0) {
        ASSERT_EQ(keeper_effect->SetImageSize(w, h), VX_OK);
      }
      for (int32_t n = 0; n < 3; ++n) {
        FrameInput f = MakeFrame(dice, w, h);
        ASSERT_EQ(f.Run(effect), VX_OK) << "round " << round << " size " << w << "x" << h;
        if (size_change == 0 && n == 0) {
          ASSERT_EQ(f.Run(keeper_effect), VX_OK);
        }
        ++frames;
      }
      // A refusal in between changes nothing for the frames after it.
      FrameInput bad = MakeFrame(dice, w, h);
      bad.p.light_intensity = std::numeric_limits<float>::quiet_NaN();
      EXPECT_EQ(bad.Run(effect), VX_E_INVALIDARG);
      // The Halation keeper on the same pool: a frame of the same size, then a refusal.
      ASSERT_EQ(glow_keeper->SetImageSize(w, h), VX_OK);
      HalationInput g = MakeHalationFrame(dice, w, h);
      ASSERT_EQ(g.Run(glow_keeper), VX_OK) << "round " << round << " halation " << w << "x" << h;
      g.p.blend_mode = 23, g.full = true;
      EXPECT_EQ(g.Run(glow_keeper), VX_E_INVALIDARG);
      ++frames;
    }
    if (dice.In(0, 4) == 0) {
      ASSERT_EQ(effect->Reset(), VX_OK);
    }

    if (dice.In(0, 9) == 0) {
      left_alive.push_back(handle);
    } else {
      ASSERT_EQ(engine->DeleteEffect(&handle, EFFECT_BLACKMIST), VX_OK);
      EXPECT_EQ(handle, nullptr);
    }
  }
  EXPECT_GT(frames, 0);

  // The long-lived effects and fresh ones give the first results again.
  EXPECT_EQ(RunReference(AsBlackMistFull(keeper)), first);
  EXPECT_EQ(RunHalationReference(glow_keeper), first_glow);
  void* fresh_glow = nullptr;
  ASSERT_EQ(engine->CreateEffect(&fresh_glow, EFFECT_HALATION), VX_OK);
  EXPECT_EQ(RunHalationReference(AsHalationFull(fresh_glow)), first_glow);
  void* fresh = nullptr;
  ASSERT_EQ(engine->CreateEffect(&fresh, EFFECT_BLACKMIST), VX_OK);
  EXPECT_EQ(RunReference(AsBlackMistFull(fresh)), first);

  // Effects still alive go with the engine.
  DeleteVantyxEngine(&engine);
  EXPECT_EQ(engine, nullptr);
}

// Engines themselves come and go: each owns a pool of workers that must be joined and freed.
TEST(Stress, EnginesComeAndGo) {
  std::vector<uint8_t> first;
  const int32_t rounds = Rounds(40);
  for (int32_t i = 0; i < rounds; ++i) {
    VantyxEngine* engine = nullptr;
    CreateVantyxEngine(&engine);
    ASSERT_NE(engine, nullptr);
    void* handle = nullptr;
    ASSERT_EQ(engine->CreateEffect(&handle, EFFECT_BLACKMIST), VX_OK);
    SetLevel(AsBlackMistFull(handle), SIMD_NONE);
    const std::vector<uint8_t> out = RunReference(AsBlackMistFull(handle));
    if (i == 0) {
      first = out;
    } else {
      ASSERT_EQ(out, first) << "engine " << i;
    }
    if (i % 2) {
      ASSERT_EQ(engine->DeleteEffect(&handle, EFFECT_BLACKMIST), VX_OK);
    }
    DeleteVantyxEngine(&engine);
  }
}

}  // namespace
}  // namespace Vantyx
