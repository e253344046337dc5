#include "effects/blackmist/blackmist_effect.h"

#include <algorithm>
#include <new>

#include "effects/blackmist/blackmist_kernels.h"
#include "engine/effect_factory.h"
#include "imageops/blend.h"
#include "imageops/colour.h"
#include "imageops/pixel_ops.h"

namespace Vantyx {

namespace {

// The contrast curve laid over the picture when tone mapping is on: shadows lifted slightly,
// upper mid-tones dipped below identity.
const CurvePoint kToneCurve[] = {{0, 0},     {30, 38},   {45, 50},   {60, 60},  {70, 65},
                                 {100, 92},  {150, 142}, {200, 193}, {255, 255}};

constexpr float kLightCurve = -0.25f;  // S-shaped contrast through the middle grey

int32_t MaxSide8(int32_t w, int32_t h) { return std::max(w, h) / 8; }

// The row stages BlackMist gives the glow pipeline.
struct Tint {
  float amount, hue, brightness;
  int32_t level;
  blackmist::TintTable table;  // of (amount, hue), built once a frame for the fast form
};
int32_t TintRow(const void* ctx, uint8_t* row, int32_t pixels) {
  const Tint& t = *static_cast<const Tint*>(ctx);
  return blackmist::adjust_color(PixelRow(row, pixels), t.amount, t.hue, t.brightness,
                                 PixelRowRect(pixels), t.level, &t.table);
}

struct Weights {
  int32_t blur, src, level;
};
int32_t WeightRow(const void* ctx, uint8_t* blurred, uint8_t* dst, int32_t pixels) {
  const Weights& w = *static_cast<const Weights*>(ctx);
  return weighting_sum(PixelRow(blurred, pixels), PixelRow(dst, pixels), w.blur, w.src,
                       PixelRowRect(pixels), w.level);
}

}  // namespace

BlackMistEffect::BlackMistEffect(CThreadPool* pool)
    : GlowEffect(pool, 0.5f, kToneCurve, int32_t(sizeof(kToneCurve) / sizeof(kToneCurve[0]))) {
  Reset();
}

BlackMistEffect::~BlackMistEffect() = default;

BlackMistEffect::Preset BlackMistEffect::PresetFor(int32_t strength) {
  switch (strength) {
    case 0: return {1.25f, 1.25, 0.35f, 0.65f};
    case 1: return {1.0f, 1.0, 0.27f, 0.73f};
    case 2: return {1.0f, 0.7, 0.2f, 0.8f};
    case 3: return {1.0f, 0.4, 0.1f, 0.9f};
    default: return {1.0f, 1.0, 0.0f, 1.0f};
  }
}

int32_t BlackMistEffect::Reset() {
  m_light_intensity = 0.0f;
  m_soft_radius = 0.0f;
  m_hlr_threshold = 0;
  m_tint_amount = 0.0f;
  m_tint_hue = 0.0f;
  m_tint_brightness = 1.0f;
  m_blend_opacity = 255;
  m_weight_blur = 0.0f;
  m_weight_src = 1.0f;
  m_reserved_f = 1.0f;
  m_use_tone_mapping = 0;
  m_keep_saturation = 0;
  m_blur_blended = 0;
  m_blend_blur_radius = 0.0f;
  m_blend_mode = 23;
  m_output_mode = 2;
  m_strength = 1;
  m_reserved_i = 1;
  m_custom_weights = false;
  DropFrame();
  m_aligned_src.data.reset();
  m_aligned_hlr.data.reset();
  ClearSizes();
  return VX_OK;
}

int32_t BlackMistEffect::CheckParameters(float intensity, float radius, uint32_t threshold) const {
  const float max_radius = float(MaxSide8(m_img_w, m_img_h));
  if (intensity < 0.0f || intensity > 2.0f || radius < 0.0f || radius > max_radius || threshold > 255)
    return VX_E_INVALIDARG;
  return VX_OK;
}

int32_t BlackMistEffect::Process(const BlackMistParam* param) {
  if (!param) return VX_E_POINTER;
  const BlackMistParam& p = *param;
  VANTYX_STAGE(CheckFrame(p.src, p.mask, p.dst, p.process_rect));
  VANTYX_STAGE(CheckParameters(p.light_intensity, p.soft_radius, p.hlr_threshold));
  if (!AllFinite({p.light_intensity, p.soft_radius})) return VX_E_INVALIDARG;

  StoreFrame(p.src, p.mask, p.dst, p.process_rect);
  m_light_intensity = p.light_intensity;
  m_soft_radius = p.soft_radius;
  m_hlr_threshold = p.hlr_threshold;
  m_strength = p.strength;
  m_tint_amount = 0.0f;
  m_tint_hue = 0.0f;
  m_tint_brightness = 1.0f;
  m_blend_opacity = 255;
  m_weight_blur = 0.27f;
  m_weight_src = 0.73f;
  m_reserved_f = 1.0f;
  m_use_tone_mapping = 0;
  m_keep_saturation = 1;
  m_blur_blended = 1;
  m_blend_blur_radius = float(MaxSide8(m_img_w, m_img_h)) * 0.06f;
  m_blend_mode = 5;
  m_output_mode = 2;
  m_reserved_i = 1;
  m_custom_weights = false;
  return Run();
}

int32_t BlackMistEffect::ProcessFull(const BlackMistFullParam* param) {
  if (!param) return VX_E_POINTER;
  const BlackMistFullParam& p = *param;
  VANTYX_STAGE(CheckFrame(p.src, p.mask, p.dst, p.process_rect));
  VANTYX_STAGE(CheckParameters(p.light_intensity, p.soft_radius, p.hlr_threshold));
  if (p.tint_amount < 0.0f || p.tint_hue < 0.0f || p.tint_hue > 1.0f || p.blend_opacity > 255 ||
      p.tint_brightness < 0.0f || p.tint_brightness > 1.0f)
    return VX_E_INVALIDARG;
  if (!AllFinite({p.light_intensity, p.soft_radius, p.tint_amount, p.tint_hue, p.tint_brightness,
                  p.weight_blur, p.weight_src, p.reserved_f, p.blend_blur_radius}))
    return VX_E_INVALIDARG;

  StoreFrame(p.src, p.mask, p.dst, p.process_rect);
  m_light_intensity = p.light_intensity;
  m_soft_radius = p.soft_radius;
  m_hlr_threshold = p.hlr_threshold;
  m_tint_amount = p.tint_amount;
  m_tint_hue = p.tint_hue;
  m_tint_brightness = p.tint_brightness;
  m_blend_opacity = p.blend_opacity;
  m_weight_blur = p.weight_blur;
  m_weight_src = p.weight_src;
  m_reserved_f = p.reserved_f;
  m_use_tone_mapping = p.use_tone_mapping;
  m_keep_saturation = p.keep_saturation;
  m_blur_blended = p.blur_blended;
  m_blend_blur_radius = p.blend_blur_radius;
  m_blend_mode = p.blend_mode;
  m_output_mode = p.output_mode;
  m_strength = p.strength;
  m_reserved_i = p.reserved_i;
  m_custom_weights = true;
  return Run();
}

int32_t BlackMistEffect::Run() {
  const Preset preset = PresetFor(m_strength);
  GlowPlan plan;
  plan.output_mode = m_output_mode;
  plan.threshold = int32_t(m_hlr_threshold);  // checked: at most 255
  plan.rule = m_keep_saturation ? SaturationRule::kRescaleWhenLit : SaturationRule::kNone;
  const int32_t max_radius = (std::min(m_scaled_img_w, m_scaled_img_h) - 1) / 2;
  const float wanted = std::min(preset.radius_factor * m_soft_radius,
                                float(std::max(m_img_w, m_img_h)) * 0.125f);
  plan.soft_radius = std::min(max_radius, TruncToInt(2.0f * wanted * m_scale + 0.5f));
  plan.light_gain = float(2.0 * double(m_light_intensity) * preset.light_factor);
  plan.light_k = kLightCurve;
  plan.soft_blur_plain = true;

  Tint tint{m_tint_amount, m_tint_hue, m_tint_brightness, cpu.simd_level, {}};
  if (!(m_tint_amount == 0.0f && m_tint_hue == 0.0f && m_tint_brightness == 1.0f)) {
    if (Fast()) blackmist::BuildTintTable(m_tint_amount, m_tint_hue, &tint.table);
    plan.colour = RowStage{"adjust color", &TintRow, &tint};
  }
  TableStage tone{m_tone_lut.get(), {}};
  if (m_use_tone_mapping) plan.base[0] = tone.Stage("apply tone-mapping", Fast());
  plan.blend_index = BlendIndexForMode(m_blend_mode);
  plan.opacity = m_blend_opacity;
  plan.blur = m_blur_blended != 0;
  // The second radius takes m_scale although it blurs full-size rows, and nothing clamps it.
  plan.blur_radius = TruncToInt(2.0f * m_blend_blur_radius * m_scale + 0.5f);
  const float weight_blur = m_custom_weights ? m_weight_blur : preset.weight_blur;
  const float weight_src = m_custom_weights ? m_weight_src : preset.weight_src;
  const Weights weights{TruncToInt(weight_blur * 65536.0f), TruncToInt(weight_src * 65536.0f),
                        cpu.simd_level};
  plan.weight = WeightStage{"weighting sum", &WeightRow, &weights};

  const int32_t rc = RunGlow(plan);
  if (rc < 0) LogStageFailure("total process", rc);
  return rc < 0 ? rc : VX_OK;
}

int32_t NewBlackMistEffect(CThreadPool* pool, const CpuInfo& cpu, BlackMistFull** out) {
  BlackMistEffect* effect = new BlackMistEffect(pool);
  effect->SetCpuInfo(&cpu);
  *out = effect;
  return VX_OK;
}

}  // namespace Vantyx
