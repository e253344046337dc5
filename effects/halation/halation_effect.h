// Halation: a red-and-green glow around bright areas. The highlights are keyed at full size,
// blurred with a gaussian at half size and reshaped by tone curves; a keyed midtone layer is
// merged in, the glow fades out over pixels that are already bright, and the result is laid
// over the source with a blend mode. Debug views 0 to 9 and the blur mask show intermediates.
#pragma once

#include <array>
#include <cstdint>

#include "effects/common/keyed_layer.h"
#include "imageops/gaussian_blur.h"
#include "vantyx.h"

namespace Vantyx {

class HalationEffect final : public HalationFull, public KeyedLayerEffect {
 public:
  explicit HalationEffect(CThreadPool* pool);
  ~HalationEffect();
  VANTYX_IMPLEMENT_DELETING_DTOR(HalationEffect)

  int32_t SetImageSize(int32_t width, int32_t height) override;
  int32_t Process(const HalationParams* param) override;
  int32_t Reset() override;
  int32_t ProcessFull(const HalationParamsEx* param) override;

  // How often the cached gaussian kernel and curve A were built (for tests of the caches).
  int32_t KernelBuilds() const { return m_kernel_builds; }
  int32_t CurveBuilds() const { return m_curve_builds; }

 private:
  using Curve = std::array<uint8_t, 256>;

  void SetDefaults();
  int32_t CheckFields(uint32_t opacity, uint32_t highlight, int32_t radius, uint32_t midtone,
                      uint32_t strength, uint32_t show) const;
  void BuildCurveA(uint32_t strength);
  void BuildKernel(int32_t radius);
  int32_t Run();  // rebuilds what changed, runs the pipeline; logs "total process" on failure
  int32_t Pipeline();
  // "split r, g, and b" of the half-size highlight, then one channel enlarged and shown.
  int32_t ShowChannel(const char* resize_name, const SmartBuffer& channel, const char* name);

  // Working images, created in this order by SetImageSize.
  SmartBuffer m_scaled_hlr;
  SmartBuffer m_adjusted_src;
  SmartBuffer m_luma_output;
  SmartBuffer m_aligned_luma;
  SmartBuffer m_aligned_mask;
  SmartBuffer m_split_b;
  SmartBuffer m_split_g;
  SmartBuffer m_split_r;
  SmartBuffer m_split_output;  // aligned width x aligned width, on purpose
  SmartBuffer m_mid_b;
  SmartBuffer m_mid_g;
  SmartBuffer m_mid_r;

  Curve m_curve_a{};  // red of the highlight, from curve_strength
  Curve m_curve_b{};  // green of the highlight
  Curve m_curve_c{};  // red of the midtone
  uint32_t m_curve_a_strength = 0;
  GaussianKernel m_kernel;
  int32_t m_kernel_radius = 0;  // the blur_radius m_kernel was built for
  int32_t m_kernel_builds = 0;
  int32_t m_curve_builds = 0;

  uint32_t m_highlight_threshold = 0;
  int32_t m_blur_radius = 0;
  uint32_t m_blur_radius_2 = 0;  // stored only
  uint32_t m_midtone_threshold = 0;
  uint32_t m_curve_strength = 0;
  uint32_t m_show_threshold = 0;
  float m_keyer_gain = 1.0f;
  uint8_t m_tone_mapping = 1;
  uint8_t m_show_blur_mask = 0;
  int32_t m_blend_mode = 4;
  int32_t m_debug_view = 9;
};

}  // namespace Vantyx
