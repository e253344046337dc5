// BlackMist: the highlights are isolated at half size, given a contrast curve and a wide soft
// blur, optionally tinted, enlarged and blended back over the picture; the blend may then be
// blurred once more and mixed with itself by fixed weights.
#pragma once

#include <cstdint>
#include <memory>

#include "effects/common/glow_effect.h"
#include "vantyx.h"

namespace Vantyx {

class BlackMistEffect final : public BlackMistFull, public GlowEffect {
 public:
  explicit BlackMistEffect(CThreadPool* pool);
  ~BlackMistEffect();
  VANTYX_IMPLEMENT_DELETING_DTOR(BlackMistEffect)

  int32_t Process(const BlackMistParam* param) override;
  int32_t SetImageSize(int32_t width, int32_t height) override {
    return ResizeGlow(width, height);
  }
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
