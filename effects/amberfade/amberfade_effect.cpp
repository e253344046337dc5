#include "effects/amberfade/amberfade_effect.h"

#include <algorithm>

#include "effects/amberfade/amberfade_kernels.h"
#include "engine/effect_factory.h"
#include "imageops/blend.h"
#include "imageops/colour.h"
#include "imageops/pixel_ops.h"

namespace Vantyx {

std::atomic<float> AmberfadeEffect::s_last_gamma{1.0f};

namespace {

// The glow's tone curve in the warm look: a lift of the mid-tones.
const CurvePoint kToneCurve[] = {{0, 0}, {128, 160}, {255, 255}};

constexpr float kLightCurve = -0.25f;

bool Within(float v, float lo, float hi) { return v >= lo && v <= hi; }  // false for NaN

// The row stages Amberfade gives the glow pipeline.
struct RedBlue {
  int32_t fb16, fr16;
};
int32_t RedBlueRow(const void* ctx, uint8_t* row, int32_t pixels) {
  const RedBlue& f = *static_cast<const RedBlue*>(ctx);
  return amberfade::shift_red_blue(PixelRow(row, pixels), f.fb16, f.fr16, PixelRowRect(pixels));
}

// The stages that have a fast form take the processor level with their table.
struct Gamma {
  const uint32_t* table;
  int32_t level;
};
int32_t GammaRow(const void* ctx, uint8_t* row, int32_t pixels) {
  const Gamma& g = *static_cast<const Gamma*>(ctx);
  return amberfade::apply_gamma(PixelRow(row, pixels), g.table, PixelRowRect(pixels), g.level);
}

struct Temperature {
  amberfade::TemperatureTable table;
  int32_t level;
};
int32_t TemperatureRow(const void* ctx, uint8_t* row, int32_t pixels) {
  const Temperature& t = *static_cast<const Temperature*>(ctx);
  return amberfade::adjust_temperature(PixelRow(row, pixels), t.table, PixelRowRect(pixels), t.level);
}

struct Blue {
  amberfade::BlueWeights weights;
  int32_t level;
};
int32_t BlueRow(const void* ctx, uint8_t* blurred, uint8_t* dst, int32_t pixels) {
  const Blue& b = *static_cast<const Blue*>(ctx);
  return amberfade::weight_blue(PixelRow(blurred, pixels), PixelRow(dst, pixels), b.weights,
                                PixelRowRect(pixels), b.level);
}

}  // namespace

AmberfadeEffect::AmberfadeEffect(CThreadPool* pool)
    : GlowEffect(pool, 0.5f, kToneCurve, int32_t(sizeof(kToneCurve) / sizeof(kToneCurve[0]))),
      m_gamma_lut(amberfade::kGammaSize, 0u) {
  Reset();
}

AmberfadeEffect::~AmberfadeEffect() = default;

// m_colour keeps its value.
int32_t AmberfadeEffect::Reset() {
  m_hlr_gain = 0.0f;
  m_blur_radius = 0.0f;
  m_hlr_threshold = 0;
  m_intensity = 1.0f;
  m_gamma = 1.0f;
  m_cool_look = 1;
  m_weight_tint = 0.0f;
  m_weight_result = 1.0f;
  m_contrast = 1.0f;
  m_adjust_colour_on = 0;
  m_blur_result_on = 0;
  m_result_blur_radius = 0.0f;
  m_blend_mode = 23;
  m_output_mode = 2;
  m_derive_from_intensity = 1;
  DropFrame();
  for (SmartBuffer* b : {&m_scaled_hlr, &m_scaled_src, &m_aligned_hlr, &m_aligned_src,
                         &m_scaled_img_f, &m_img_f})
    b->data.reset();
  m_mask_map = MaskMap{};
  ClearSizes();
  return VX_OK;
}

int32_t AmberfadeEffect::Process(const AmberfadeParam* param) {
  if (!param) return VX_E_POINTER;
  const AmberfadeParam& p = *param;
  VANTYX_STAGE(CheckFrame(p.src, p.mask, p.dst, p.process_rect));
  if (!Within(p.colour, -1.0f, 2.0f) || !Within(p.intensity, 0.0f, 5.0f) ||
      !Within(p.gamma, 0.0f, 1.0f))
    return VX_E_INVALIDARG;

  StoreFrame(p.src, p.mask, p.dst, p.process_rect);
  const float maxdim = float(std::max(m_img_w, m_img_h));
  m_intensity = p.intensity;
  m_colour = p.colour;
  m_gamma = p.gamma;
  m_cool_look = p.cool_look != 0;
  m_blur_radius = maxdim * 0.21f * 0.125f;
  m_result_blur_radius = maxdim * 0.125f;
  m_hlr_gain = 0.33f;
  m_hlr_threshold = 160;
  m_weight_tint = 0.27f;
  m_weight_result = 0.73f;
  m_contrast = 0.7f;
  m_adjust_colour_on = m_blur_result_on = 1;
  m_blend_mode = 5;
  m_output_mode = 2;
  m_derive_from_intensity = 1;
  m_full_params = false;
  return Run();
}

int32_t AmberfadeEffect::ProcessFull(const AmberfadeFullParam* param) {
  if (!param) return VX_E_POINTER;
  const AmberfadeFullParam& p = *param;
  VANTYX_STAGE(CheckFrame(p.src, p.mask, p.dst, p.process_rect));
  const float max_radius = float(std::max(m_img_w, m_img_h) / 8);
  if (!Within(p.hlr_gain, 0.0f, 2.0f) || !Within(p.blur_radius, 0.0f, max_radius) ||
      p.hlr_threshold > 255 || !Within(p.gamma, 0.0f, 1.0f))
    return VX_E_INVALIDARG;
  // The rest is unranged, but NaN and infinities are refused as in every frame record.
  if (!AllFinite({p.intensity, p.colour, p.weight_tint, p.weight_result, p.contrast,
                  p.result_blur_radius}))
    return VX_E_INVALIDARG;

  StoreFrame(p.src, p.mask, p.dst, p.process_rect);
  m_hlr_gain = p.hlr_gain;
  m_blur_radius = p.blur_radius;
  m_hlr_threshold = p.hlr_threshold;
  m_intensity = p.intensity;
  m_gamma = p.gamma;
  m_colour = p.colour;
  m_cool_look = p.cool_look != 0;
  m_weight_tint = p.weight_tint;
  m_weight_result = p.weight_result;
  m_contrast = p.contrast;
  m_adjust_colour_on = p.adjust_colour_on;
  m_blur_result_on = p.blur_result_on;
  m_result_blur_radius = p.result_blur_radius;
  m_blend_mode = p.blend_mode;
  m_output_mode = p.output_mode;
  m_derive_from_intensity = p.derive_from_intensity;
  m_full_params = true;
  return Run();
}

int32_t AmberfadeEffect::Run() {
  const int32_t maxdim = std::max(m_img_w, m_img_h);
  const bool cool = m_cool_look != 0;
  if (m_derive_from_intensity) {
    const double s = m_intensity, side = maxdim;
    if (cool) {
      m_hlr_gain = float(0.33 * s);
      m_blur_radius = float((s > 1.0 ? 2.0 * s : s) * 0.21 * side * 0.125);
      m_hlr_threshold = 160;
    } else {
      m_hlr_gain = float(0.066 * s * s);
      m_blur_radius = float(std::min(s * 0.05 * side * 0.125, side * 0.158 * 0.125));
      m_hlr_threshold = 200;
    }
  }
  GlowPlan plan;
  plan.output_mode = m_output_mode;
  plan.threshold = m_hlr_threshold;
  // Where the key differs from BlackMist's: the thresholded colour is rescaled only when the
  // knee output is the brighter.
  plan.rule = SaturationRule::kRescaleWhenBrighter;
  const int32_t max_radius = (std::min(m_scaled_img_w, m_scaled_img_h) - 1) / 2;
  const float wanted = std::min(m_blur_radius, float(maxdim) * 0.125f) * m_scale;
  plan.soft_radius = std::min(max_radius, TruncToInt(2.0f * wanted + 0.5f));
  plan.light_gain = 2.0f * m_hlr_gain;
  plan.light_k = kLightCurve;

  // Cool look: the glow's blue raised and red lowered by the colour parameter.
  RedBlue red_blue{65536, 65536};
  if (m_adjust_colour_on) {
    const float c = m_colour + 1.0f;
    red_blue = {TruncToInt((1.0f + 0.2f * c) * 65536.0f), TruncToInt((1.0f - 0.1f * c) * 65536.0f)};
  }
  if (cool) plan.colour = RowStage{"adjust color", &RedBlueRow, &red_blue};
  TableStage tone{m_tone_lut.get(), {}};
  if (!cool) plan.layer = tone.Stage("apply tone-mapping", false);  // runs in place: no spread

  // The picture's tones; a factor of exactly 1.0 leaves it as it is.
  const float contrast = m_full_params ? m_contrast : cool ? 0.7f : 1.0f;
  uint8_t contrast_lut[256];
  TableStage contrast_table{contrast_lut, {}};
  if (contrast != 1.0f) {
    amberfade::BuildContrastTable(contrast, contrast_lut);
    plan.base[0] = contrast_table.Stage("apply contrast", Fast());
  }
  // The table belongs to the gamma stage: a run that ends before it (output modes 0 and 3)
  // neither builds it nor moves the shared last gamma. Built by the calling thread before the
  // stage's job; objects race on the shared value by design, the atomic only keeps that race
  // defined.
  plan.before_base = [](void* self) {
    AmberfadeEffect& e = *static_cast<AmberfadeEffect*>(self);
    if (e.m_gamma == s_last_gamma.load(std::memory_order_relaxed)) return;
    amberfade::BuildGammaTable(e.m_gamma, e.m_gamma_lut.data());
    s_last_gamma.store(e.m_gamma, std::memory_order_relaxed);
  };
  plan.before_base_ctx = this;
  const Gamma gamma{m_gamma_lut.data(), cpu.simd_level};
  if (m_gamma != 1.0f) plan.base[1] = RowStage{"apply gamma", &GammaRow, &gamma, "adjust gamma"};
  Temperature temperature;
  temperature.level = cpu.simd_level;
  if (!cool) {
    float fr, fg, fb;
    TemperatureFactors(m_colour * 1000.0f + 5000.0f, &fr, &fg, &fb);
    amberfade::BuildTemperatureTable(fr, fg, fb, &temperature.table);
    plan.base[2] = RowStage{"adjust color temp", &TemperatureRow, &temperature};
  }

  plan.blend_index = BlendIndexForMode(m_blend_mode);
  plan.opacity = 255;
  // Cool look: the blend blurred and mixed with its blue-weighted copy. Unlike BlackMist's, the
  // radius is clamped by the half-size picture.
  plan.blur = cool && m_blur_result_on;
  plan.blur_radius = std::min(max_radius, TruncToInt(2.0f * (m_result_blur_radius * m_scale) + 0.5f));
  Blue blue;
  blue.level = cpu.simd_level;
  amberfade::BuildBlueWeights(m_colour, m_full_params ? m_weight_tint : 0.27f,
                              m_full_params ? m_weight_result : 0.73f, &blue.weights);
  plan.weight = WeightStage{"weighting sum with blue color", &BlueRow, &blue};

  const int32_t rc = RunGlow(plan);
  if (rc < 0) LogStageFailure("total process", rc);
  return rc < 0 ? rc : VX_OK;
}

int32_t NewAmberfadeEffect(CThreadPool* pool, const CpuInfo& cpu, AmberfadeFull** out) {
  return NewEffect<AmberfadeEffect>(pool, cpu, out);
}

}  // namespace Vantyx
