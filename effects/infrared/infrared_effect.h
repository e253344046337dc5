// Infrared: one hue band kept, the rest of the colours greyed by their distance from it; the
// band is recoloured in HSV and softened with a box blur at half size, added to the rest of the
// frame (optionally through a tone curve) and laid over the source with a blend mode. Debug
// views 0, 1, 5, 10, 11 and 12 and the original input show intermediates.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>

#include "effects/common/keyed_layer.h"
#include "vantyx.h"

namespace Vantyx {

class InfraredEffect final : public InfraredFull, public KeyedLayerEffect {
 public:
  // The blend kernel indices of the second mode list: held, read by no stage.
  static constexpr int32_t kSecondModes[5] = {31, 34, 35, 36, 37};

  explicit InfraredEffect(CThreadPool* pool);
  ~InfraredEffect();
  VANTYX_IMPLEMENT_DELETING_DTOR(InfraredEffect)

  int32_t SetImageSize(int32_t width, int32_t height) override;
  int32_t Process(const InfraredParams* param) override;
  int32_t Reset() override;
  int32_t ProcessFull(const InfraredParamsEx* param) override;

 private:
  // A row of the preset table: the band and the saturation threshold.
  struct Band {
    float hue_range, hue_start, saturation_threshold;
  };
  static const Band kPresets[2];

  void SetDefaults();
  static int32_t CheckFields(uint32_t opacity, uint32_t hue_tolerance,
                             std::initializer_list<float> unit, std::initializer_list<float> signed_unit);
  void StoreCommon(const ImageDesc& src, const ImageDesc& mask, const ImageDesc& dst,
                   const ProcessRect& rect, uint32_t opacity, float hue_shift, float saturation,
                   float luminance, uint32_t hue_tolerance, uint32_t preset);
  int32_t Run();  // runs the pipeline; logs "total process" on failure
  int32_t Pipeline();

  // Working images, created in this order by SetImageSize.
  SmartBuffer m_adjusted_src;
  SmartBuffer m_scaled_hlr;
  SmartBuffer m_extracted_hue;
  SmartBuffer m_background;
  SmartBuffer m_scaled_output;
  SmartBuffer m_adjusted_output;
  SmartBuffer m_extracted_hue_output;
  SmartBuffer m_background_output;

  std::array<uint8_t, 256> m_background_curve{};

  uint32_t m_show_original = 0;
  float m_hue_range = 0.0f;
  float m_hue_start = 0.0f;
  float m_hue_shift = 0.0f;
  float m_saturation = 0.0f;
  float m_luminance = 0.0f;
  float m_saturation_threshold = 0.0f;
  uint32_t m_hue_tolerance = 0;
  uint32_t m_flag = 1;  // stored only
  uint32_t m_preset = 0;
  int32_t m_blend_mode = 22;
  int32_t m_debug_view = 9;
};

}  // namespace Vantyx
