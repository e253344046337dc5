#include "effects/halation/halation_effect.h"

#include <algorithm>

#include "effects/halation/halation_kernels.h"
#include "engine/effect_factory.h"
#include "imageops/channels.h"
#include "imageops/colour.h"
#include "imageops/copy_convert.h"

namespace Vantyx {

namespace {

const CurvePoint kCurveB[] = {{0, 0}, {150, 175}, {255, 255}};

constexpr int32_t kMaxBlurRadius = 4096;
constexpr uint32_t kPreparedStrength = 50;

template <class T, size_t N>
constexpr int32_t Count(const T (&)[N]) {
  return int32_t(N);
}

}  // namespace

HalationEffect::HalationEffect(CThreadPool* pool) : KeyedLayerEffect(pool) {
  SetDefaults();
  m_kernel = BuildGaussianKernel(0);  // the copy kernel, "built for radius 0"
}

HalationEffect::~HalationEffect() = default;

void HalationEffect::SetDefaults() {
  m_opacity = 255;
  m_highlight_threshold = 203;
  m_blur_radius = 36;
  m_blur_radius_2 = 36;
  m_midtone_threshold = 216;
  m_curve_strength = 50;
  m_show_threshold = 203;
  m_keyer_gain = 1.0f;
  m_tone_mapping = 1;
  m_show_blur_mask = 0;
  m_blend_mode = 4;
  m_debug_view = 9;
}

int32_t HalationEffect::SetImageSize(int32_t width, int32_t height) {
  const WorkingBuffer buffers[] = {
      {&m_scaled_hlr, BufferSize::kScaled, PIXEL_BGRA32, false,
       "[Vantyx] CreateSmartBufferData(m_scaled_hlr, m_scaled_img_w, m_scaled_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_adjusted_src, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_adjusted_src, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_luma_output, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_luma_output, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_aligned_luma, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_aligned_luma, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_aligned_mask, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_aligned_mask, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_split_b, BufferSize::kScaled, PIXEL_BGRA32, false,
       "[Vantyx] CreateSmartBufferData(m_split_b, m_scaled_img_w, m_scaled_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_split_g, BufferSize::kScaled, PIXEL_BGRA32, false,
       "[Vantyx] CreateSmartBufferData(m_split_g, m_scaled_img_w, m_scaled_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_split_r, BufferSize::kScaled, PIXEL_BGRA32, false,
       "[Vantyx] CreateSmartBufferData(m_split_r, m_scaled_img_w, m_scaled_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_split_output, BufferSize::kAlignedSquare, PIXEL_BGRA32, false,
       "[Vantyx] CreateSmartBufferData(m_split_output, m_aligned_img_w, m_aligned_img_w, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_mid_b, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_mid_b, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_mid_g, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_mid_g, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
      {&m_mid_r, BufferSize::kAligned, PIXEL_BGRA32, true,
       "[Vantyx] CreateSmartBufferData(m_mid_r, m_aligned_img_w, m_aligned_img_h, PIXEL_BGRA32) Error! - Return Code: %x"},
  };
  bool resized = false;
  const int32_t rc = ResizeBuffers(width, height, buffers, Count(buffers), &resized);
  if (rc < 0 || !resized) return rc;

  BuildCurveA(kPreparedStrength);
  BuildToneCurve(kCurveB, Count(kCurveB), m_curve_b.data(), 256);
  BuildMidtoneCurve(m_curve_c.data());
  BuildKernel(m_blur_radius);
  return VX_OK;
}

// Keeps the buffers, the curves and the kernel: only the parameters, the frame and the sizes go.
int32_t HalationEffect::Reset() {
  SetDefaults();
  DropFrame();
  ClearSizes();
  return VX_OK;
}

// (0, 0), (x1, y1), (120, y2), (255, 255), the offsets computed in double and truncated.
void HalationEffect::BuildCurveA(uint32_t strength) {
  const double s = double(strength);
  const CurvePoint points[] = {{0, 0},
                               {std::max(60, 72 - TruncToInt(0.76 * s - 38.0)),
                                std::min(190, 170 + TruncToInt(1.2 * s - 60.0))},
                               {120, std::min(230, 200 + TruncToInt(1.6 * s - 80.0))},
                               {255, 255}};
  BuildToneCurve(points, Count(points), m_curve_a.data(), 256);
  m_curve_a_strength = strength;
  ++m_curve_builds;
}

void HalationEffect::BuildKernel(int32_t radius) {
  m_kernel = BuildGaussianKernel(radius);
  m_kernel_radius = radius;
  ++m_kernel_builds;
}

int32_t HalationEffect::CheckFields(uint32_t opacity, uint32_t highlight, int32_t radius,
                                    uint32_t midtone, uint32_t strength, uint32_t show) const {
  if (opacity > 255 || highlight > 255 || radius < 0 || midtone > 255 || strength < 20 ||
      strength > 100 || show > 255)
    return VX_E_INVALIDARG;
  return VX_OK;
}

int32_t HalationEffect::Process(const HalationParams* param) {
  if (!param) return VX_E_POINTER;
  const HalationParams& p = *param;
  VANTYX_STAGE(CheckFrame(p.src, p.mask, p.dst, p.process_rect));
  VANTYX_STAGE(CheckFields(p.opacity, p.highlight_threshold, p.blur_radius, p.midtone_threshold,
                           p.curve_strength, p.show_threshold));
  if (p.blur_radius > kMaxBlurRadius) return VX_E_INVALIDARG;

  StoreFrame(p.src, p.mask, p.dst, p.process_rect);
  m_opacity = p.opacity;
  m_highlight_threshold = p.highlight_threshold;
  m_blur_radius = p.blur_radius;
  // The block from blur_radius on is stored a second time from blur_radius_2 on.
  m_blur_radius_2 = uint32_t(p.blur_radius);
  m_midtone_threshold = p.midtone_threshold;
  m_curve_strength = p.curve_strength;
  m_show_threshold = p.show_threshold;
  m_keyer_gain = 1.0f;
  m_tone_mapping = 1;
  m_show_blur_mask = 0;
  m_blend_mode = 4;
  m_debug_view = 9;
  return Run();
}

int32_t HalationEffect::ProcessFull(const HalationParamsEx* param) {
  if (!param) return VX_E_POINTER;
  const HalationParamsEx& p = *param;
  VANTYX_STAGE(CheckFrame(p.src, p.mask, p.dst, p.process_rect));
  VANTYX_STAGE(CheckFields(p.opacity, p.highlight_threshold, p.blur_radius, p.midtone_threshold,
                           p.curve_strength, p.show_threshold));
  if (!AllFinite({p.keyer_gain}) || p.blur_radius > kMaxBlurRadius) return VX_E_INVALIDARG;
  if (SlotKernel(p.blend_mode) < 0) return VX_E_INVALIDARG;

  StoreFrame(p.src, p.mask, p.dst, p.process_rect);
  m_opacity = p.opacity;
  m_highlight_threshold = p.highlight_threshold;
  m_blur_radius = p.blur_radius;
  m_blur_radius_2 = p.blur_radius_2;
  m_midtone_threshold = p.midtone_threshold;
  m_curve_strength = p.curve_strength;
  m_show_threshold = p.show_threshold;
  m_keyer_gain = p.keyer_gain;
  m_tone_mapping = p.tone_mapping;
  m_show_blur_mask = p.show_blur_mask;
  m_blend_mode = p.blend_mode;
  m_debug_view = p.debug_view;
  return Run();
}

int32_t HalationEffect::Run() {
  if (m_blur_radius != m_kernel_radius) BuildKernel(m_blur_radius);
  if (m_curve_strength != m_curve_a_strength) BuildCurveA(m_curve_strength);
  const int32_t rc = Pipeline();
  if (rc < 0) LogStageFailure("total process", rc);
  return rc < 0 ? rc : VX_OK;
}

// The stages, in order. Frame stages cover (0, 0, w, h); the half-size stages cover the whole
// of m_scaled_hlr. A view that is shown does not stop the stages after it.
int32_t HalationEffect::Pipeline() {
  const ProcessRect frame = FrameRect(), scaled = ScaledRect();
  const int32_t simd = cpu.simd_level, view = m_debug_view;
  const ImageView src = SrcView(), highlight = ViewOf(m_adjusted_src), small = ViewOf(m_scaled_hlr);
  const ImageView midtone = ViewOf(m_luma_output), masks = ViewOf(m_aligned_luma);
  const ImageView mid_b = ViewOf(m_mid_b), mid_g = ViewOf(m_mid_g), mid_r = ViewOf(m_mid_r);
  const ImageView visible = ViewOf(m_aligned_mask);
  const int32_t key_t = int32_t(m_highlight_threshold), mid_t = int32_t(m_midtone_threshold);
  const int32_t show_t = int32_t(m_show_threshold), radius = m_kernel.radius;
  const float gain = m_keyer_gain;
  const float* weights = m_kernel.weights.data();
  using namespace halation;  // NOLINT(build/namespaces): the family's own kernels
  using Strip = const ProcessRect&;

  VANTYX_STAGE(RunStage("copy src", frame, Split::kRows, [&](Strip s) {
    return copy_block(src, highlight, s);
  }));
  VANTYX_STAGE(RunStage("luma keyer", frame, Split::kRows, [&](Strip s) {
    return key_luma(src, highlight, key_t, gain, s, simd);
  }));
  if (view == 0) VANTYX_STAGE(Show("See highlight as the result", m_adjusted_src, 0));
  VANTYX_STAGE(RunStage("midtone extraction", frame, Split::kRows, [&](Strip s) {
    return extract_midtone(src, midtone, mid_t, s, simd);
  }));
  // The log word of this display is the same as view 1's.
  if (view == 6) VANTYX_STAGE(Show("See blurry red as the result", m_luma_output, 0));
  VANTYX_STAGE(RunStage("split midtone r, g, and b", frame, Split::kRows, [&](Strip s) {
    return split_channels(midtone, mid_b, mid_g, mid_r, s, simd);
  }));
  VANTYX_STAGE(Resize("downsampling hlr", m_adjusted_src, m_scaled_hlr));
  VANTYX_STAGE(RunStage("blur the hlr horizontally", scaled, Split::kRows, [&](Strip s) {
    return gaussian_blur_rows(small, weights, radius, s, simd);
  }));
  VANTYX_STAGE(RunStage("blur the hlr vertically", scaled, Split::kColumns, [&](Strip s) {
    return gaussian_blur_cols(small, weights, radius, s, simd);
  }));
  if (view == 1)
    VANTYX_STAGE(ShowChannel("upsampling red channel gaussian", m_split_r,
                             "See blurry red as the result"));
  if (view == 3)
    VANTYX_STAGE(ShowChannel("upsampling green channel gaussian", m_split_g,
                             "See blurry green as the result"));
  if (m_tone_mapping != 0) {
    VANTYX_STAGE(RunStage("apply tone-mapping", scaled, Split::kRows, [&](Strip s) {
      return tone_map_highlight_plain(small, m_curve_a.data(), m_curve_b.data(), s);
    }));
  }
  if (view == 2)
    VANTYX_STAGE(ShowChannel("upsampling red channel", m_split_r,
                             "See red custom curve as the result"));
  if (view == 4)
    VANTYX_STAGE(ShowChannel("upsampling green channel", m_split_g,
                             "See green custom curve as the result"));
  VANTYX_STAGE(RunStage("apply tone-mapping on midtone", frame, Split::kRows, [&](Strip s) {
    return tone_map_midtone_plain(midtone, m_curve_c.data(), s);
  }));
  if (view == 7) {
    VANTYX_STAGE(RunStage("combine midtone r, g, and b", frame, Split::kRows, [&](Strip s) {
      return merge_channels(mid_b, mid_g, midtone, midtone, s, simd);
    }));
    VANTYX_STAGE(Show("See midtone as the result", m_luma_output, 0));
  }
  VANTYX_STAGE(Resize("upsampling hlr", m_scaled_hlr, m_adjusted_src));
  VANTYX_STAGE(RunStage("compare two masks", frame, Split::kRows, [&](Strip s) {
    return compare_masks(highlight, midtone, masks, s, simd);
  }));
  if (view == 5) VANTYX_STAGE(Show("See compare output as the result", m_aligned_luma, 0));
  VANTYX_STAGE(RunStage("deicde which pixels to show", frame, Split::kRows, [&](Strip s) {
    return decide_visible(src, masks, visible, show_t, s, simd);
  }));
  if (m_show_blur_mask == 1) return Show("See blur mask as the result", m_aligned_luma, 14);
  if (view == 8) return Show("See visible mask as the result", m_aligned_mask, 0);
  if (view == 9) return Show("blending hlr to result", m_aligned_mask, m_blend_mode);
  return VX_OK;
}

int32_t HalationEffect::ShowChannel(const char* resize_name, const SmartBuffer& channel,
                                    const char* name) {
  const ImageView small = ViewOf(m_scaled_hlr);
  const ImageView b = ViewOf(m_split_b), g = ViewOf(m_split_g), r = ViewOf(m_split_r);
  const int32_t simd = cpu.simd_level;
  VANTYX_STAGE(RunStage("split r, g, and b", ScaledRect(), Split::kRows, [&](const ProcessRect& s) {
    return split_channels(small, b, g, r, s, simd);
  }));
  return ShowEnlarged(resize_name, channel, m_split_output, name, 0);
}

int32_t NewHalationEffect(CThreadPool* pool, const CpuInfo& cpu, HalationFull** out) {
  return NewEffect<HalationEffect>(pool, cpu, out);
}

}  // namespace Vantyx
