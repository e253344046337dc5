#include "effects/infrared/infrared_effect.h"

#include <algorithm>

#include "effects/infrared/infrared_kernels.h"
#include "engine/effect_factory.h"
#include "imageops/pixel_ops.h"

namespace Vantyx {

constexpr int32_t InfraredEffect::kSecondModes[5];

// Rows 0 and 1: 41 degrees over 126, 56 degrees over 139, both with threshold 0.1.
const InfraredEffect::Band InfraredEffect::kPresets[2] = {{0.35f, 0.11388889f, 0.1f},
                                                          {0.38611111f, 0.15555556f, 0.1f}};

InfraredEffect::InfraredEffect(CThreadPool* pool) : KeyedLayerEffect(pool) { SetDefaults(); }

InfraredEffect::~InfraredEffect() = default;

void InfraredEffect::SetDefaults() {
  m_opacity = 255;
  m_show_original = 0;
  m_hue_range = 0.3f;
  m_hue_start = 0.12f;
  m_hue_shift = 0.9f;
  m_saturation = 0.0f;
  m_luminance = 0.0f;
  m_saturation_threshold = 0.2f;
  m_hue_tolerance = 20;
  m_flag = 1;
  m_preset = 0;
  m_blend_mode = 22;
  m_debug_view = 9;
}

int32_t InfraredEffect::SetImageSize(int32_t width, int32_t height) {
  const WorkingBuffer buffers[] = {
      {&m_adjusted_src, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_adjusted_src, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_scaled_hlr, BufferSize::kScaled, PIXEL_BGRA32, false,
       "[Vantyx] CreateSmartBufferData(m_scaled_hlr, m_scaled_img_w, m_scaled_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_extracted_hue, BufferSize::kScaled, PIXEL_BGRA32, false,
       "[Vantyx] CreateSmartBufferData(m_extracted_hue, m_scaled_img_w, m_scaled_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_background, BufferSize::kScaled, PIXEL_BGRA32, false,
       "[Vantyx] CreateSmartBufferData(m_background, m_scaled_img_w, m_scaled_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_scaled_output, BufferSize::kScaled, PIXEL_BGRA32, false,
       "[Vantyx] CreateSmartBufferData(m_scaled_output, m_scaled_img_w, m_scaled_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_adjusted_output, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_adjusted_output, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_extracted_hue_output, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_extracted_hue_output, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_background_output, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_background_output, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
  };
  bool resized = false;
  const int32_t rc = ResizeBuffers(width, height, buffers, sizeof(buffers) / sizeof(buffers[0]),
                                   &resized);
  if (rc < 0 || !resized) return rc;
  BuildMidtoneCurve(m_background_curve.data());
  return VX_OK;
}

// Keeps the buffers and the curve: only the parameters, the frame and the sizes go.
int32_t InfraredEffect::Reset() {
  SetDefaults();
  DropFrame();
  ClearSizes();
  return VX_OK;
}

// Range checks that a NaN fails too.
int32_t InfraredEffect::CheckFields(uint32_t opacity, uint32_t hue_tolerance,
                                    std::initializer_list<float> unit,
                                    std::initializer_list<float> signed_unit) {
  if (opacity > 255 || hue_tolerance > 360) return VX_E_INVALIDARG;
  for (float v : unit)
    if (!(v >= 0.0f && v <= 1.0f)) return VX_E_INVALIDARG;
  for (float v : signed_unit)
    if (!(v >= -1.0f && v <= 1.0f)) return VX_E_INVALIDARG;
  return VX_OK;
}

void InfraredEffect::StoreCommon(const ImageDesc& src, const ImageDesc& mask, const ImageDesc& dst,
                                 const ProcessRect& rect, uint32_t opacity, float hue_shift,
                                 float saturation, float luminance, uint32_t hue_tolerance,
                                 uint32_t preset) {
  StoreFrame(src, mask, dst, rect);
  m_opacity = opacity;
  m_hue_shift = hue_shift;
  m_saturation = saturation;
  m_luminance = luminance;
  m_hue_tolerance = hue_tolerance;
  m_preset = preset;
}

int32_t InfraredEffect::Process(const InfraredParams* param) {
  if (!param) return VX_E_POINTER;
  const InfraredParams& p = *param;
  VANTYX_STAGE(CheckFrame(p.src, p.mask, p.dst, p.process_rect));
  VANTYX_STAGE(CheckFields(p.opacity, p.hue_tolerance, {p.hue_shift}, {p.saturation, p.luminance}));

  StoreCommon(p.src, p.mask, p.dst, p.process_rect, p.opacity, p.hue_shift, p.saturation,
              p.luminance, p.hue_tolerance, p.preset);
  m_show_original = 0;
  m_blend_mode = 22;
  m_debug_view = 9;
  // Presets 0 and 1 load their band; any other value keeps the band as it stands.
  if (p.preset < 2) {
    const Band& row = kPresets[p.preset];
    m_hue_range = row.hue_range;
    m_hue_start = row.hue_start;
    m_saturation_threshold = row.saturation_threshold;
  }
  return Run();
}

int32_t InfraredEffect::ProcessFull(const InfraredParamsEx* param) {
  if (!param) return VX_E_POINTER;
  const InfraredParamsEx& p = *param;
  VANTYX_STAGE(CheckFrame(p.src, p.mask, p.dst, p.process_rect));
  VANTYX_STAGE(CheckFields(p.opacity, p.hue_tolerance,
                           {p.hue_range, p.hue_start, p.hue_shift, p.saturation_threshold},
                           {p.saturation, p.luminance}));
  if (SlotKernel(p.blend_mode) < 0) return VX_E_INVALIDARG;

  StoreCommon(p.src, p.mask, p.dst, p.process_rect, p.opacity, p.hue_shift, p.saturation,
              p.luminance, p.hue_tolerance, p.preset);
  m_show_original = p.show_original;
  m_hue_range = p.hue_range;
  m_hue_start = p.hue_start;
  m_saturation_threshold = p.saturation_threshold;
  m_flag = p.flag;
  m_blend_mode = p.blend_mode;
  m_debug_view = p.debug_view;
  return Run();
}

int32_t InfraredEffect::Run() {
  const int32_t rc = Pipeline();
  if (rc < 0) LogStageFailure("total process", rc);
  return rc < 0 ? rc : VX_OK;
}

// The stages, in order. The half-size stages cover the whole of the half-size buffers. A view
// that is shown does not stop the stages after it.
int32_t InfraredEffect::Pipeline() {
  const ProcessRect scaled = ScaledRect();
  const int32_t simd = cpu.simd_level, view = m_debug_view;
  const ImageView src = SrcView(), small = ViewOf(m_scaled_hlr);
  const ImageView hue = ViewOf(m_extracted_hue), background = ViewOf(m_background);
  const ImageView sum = ViewOf(m_scaled_output);
  const infrared::HueBand band = infrared::MakeHueBand(m_hue_start, m_hue_range, m_hue_tolerance);
  const infrared::HsvShift shift = infrared::MakeHsvShift(m_hue_shift, m_saturation, m_luminance);
  const float threshold = m_saturation_threshold;
  const int32_t radius = infrared::BlurRadius(std::max(m_scaled_img_w, m_scaled_img_h));
  using namespace infrared;  // NOLINT(build/namespaces): the family's own kernels
  using Strip = const ProcessRect&;

  // "copy src" would fill m_adjusted_src, whose logical size is the frame's, for the
  // downsampling alone: it reads the source itself, the same pixels, and the copy is skipped.
  VANTYX_STAGE(Resize("downsampling hlr", src, small));
  if (m_show_original == 1) return Show("see the original input", src, 14);
  VANTYX_STAGE(RunStage("extract certain range of hue pixel", scaled, Split::kRows, [&](Strip s) {
    return extract_hue_band(small, hue, band, s, simd);
  }));
  if (view == 0)
    VANTYX_STAGE(ShowEnlarged("upsampling", m_extracted_hue, m_extracted_hue_output,
                              "See extracted hue as the result", m_blend_mode));
  VANTYX_STAGE(RunStage("remove low saturation pixels", scaled, Split::kRows, [&](Strip s) {
    return remove_low_saturation(hue, threshold, s, simd);
  }));
  if (view == 11)
    VANTYX_STAGE(ShowEnlarged("upsampling", m_extracted_hue, m_extracted_hue_output,
                              "See saturated hue as the result", 0));
  VANTYX_STAGE(RunStage("extract background based", scaled, Split::kRows, [&](Strip s) {
    return extract_background(hue, small, background, s, simd);
  }));
  if (view == 10)
    VANTYX_STAGE(ShowEnlarged("upsampling", m_background, m_background_output,
                              "See background as the result", 0));
  if (m_preset == 1) {
    VANTYX_STAGE(RunStage("apply tone-mapping on background", scaled, Split::kRows, [&](Strip s) {
      return apply_lut_bgr(background, m_background_curve.data(), s, simd);
    }));
  }
  if (view == 12)
    VANTYX_STAGE(ShowEnlarged("upsampling", m_background, m_background_output,
                              "See tone-mapped background as the result", 0));
  VANTYX_STAGE(RunStage("adjust hue, saturation, luminance", scaled, Split::kRows, [&](Strip s) {
    return adjust_hsv(hue, shift, s, simd);
  }));
  if (view == 5)
    VANTYX_STAGE(ShowEnlarged("upsampling", m_extracted_hue, m_extracted_hue_output,
                              "See adjusted hue as the result", m_blend_mode));
  VANTYX_STAGE(BoxBlur(hue, scaled, radius, simd));
  if (view == 1)
    VANTYX_STAGE(ShowEnlarged("upsampling", m_extracted_hue, m_extracted_hue_output,
                              "See blurred hue as the result", 0));
  VANTYX_STAGE(RunStage("combine foreground and background", scaled, Split::kRows, [&](Strip s) {
    return combine_layers(hue, background, sum, s, simd);
  }));
  VANTYX_STAGE(Resize("upsampling hlr", m_scaled_output, m_adjusted_output));
  if (view == 9) return Show("blending hlr to result", m_adjusted_output, m_blend_mode);
  return VX_OK;
}

int32_t NewInfraredEffect(CThreadPool* pool, const CpuInfo& cpu, InfraredFull** out) {
  return NewEffect<InfraredEffect>(pool, cpu, out);
}

}  // namespace Vantyx
