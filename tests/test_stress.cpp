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
#include <functional>
#include <limits>
#include <vector>

#include "effects/amberfade/amberfade_effect.h"
#include "effects/blackmist/blackmist_effect.h"
#include "effects/halation/halation_effect.h"
#include "effects/infrared/infrared_effect.h"
#include "harness.h"

namespace Vantyx {
namespace {

using test::Image;

int32_t Rounds(int32_t base) {
  const char* env = std::getenv("VANTYX_STRESS_SCALE");
  return std::max(1, static_cast<int32_t>(base * (env ? std::atof(env) : 1.0)));
}

// One frame's images and full record, drawn; `full` picks the call.
struct FrameInput {
  Image src, mask, dst;
  bool full = true;
  BlackMistFullParam p{};
  int32_t Run(BlackMistFull* effect) const {
    const BlackMistParam b{p.src,         p.mask,          p.dst,      p.light_intensity,
                           p.soft_radius, p.hlr_threshold, p.strength, p.process_rect};
    return full ? effect->ProcessFull(&p) : effect->Process(&b);
  }
};

FrameInput MakeFrame(test::Draws& d, int32_t w, int32_t h) {
  FrameInput f;
  f.src = Image(w, h, PIXEL_BGRA32, d.Int(0, 11));
  f.mask = Image(w, h, PIXEL_GRAY8, d.Int(0, 5));
  f.src.FillRandom(uint32_t(d.Int(0, 1 << 30)));
  f.mask.FillRandom(uint32_t(d.Int(0, 1 << 30)));
  const uint32_t l = uint32_t(d.Int(0, w - 1)), t = uint32_t(d.Int(0, h - 1));
  const ProcessRect r = d.Int(0, 2) ? ProcessRect{l, t, uint32_t(d.Int(int32_t(l) + 1, w)),
                                                  uint32_t(d.Int(int32_t(t) + 1, h))}
                                    : ProcessRect{0, 0, uint32_t(w), uint32_t(h)};
  f.dst = Image(int32_t(r.right - r.left), int32_t(r.bottom - r.top), PIXEL_BGRA32, d.Int(0, 3) * 4);
  f.dst.Fill(uint8_t(d.Int(0, 255)));
  BlackMistFullParam& p = f.p;
  p.src = f.src.Desc(), p.dst = f.dst.Desc(), p.process_rect = r;
  if (d.Int(0, 3) == 0) p.mask = f.mask.Desc();
  p.light_intensity = d.Float(0, 2), p.soft_radius = d.Float(0, float(std::max(w, h) / 8));
  p.hlr_threshold = uint32_t(d.Int(0, 255)), p.blend_opacity = uint32_t(d.Int(0, 255));
  p.tint_amount = d.Int(0, 1) ? 0.0f : d.Float(0, 1), p.tint_hue = d.Int(0, 1) ? 0.0f : d.Float(0, 1);
  p.tint_brightness = d.Int(0, 1) ? 1.0f : d.Float(0, 1);
  p.weight_blur = d.Float(0, 1), p.weight_src = 1.0f - p.weight_blur, p.reserved_f = 1.0f;
  p.use_tone_mapping = uint8_t(d.Int(0, 1)), p.keep_saturation = uint8_t(d.Int(0, 1));
  p.blur_blended = uint8_t(d.Int(0, 1)), p.blend_blur_radius = float(d.Int(0, 3));
  p.blend_mode = d.Int(0, 28), p.output_mode = d.Int(0, 3), p.strength = d.Int(-1, 4);
  p.reserved_i = 1;
  f.full = d.Int(0, 1) == 1;
  return f;
}

// The frame compared at the start and the end, through the full and then the basic call: a
// mask, a sub-rectangle, both blurs and a tint.
std::vector<uint8_t> RunReference(BlackMistFull* effect) {
  test::Draws d(2024);
  FrameInput f = MakeFrame(d, 37, 29);
  f.p.mask = f.mask.Desc();
  f.p.process_rect = {3, 2, 35, 27};
  f.dst = Image(32, 25, PIXEL_BGRA32, 8);
  f.p.dst = f.dst.Desc();
  f.p.soft_radius = 4.0f, f.p.blend_blur_radius = 2.0f, f.p.blur_blended = 1;
  f.p.tint_amount = 0.4f, f.p.tint_hue = 0.6f, f.p.tint_brightness = 0.9f;
  f.p.output_mode = 2, f.p.blend_mode = 5;
  EXPECT_EQ(effect->SetImageSize(37, 29), VX_OK);
  for (bool full : {true, false}) {
    f.full = full;
    EXPECT_EQ(f.Run(effect), VX_OK);
  }
  return f.dst.bytes;
}

void SetLevel(void* effect, int32_t simd) {
  const CpuInfo info{4, simd, 0};
  static_cast<BlackMistEffect*>(AsBlackMistFull(effect))->SetCpuInfo(&info);
}

// The other families, one row each: a frame of random settings (or, for the reference, fixed
// ones) through a random call, and a record the effect must refuse.
struct FamilyRun {
  Image src, dst;
  std::function<int32_t()> run, refused;
};
struct OtherFamily {
  uint32_t type;
  int32_t (*set_size)(void* effect, int32_t w, int32_t h);
  FamilyRun (*make)(void* effect, test::Draws& d, int32_t w, int32_t h, bool reference);
};

FamilyRun HalationFrame(void* handle, test::Draws& d, int32_t w, int32_t h, bool reference) {
  HalationFull* effect = AsHalationFull(handle);
  FamilyRun f;
  f.src = Image(w, h, PIXEL_BGRA32, d.Int(0, 2) * 4);
  f.src.FillRandom(uint32_t(d.Int(0, 1 << 30)));
  ProcessRect r{0, 0, uint32_t(w), uint32_t(h)};
  if (d.Int(0, 1)) r = {uint32_t(d.Int(0, w - 1)), uint32_t(d.Int(0, h - 1)), uint32_t(w), uint32_t(h)};
  f.dst = Image(int32_t(r.right - r.left), int32_t(r.bottom - r.top));
  HalationParamsEx p{};
  p.src = f.src.Desc(), p.dst = f.dst.Desc(), p.process_rect = r;
  p.opacity = uint32_t(d.Int(0, 255)), p.highlight_threshold = uint32_t(d.Int(0, 255));
  p.blur_radius = reference ? 9 : d.Int(0, 40), p.blur_radius_2 = uint32_t(p.blur_radius);
  p.midtone_threshold = uint32_t(d.Int(0, 255)), p.curve_strength = uint32_t(d.Int(20, 100));
  p.show_threshold = uint32_t(d.Int(0, 255)), p.keyer_gain = d.Float(0, 2);
  p.tone_mapping = uint8_t(d.Int(0, 1)), p.show_blur_mask = uint8_t(!reference && d.Int(0, 4) == 0);
  p.blend_mode = d.Int(0, 22), p.debug_view = reference ? 9 : d.Int(0, 10);
  const bool full = reference || d.Int(0, 1);
  f.run = [effect, p, full, reference] {
    const HalationParams b{p.src, p.mask, p.dst, p.opacity, p.highlight_threshold, p.blur_radius,
                           p.midtone_threshold, p.curve_strength, p.show_threshold, p.process_rect};
    const int32_t rc = full ? effect->ProcessFull(&p) : effect->Process(&b);
    return rc != VX_OK || !reference ? rc : effect->Process(&b);
  };
  f.refused = [effect, p]() mutable {
    p.blend_mode = 23;
    return effect->ProcessFull(&p);
  };
  return f;
}

FamilyRun InfraredFrame(void* handle, test::Draws& d, int32_t w, int32_t h, bool reference) {
  InfraredFull* effect = AsInfraredFull(handle);
  FamilyRun f;
  f.src = Image(w, h, PIXEL_BGRA32, d.Int(0, 2) * 4);
  f.src.FillRandom(uint32_t(d.Int(0, 1 << 30)));
  ProcessRect r{0, 0, uint32_t(w), uint32_t(h)};
  if (d.Int(0, 1)) r = {uint32_t(d.Int(0, w - 1)), uint32_t(d.Int(0, h - 1)), uint32_t(w), uint32_t(h)};
  f.dst = Image(int32_t(r.right - r.left), int32_t(r.bottom - r.top));
  InfraredParamsEx p{};
  p.src = f.src.Desc(), p.dst = f.dst.Desc(), p.process_rect = r;
  p.opacity = uint32_t(d.Int(0, 255)), p.show_original = uint32_t(!reference && d.Int(0, 4) == 0);
  p.hue_range = d.Float(0, 1), p.hue_start = d.Float(0, 1), p.hue_shift = d.Float(0, 1);
  p.saturation = d.Float(-1, 1), p.luminance = d.Float(-1, 1), p.saturation_threshold = d.Float(0, 1);
  p.hue_tolerance = uint32_t(d.Int(0, 360)), p.flag = 1, p.preset = uint32_t(d.Int(0, 2));
  p.blend_mode = d.Int(0, 22), p.debug_view = reference ? 9 : d.Int(-1, 13);
  const bool full = reference || d.Int(0, 1);
  f.run = [effect, p, full, reference] {
    const InfraredParams b{p.src, p.mask, p.dst, p.opacity, p.hue_shift, p.saturation,
                           p.luminance, p.hue_tolerance, p.preset, p.process_rect};
    const int32_t rc = full ? effect->ProcessFull(&p) : effect->Process(&b);
    return rc != VX_OK || !reference ? rc : effect->Process(&b);
  };
  f.refused = [effect, p]() mutable {
    p.hue_tolerance = 361;
    return effect->ProcessFull(&p);
  };
  return f;
}

// Amberfade's reference first runs a gamma of 1, so that the gamma after it is built by this
// object whatever gamma another object built last.
FamilyRun AmberfadeFrame(void* handle, test::Draws& d, int32_t w, int32_t h, bool reference) {
  AmberfadeFull* effect = AsAmberfadeFull(handle);
  FamilyRun f;
  f.src = Image(w, h, PIXEL_BGRA32, d.Int(0, 2) * 4);
  f.src.FillRandom(uint32_t(d.Int(0, 1 << 30)));
  ProcessRect r{0, 0, uint32_t(w), uint32_t(h)};
  if (d.Int(0, 1)) r = {uint32_t(d.Int(0, w - 1)), uint32_t(d.Int(0, h - 1)), uint32_t(w), uint32_t(h)};
  f.dst = Image(int32_t(r.right - r.left), int32_t(r.bottom - r.top));
  AmberfadeFullParam p{};
  p.src = f.src.Desc(), p.dst = f.dst.Desc(), p.process_rect = r;
  p.hlr_gain = d.Float(0, 2), p.blur_radius = d.Float(0, float(std::max(w, h) / 8));
  p.hlr_threshold = d.Int(-20, 255), p.intensity = d.Float(0, 5), p.gamma = d.Float(0, 1);
  p.colour = d.Float(-1, 2), p.cool_look = d.Int(0, 1), p.weight_tint = d.Float(0, 1);
  p.weight_result = 1.0f - p.weight_tint, p.contrast = d.Float(0, 2);
  p.adjust_colour_on = uint8_t(d.Int(0, 1)), p.blur_result_on = uint8_t(d.Int(0, 1));
  p.result_blur_radius = d.Float(0, 6), p.blend_mode = d.Int(0, 28);
  p.output_mode = reference ? 2 : d.Int(0, 3), p.derive_from_intensity = d.Int(0, 1);
  if (reference) p.cool_look = 1, p.blur_result_on = 1, p.gamma = 0.7f;
  const bool full = reference || d.Int(0, 1);
  f.run = [effect, p, full, reference]() -> int32_t {
    AmberfadeParam b{p.src, p.mask, p.dst, p.intensity, p.colour, p.gamma, uint8_t(p.cool_look), {}, p.process_rect};
    if (reference) {
      b.gamma = 1.0f;
      if (effect->Process(&b) != VX_OK) return int32_t(VX_E_FAIL);
      b.gamma = p.gamma;
    }
    const int32_t rc = full ? effect->ProcessFull(&p) : effect->Process(&b);
    return rc != VX_OK || !reference ? rc : effect->Process(&b);
  };
  f.refused = [effect, p]() mutable {
    p.gamma = 1.5f;
    return effect->ProcessFull(&p);
  };
  return f;
}

const OtherFamily kOtherFamilies[] = {
    {EFFECT_HALATION, [](void* e, int32_t w, int32_t h) { return AsHalationFull(e)->SetImageSize(w, h); },
     HalationFrame},
    {EFFECT_INFRARED, [](void* e, int32_t w, int32_t h) { return AsInfraredFull(e)->SetImageSize(w, h); },
     InfraredFrame},
    {EFFECT_AMBERFADE, [](void* e, int32_t w, int32_t h) { return AsAmberfadeFull(e)->SetImageSize(w, h); },
     AmberfadeFrame},
};

// A family's reference frame: the same bytes from a long-lived effect and a fresh one.
std::vector<uint8_t> FamilyReference(const OtherFamily& family, void* effect) {
  test::Draws d(2025);
  EXPECT_EQ(family.set_size(effect, 41, 23), VX_OK);
  FamilyRun f = family.make(effect, d, 41, 23, true);
  EXPECT_EQ(f.run(), VX_OK);
  return f.dst.bytes;
}

TEST(Stress, OneEngineManyEffectsAndFrames) {
  VantyxEngine* engine = nullptr;
  CreateVantyxEngine(&engine);
  ASSERT_NE(engine, nullptr);
  // A long-lived effect that sees every size change, and the reference from it when fresh.
  void* keeper = nullptr;
  ASSERT_EQ(engine->CreateEffect(&keeper, EFFECT_BLACKMIST), VX_OK);
  const std::vector<uint8_t> first = RunReference(AsBlackMistFull(keeper));
  std::vector<void*> family_keepers;
  std::vector<std::vector<uint8_t>> family_firsts;
  for (const OtherFamily& family : kOtherFamilies) {
    void* other = nullptr;
    ASSERT_EQ(engine->CreateEffect(&other, family.type), VX_OK);
    family_keepers.push_back(other);
    family_firsts.push_back(FamilyReference(family, other));
  }
  test::Draws d(77);
  for (int32_t round = 0, rounds = Rounds(300); round < rounds; ++round) {
    void* handle = nullptr;
    ASSERT_EQ(engine->CreateEffect(&handle, EFFECT_BLACKMIST), VX_OK);
    SetLevel(handle, test::HasSse41() && d.Int(0, 1) ? SIMD_SSE41 : SIMD_NONE);
    // Another family, made and deleted again if it is built.
    void* other = nullptr;
    const uint32_t other_type = uint32_t(d.Int(2, 4));
    const int32_t other_rc = engine->CreateEffect(&other, other_type);
    EXPECT_TRUE(other_rc == VX_OK || other_rc == VX_E_NOTIMPL) << std::hex << other_rc;
    if (other) {
      EXPECT_EQ(engine->DeleteEffect(&other, other_type), VX_OK);
    }
    for (int32_t size_change = 0; size_change < 3; ++size_change) {
      const int32_t w = d.Int(2, 40), h = d.Int(2, 40);
      ASSERT_EQ(AsBlackMistFull(handle)->SetImageSize(w, h), VX_OK);
      if (size_change == 0) {
        ASSERT_EQ(AsBlackMistFull(keeper)->SetImageSize(w, h), VX_OK);
      }
      for (int32_t n = 0; n < 3; ++n) {
        const FrameInput f = MakeFrame(d, w, h);
        ASSERT_EQ(f.Run(AsBlackMistFull(handle)), VX_OK) << "round " << round << ", " << w << "x" << h;
        if (size_change == 0 && n == 0) {
          ASSERT_EQ(f.Run(AsBlackMistFull(keeper)), VX_OK);
        }
      }
      // A refusal in between changes nothing for the frames after it.
      FrameInput bad = MakeFrame(d, w, h);
      bad.p.light_intensity = std::numeric_limits<float>::quiet_NaN();
      EXPECT_EQ(bad.Run(AsBlackMistFull(handle)), VX_E_INVALIDARG);
      // The other families' keepers on the same pool: a frame of this size, then a refusal.
      for (size_t i = 0; i < family_keepers.size(); ++i) {
        ASSERT_EQ(kOtherFamilies[i].set_size(family_keepers[i], w, h), VX_OK);
        FamilyRun f = kOtherFamilies[i].make(family_keepers[i], d, w, h, false);
        ASSERT_EQ(f.run(), VX_OK) << "round " << round << " type " << kOtherFamilies[i].type;
        EXPECT_EQ(f.refused(), VX_E_INVALIDARG);
      }
    }
    if (d.Int(0, 4) == 0) {
      ASSERT_EQ(AsBlackMistFull(handle)->Reset(), VX_OK);
    }
    if (d.Int(0, 9)) {  // else left alive for DeleteVantyxEngine
      ASSERT_EQ(engine->DeleteEffect(&handle, EFFECT_BLACKMIST), VX_OK);
      EXPECT_EQ(handle, nullptr);
    }
  }
  // The long-lived effects and fresh ones give the first results again.
  EXPECT_EQ(RunReference(AsBlackMistFull(keeper)), first);
  for (size_t i = 0; i < family_keepers.size(); ++i) {
    EXPECT_EQ(FamilyReference(kOtherFamilies[i], family_keepers[i]), family_firsts[i]);
    void* fresh_other = nullptr;
    ASSERT_EQ(engine->CreateEffect(&fresh_other, kOtherFamilies[i].type), VX_OK);
    EXPECT_EQ(FamilyReference(kOtherFamilies[i], fresh_other), family_firsts[i]);
  }
  void* fresh = nullptr;
  ASSERT_EQ(engine->CreateEffect(&fresh, EFFECT_BLACKMIST), VX_OK);
  EXPECT_EQ(RunReference(AsBlackMistFull(fresh)), first);
  DeleteVantyxEngine(&engine);
  EXPECT_EQ(engine, nullptr);
}

}  // namespace
}  // namespace Vantyx
