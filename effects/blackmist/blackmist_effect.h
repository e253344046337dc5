// BlackMist: the highlights are isolated at half size, given a contrast curve and a wide soft
// blur, optionally tinted, enlarged and blended back over the picture; the blend may then be
// blurred once more and mixed with itself by fixed weights.
#pragma once

#include <cstdint>
#include <memory>

#include "core/effect_base.h"
#include "effects/blackmist/blackmist_kernels.h"
#include "vantyx.h"

namespace Vantyx {

class BlackMistEffect final : public BlackMistFull, public EffectBase {
 public:
  explicit BlackMistEffect(CThreadPool* pool);
  ~BlackMistEffect();
  VANTYX_IMPLEMENT_DELETING_DTOR(BlackMistEffect)

  int32_t SetImageSize(int32_t width, int32_t height) override;
  int32_t Process(const BlackMistParam* param) override;
  int32_t Reset() override;
  int32_t ProcessFull(const BlackMistFullParam* param) override;

 private:
  struct Preset {
    float radius_factor;
    double light_factor;
    float weight_blur;
    float weight_src;
  };
  static Preset PresetFor(int32_t strength);

  int32_t CheckParameters(float intensity, float radius, uint32_t threshold) const;
  int32_t Run();  // the pipeline; logs "total process" on failure
  int32_t Pipeline();
  int32_t DetectHighlights();
  int32_t SoftenHighlights(int32_t radius, float gain);
  int32_t BoxBlur(SmartBuffer& image, const ProcessRect& rect, int32_t radius, int32_t simd_level);
  int32_t Resample(const char* stage, const SmartBuffer& from, const ProcessRect& from_rect,
                   SmartBuffer& to, const ProcessRect& to_rect);

  // Working images, created in this order by SetImageSize.
  SmartBuffer m_scaled_hlr;
  SmartBuffer m_scaled_src;
  SmartBuffer m_aligned_hlr;
  SmartBuffer m_aligned_src;
  SmartBuffer m_scaled_img_f;
  SmartBuffer m_img_f;
  std::unique_ptr<uint8_t[]> m_tone_lut;
  blackmist::MaskMap m_mask_map;

  float m_light_intensity = 0.0f;
  float m_soft_radius = 0.0f;
  uint32_t m_hlr_threshold = 0;
  float m_tint_amount = 0.0f;
  float m_tint_hue = 0.0f;
  float m_tint_brightness = 1.0f;
  uint32_t m_blend_opacity = 255;
  float m_weight_blur = 0.0f;
  float m_weight_src = 1.0f;
  float m_reserved_f = 1.0f;
  uint8_t m_use_tone_mapping = 0;
  uint8_t m_keep_saturation = 0;
  uint8_t m_blur_blended = 0;
  float m_blend_blur_radius = 0.0f;
  int32_t m_blend_mode = 23;
  int32_t m_output_mode = 2;
  int32_t m_strength = 1;
  int32_t m_reserved_i = 1;
  bool m_custom_weights = false;
};

}  // namespace Vantyx
