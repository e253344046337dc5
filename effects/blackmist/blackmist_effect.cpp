#include "effects/blackmist/blackmist_effect.h"

#include <algorithm>
#include <new>

#include "engine/effect_factory.h"
#include "imageops/blend.h"
#include "imageops/box_blur.h"
#include "imageops/colour.h"
#include "imageops/copy_convert.h"
#include "imageops/pixel_ops.h"
#include "imageops/resample.h"

namespace Vantyx {

namespace {

// The contrast curve laid over the picture when tone mapping is on: shadows lifted slightly,
// upper mid-tones dipped below identity.
const CurvePoint kToneCurve[] = {{0, 0},     {30, 38},   {45, 50},   {60, 60},  {70, 65},
                                 {100, 92},  {150, 142}, {200, 193}, {255, 255}};

constexpr float kLightCurve = -0.25f;  // S-shaped contrast through the middle grey

int32_t MaxSide8(int32_t w, int32_t h) { return std::max(w, h) / 8; }

}  // namespace

BlackMistEffect::BlackMistEffect(CThreadPool* pool) : EffectBase(pool, 0.5f) { Reset(); }

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

int32_t BlackMistEffect::SetImageSize(int32_t width, int32_t height) {
  const WorkingBuffer buffers[] = {
      {&m_scaled_hlr, BufferSize::kScaled, PIXEL_BGRA32, false,
       "[Vantyx] CreateSmartBufferData(m_scaled_hlr, m_scaled_img_w, m_scaled_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_scaled_src, BufferSize::kScaled, PIXEL_BGRA32, false,
       "[Vantyx] CreateSmartBufferData(m_scaled_src, m_scaled_img_w, m_scaled_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_aligned_hlr, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_aligned_hlr, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_aligned_src, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_aligned_src, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_scaled_img_f, BufferSize::kScaled, PIXEL_FLOAT96, false,
       "[Vantyx] CreateSmartBufferData(m_scaled_img_f, m_scaled_img_w, m_scaled_img_h, PIXEL_FLOAT96) Error! - Return Code: %x"},
      {&m_img_f, BufferSize::kAligned, PIXEL_FLOAT96, true,
       "[Vantyx] CreateSmartBufferData(m_img_f, m_aligned_img_w, m_aligned_img_h, PIXEL_FLOAT96) Error! - Return Code: %x"},
  };
  bool resized = false;
  const int32_t rc = ResizeBuffers(width, height, buffers, sizeof(buffers) / sizeof(buffers[0]), &resized);
  if (rc < 0 || !resized) return rc;

  if (!m_tone_lut) m_tone_lut.reset(new uint8_t[256]());
  BuildToneCurve(kToneCurve, int32_t(sizeof(kToneCurve) / sizeof(kToneCurve[0])), m_tone_lut.get(), 256);
  m_mask_map = blackmist::BuildMaskMap(m_img_w, m_img_h, m_scaled_img_w, m_scaled_img_h);
  return VX_OK;
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
  const int32_t rc = Pipeline();
  if (rc < 0) LogStageFailure("total process", rc);
  return rc < 0 ? rc : VX_OK;
}

// The stages, in order. Frame-size stages run over (0, 0, w, h); the destination holds only
// the process rectangle, so stages that read it back work in its own coordinates.
int32_t BlackMistEffect::Pipeline() {
  const ProcessRect frame = FrameRect();
  const ProcessRect scaled = ScaledRect();
  const ProcessRect dst_rect = DstRect();
  const int32_t simd = cpu.simd_level;
  const Preset preset = PresetFor(m_strength);
  const ImageView src = SrcView(), dst_at_rect = DstAtRect(), dst = DstView();
  const ImageView aligned_src = ViewOf(m_aligned_src), aligned_hlr = ViewOf(m_aligned_hlr);

  VANTYX_STAGE(RunStage("copy src", frame, Split::kRows,
                        [&](const ProcessRect& s) { return copy_block(src, aligned_src, s); }));
  if (m_output_mode == 3)
    return RunStage("copy original image", frame, Split::kRows,
                    [&](const ProcessRect& s) { return copy_block(src, dst_at_rect, s); });

  VANTYX_STAGE(Resample("downsampling src", m_aligned_src, frame, m_scaled_src, scaled));
  VANTYX_STAGE(DetectHighlights());

  const int32_t max_radius = (std::min(m_scaled_img_w, m_scaled_img_h) - 1) / 2;
  const float wanted = std::min(preset.radius_factor * m_soft_radius,
                                float(std::max(m_img_w, m_img_h)) * 0.125f);
  const int32_t radius = std::min(max_radius, TruncToInt(2.0f * wanted * m_scale + 0.5f));
  const float gain = float(2.0 * double(m_light_intensity) * preset.light_factor);
  const int32_t soften = SoftenHighlights(radius, gain);
  if (soften < 0) {
    LogStageFailure("soften hlr", soften);
    return soften;
  }

  if (!(m_tint_amount == 0.0f && m_tint_hue == 0.0f && m_tint_brightness == 1.0f)) {
    const ImageView hlr = ViewOf(m_scaled_hlr);
    VANTYX_STAGE(RunStage("adjust color", scaled, Split::kRows, [&](const ProcessRect& s) {
      return blackmist::adjust_color_plain(hlr, m_tint_amount, m_tint_hue, m_tint_brightness, s);
    }));
  }

  VANTYX_STAGE(Resample("upsampling hlr", m_scaled_hlr, scaled, m_aligned_hlr, frame));
  if (m_output_mode == 0)
    return RunStage("copy blur hlr", frame, Split::kRows,
                    [&](const ProcessRect& s) { return copy_block(aligned_hlr, dst_at_rect, s); });

  if (m_use_tone_mapping) {
    const uint8_t* lut = m_tone_lut.get();
    VANTYX_STAGE(RunStage("apply tone-mapping", frame, Split::kRows, [&](const ProcessRect& s) {
      return lut ? apply_lut_bgr(aligned_src, lut, s, simd) : VX_E_POINTER;
    }));
  }

  const int32_t blend_index = BlendIndexForMode(m_blend_mode);
  VANTYX_STAGE(RunStage("blending hlr to result", m_process_rect, Split::kRows, [&](const ProcessRect& s) {
    return blend_block(blend_index, aligned_src, aligned_hlr, dst_at_rect, m_blend_opacity, s, simd);
  }));
  if (!m_blur_blended) return VX_OK;

  VANTYX_STAGE(RunStage("copy blended image to aligned src", dst_rect, Split::kRows,
                        [&](const ProcessRect& s) { return copy_block(dst, aligned_src, s); }));
  const int32_t blend_radius = TruncToInt(2.0f * m_blend_blur_radius * m_scale + 0.5f);
  VANTYX_STAGE(BoxBlur(m_aligned_src, dst_rect, blend_radius, simd));
  if (m_output_mode == 1)
    return RunStage("copy blur hlr", dst_rect, Split::kRows,
                    [&](const ProcessRect& s) { return copy_block(aligned_src, dst, s); });

  const float weight_blur = m_custom_weights ? m_weight_blur : preset.weight_blur;
  const float weight_src = m_custom_weights ? m_weight_src : preset.weight_src;
  const int32_t w1 = TruncToInt(weight_blur * 65536.0f), w2 = TruncToInt(weight_src * 65536.0f);
  return RunStage("weighting sum", dst_rect, Split::kRows, [&](const ProcessRect& s) {
    return weighting_sum(aligned_src, dst, w1, w2, s, simd);
  });
}

int32_t BlackMistEffect::DetectHighlights() {
  const ImageView from = ViewOf(m_scaled_src), to = ViewOf(m_scaled_hlr), mask = MaskView();
  const ImageView* mask_view = HasMask() ? &mask : nullptr;
  const bool keep = m_keep_saturation != 0;
  return RunStage("detect hlr", ScaledRect(), Split::kRows, [&](const ProcessRect& s) {
    return blackmist::detect_highlights_plain(from, to, mask_view, &m_mask_map, m_hlr_threshold, keep, s);
  });
}

// "soften hlr": the highlight layer in float through the contrast curve and, for a positive
// radius, two horizontal and two vertical box blurs (always the plain kernels), back to bytes.
int32_t BlackMistEffect::SoftenHighlights(int32_t radius, float gain) {
  const ProcessRect scaled = ScaledRect();
  const ImageView hlr = ViewOf(m_scaled_hlr), hlr_f = ViewOf(m_scaled_img_f);
  const int32_t simd = cpu.simd_level;
  VANTYX_STAGE(RunStage("convert BYTE to Float", scaled, Split::kRows, [&](const ProcessRect& s) {
    return convert_u8_to_f32(hlr, hlr_f, 1.0f / 255.0f, 0.0f, s, simd);
  }));
  VANTYX_STAGE(RunStage("adjust light", scaled, Split::kRows, [&](const ProcessRect& s) {
    return blackmist::adjust_light_plain(hlr_f, gain, kLightCurve, s);
  }));
  if (radius > 0) VANTYX_STAGE(BoxBlur(m_scaled_img_f, scaled, radius, SIMD_NONE));
  return RunStage("convert Float to BYTE", scaled, Split::kRows, [&](const ProcessRect& s) {
    return convert_f32_to_u8(hlr_f, hlr, 255.0f, 0.0f, s, simd);
  });
}

// Two horizontal passes, then two vertical ones: close to a gaussian.
int32_t BlackMistEffect::BoxBlur(SmartBuffer& image, const ProcessRect& rect, int32_t radius,
                                 int32_t simd_level) {
  const ImageView view = ViewOf(image);
  for (int pass = 0; pass < 2; ++pass)
    VANTYX_STAGE(RunStage("BoxBlurH", rect, Split::kRows, [&](const ProcessRect& s) {
      return box_blur_rows(view, nullptr, radius, s, simd_level);
    }));
  for (int pass = 0; pass < 2; ++pass)
    VANTYX_STAGE(RunStage("BoxBlurV", rect, Split::kColumns, [&](const ProcessRect& s) {
      return box_blur_cols(view, nullptr, radius, s, simd_level);
    }));
  return VX_OK;
}

int32_t BlackMistEffect::Resample(const char* stage, const SmartBuffer& from,
                                  const ProcessRect& from_rect, SmartBuffer& to,
                                  const ProcessRect& to_rect) {
  const ImageView src = ViewOf(from), dst = ViewOf(to);
  const int32_t simd = cpu.simd_level;
  return RunStage(stage, to_rect, Split::kRows, [&](const ProcessRect& s) {
    return resample_bilinear(src, dst, from_rect, s, simd);
  }, resample_kernel_name(src, dst, simd));
}

int32_t NewBlackMistEffect(CThreadPool* pool, const CpuInfo& cpu, BlackMistFull** out) {
  BlackMistEffect* effect = new BlackMistEffect(pool);
  effect->SetCpuInfo(&cpu);
  *out = effect;
  return VX_OK;
}

}  // namespace Vantyx
