// Amberfade: a faded film look. The highlights of a half-size copy become a soft glow; the
// picture gets contrast, gamma on luma and (warm look) a colour temperature; the glow is
// blended over it, and the cool look blurs that blend and mixes it with a blue-weighted copy.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "effects/common/glow_effect.h"
#include "vantyx.h"

namespace Vantyx {

class AmberfadeEffect final : public AmberfadeFull, public GlowEffect {
 public:
  explicit AmberfadeEffect(CThreadPool* pool);
  ~AmberfadeEffect();
  VANTYX_IMPLEMENT_DELETING_DTOR(AmberfadeEffect)

  int32_t Process(const AmberfadeParam* param) override;
  int32_t SetImageSize(int32_t width, int32_t height) override {
    return ResizeGlow(width, height);
  }
  int32_t Reset() override;
  int32_t ProcessFull(const AmberfadeFullParam* param) override;

  // The gamma for which some Amberfade object last built its table: one value for the whole
  // process, shared on purpose. An object whose gamma equals it keeps its own table as it is.
  static std::atomic<float> s_last_gamma;

 private:
  int32_t Run();  // the pipeline; logs "total process" on failure

  std::vector<uint32_t> m_gamma_lut;  // 16.16, zero until this object first builds it

  float m_hlr_gain = 0.0f;
  float m_blur_radius = 0.0f;
  int32_t m_hlr_threshold = 0;
  float m_intensity = 1.0f;
  float m_gamma = 1.0f;
  float m_colour = 0.0f;
  int32_t m_cool_look = 1;
  float m_weight_tint = 0.0f;
  float m_weight_result = 1.0f;
  float m_contrast = 1.0f;
  uint8_t m_adjust_colour_on = 0;
  uint8_t m_blur_result_on = 0;
  float m_result_blur_radius = 0.0f;
  int32_t m_blend_mode = 23;
  int32_t m_output_mode = 2;
  int32_t m_derive_from_intensity = 1;
  bool m_full_params = false;
};

}  // namespace Vantyx
