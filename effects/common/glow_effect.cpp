#include "effects/common/glow_effect.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <utility>

#include "imageops/blend.h"
#include "imageops/box_blur.h"
#include "imageops/box_blur_internal.h"
#include "imageops/copy_convert.h"
#include "imageops/resample.h"
#include "imageops/resample_internal.h"

namespace Vantyx {

ImageView PixelRow(uint8_t* row, int32_t pixels, uint32_t format) {
  ImageView v;
  v.data = row;
  v.width = pixels;
  v.height = 1;
  v.stride = pixels * int32_t(BytesPerPixel(format));
  v.format = format;
  return v;
}

ProcessRect PixelRowRect(int32_t pixels) { return ProcessRect{0, 0, uint32_t(pixels), 1}; }

RowStage TableStage::Stage(const char* name, bool fast) {
  if (fast && lut) SpreadLutOf(lut, &spread);
  auto run = [](const void* ctx, uint8_t* row, int32_t pixels) {
    return apply_lut_bgr_plain(PixelRow(row, pixels), static_cast<const TableStage*>(ctx)->lut,
                               PixelRowRect(pixels));
  };
  auto run_to = [](const void* ctx, const uint8_t* from, uint8_t* to, int32_t pixels) {
    return apply_lut_bgr_to(PixelRow(const_cast<uint8_t*>(from), pixels), PixelRow(to, pixels),
                            static_cast<const TableStage*>(ctx)->spread, PixelRowRect(pixels));
  };
  RowStage stage;
  // Without a table the copy-and-run path fails as the stage by stage does, with its name.
  stage.name = name, stage.run = run, stage.ctx = this, stage.run_to = nullptr;
  if (lut) stage.run_to = run_to;
  return stage;
}

// ---- Stage by stage ---------------------------------------------------------------------------

int32_t GlowEffect::RunGlow(const GlowPlan& plan) {
  if (m_fused && Fast() && Fusable(plan)) return Fused(plan);
  return Staged(plan);
}

int32_t GlowEffect::Staged(const GlowPlan& plan) {
  const ProcessRect frame = FrameRect(), scaled = ScaledRect(), dst_rect = DstRect();
  const int32_t simd = cpu.simd_level;
  const ImageView src = SrcView(), dst_at_rect = DstAtRect(), dst = DstView();
  const ImageView aligned_src = ViewOf(m_aligned_src), aligned_hlr = ViewOf(m_aligned_hlr);

  VANTYX_STAGE(RunStage("copy src", frame, Split::kRows,
                        [&](const ProcessRect& s) { return copy_block(src, aligned_src, s); }));
  if (plan.output_mode == 3)
    return RunStage("copy original image", frame, Split::kRows,
                    [&](const ProcessRect& s) { return copy_block(src, dst_at_rect, s); });

  VANTYX_STAGE(Resample("downsampling src", m_aligned_src, frame, m_scaled_src, scaled));
  {
    const ImageView from = ViewOf(m_scaled_src), to = ViewOf(m_scaled_hlr), mask = MaskView();
    const ImageView* mask_view = HasMask() ? &mask : nullptr;
    VANTYX_STAGE(RunStage("detect hlr", scaled, Split::kRows, [&](const ProcessRect& s) {
      return detect_highlights(from, to, mask_view, &m_mask_map, plan.threshold, plan.rule, s, simd);
    }));
  }
  const int32_t soften = StagedSoften(plan);
  if (soften < 0) {
    LogStageFailure("soften hlr", soften);
    return soften;
  }
  VANTYX_STAGE(RowStageOver(plan.colour, ViewOf(m_scaled_hlr), scaled));

  VANTYX_STAGE(Resample("upsampling hlr", m_scaled_hlr, scaled, m_aligned_hlr, frame));
  VANTYX_STAGE(RowStageOver(plan.layer, aligned_hlr, frame));
  if (plan.output_mode == 0)
    return RunStage("copy blur hlr", frame, Split::kRows,
                    [&](const ProcessRect& s) { return copy_block(aligned_hlr, dst_at_rect, s); });

  if (plan.before_base) plan.before_base(plan.before_base_ctx);
  for (const RowStage& stage : plan.base) VANTYX_STAGE(RowStageOver(stage, aligned_src, frame));
  VANTYX_STAGE(RunStage("blending hlr to result", m_process_rect, Split::kRows, [&](const ProcessRect& s) {
    return blend_block(plan.blend_index, aligned_src, aligned_hlr, dst_at_rect, plan.opacity, s, simd);
  }));
  if (!plan.blur) return VX_OK;

  VANTYX_STAGE(RunStage("copy blended image to aligned src", dst_rect, Split::kRows,
                        [&](const ProcessRect& s) { return copy_block(dst, aligned_src, s); }));
  VANTYX_STAGE(BoxBlur(aligned_src, dst_rect, plan.blur_radius, simd));
  if (plan.output_mode == 1)
    return RunStage("copy blur hlr", dst_rect, Split::kRows,
                    [&](const ProcessRect& s) { return copy_block(aligned_src, dst, s); });

  return RunStage(plan.weight.name, dst_rect, Split::kRows, [&](const ProcessRect& s) -> int32_t {
    if (!aligned_src.data || !dst.data) return VX_E_POINTER;
    const Area a = Clip(Clip(AreaOf(s), aligned_src), dst);
    for (int32_t y = a.top; y < a.bottom; ++y) {
      const int32_t rc = plan.weight.run(plan.weight.ctx, aligned_src.At(a.left, y),
                                         dst.At(a.left, y), a.right - a.left);
      if (rc < 0) return rc;
    }
    return VX_OK;
  });
}

// "soften hlr": the glow in float through the light curve and, for a positive radius, two
// horizontal and two vertical box blurs, then back to bytes.
int32_t GlowEffect::StagedSoften(const GlowPlan& plan) {
  const ProcessRect scaled = ScaledRect();
  const ImageView hlr = ViewOf(m_scaled_hlr), hlr_f = ViewOf(m_scaled_img_f);
  const int32_t simd = cpu.simd_level;
  VANTYX_STAGE(RunStage("convert BYTE to Float", scaled, Split::kRows, [&](const ProcessRect& s) {
    return convert_u8_to_f32(hlr, hlr_f, 1.0f / 255.0f, 0.0f, s, simd);
  }));
  VANTYX_STAGE(RunStage("adjust light", scaled, Split::kRows, [&](const ProcessRect& s) {
    return adjust_light_plain(hlr_f, plan.light_gain, plan.light_k, s);
  }));
  if (plan.soft_radius > 0)
    VANTYX_STAGE(BoxBlur(hlr_f, scaled, plan.soft_radius, plan.soft_blur_plain ? SIMD_NONE : simd));
  return RunStage("convert Float to BYTE", scaled, Split::kRows, [&](const ProcessRect& s) {
    return convert_f32_to_u8(hlr_f, hlr, 255.0f, 0.0f, s, simd);
  });
}

// Two horizontal passes, then two vertical ones: close to a gaussian.
int32_t GlowEffect::BoxBlur(const ImageView& image, const ProcessRect& rect, int32_t radius,
                            int32_t level) {
  for (int pass = 0; pass < 2; ++pass)
    VANTYX_STAGE(RunStage("BoxBlurH", rect, Split::kRows, [&](const ProcessRect& s) {
      return box_blur_rows(image, nullptr, radius, s, level);
    }));
  for (int pass = 0; pass < 2; ++pass)
    VANTYX_STAGE(RunStage("BoxBlurV", rect, Split::kColumns, [&](const ProcessRect& s) {
      return box_blur_cols(image, nullptr, radius, s, level);
    }));
  return VX_OK;
}

int32_t GlowEffect::Resample(const char* stage, const SmartBuffer& from, const ProcessRect& from_rect,
                             SmartBuffer& to, const ProcessRect& to_rect) {
  const ImageView src = ViewOf(from), dst = ViewOf(to);
  const int32_t simd = cpu.simd_level;
  return RunStage(stage, to_rect, Split::kRows, [&](const ProcessRect& s) {
    return resample_bilinear(src, dst, from_rect, s, simd);
  }, resample_kernel_name(src, dst, simd));
}

int32_t GlowEffect::RowStageOver(const RowStage& stage, const ImageView& image, const ProcessRect& rect) {
  if (!stage.name) return VX_OK;
  return RunStage(stage.name, rect, Split::kRows, [&](const ProcessRect& s) -> int32_t {
    if (!image.data) return VX_E_POINTER;
    const Area a = Clip(AreaOf(s), image);
    for (int32_t y = a.top; y < a.bottom; ++y) {
      const int32_t rc = stage.run(stage.ctx, image.At(a.left, y), a.right - a.left);
      if (rc < 0) return rc;
    }
    return VX_OK;
  }, stage.kernel);
}

// ---- Fused ------------------------------------------------------------------------------------

// Per-strip working memory, kept between frames so that no pass allocates in the steady state.
struct GlowEffect::Scratch {
  std::vector<uint8_t> bytes;
  detail::ResampleRowsU8 resample;
  detail::ColumnBoxStream first, second;
  // `count` pieces of the given sizes, each 64-byte aligned.
  void Carve(std::initializer_list<std::pair<uint8_t**, size_t>> pieces) {
    size_t total = 64;
    for (const auto& p : pieces) total += (p.second + 63) & ~size_t{63};
    if (bytes.size() < total) bytes.resize(total);
    uintptr_t at = (reinterpret_cast<uintptr_t>(bytes.data()) + 63) & ~uintptr_t{63};
    for (const auto& p : pieces) {
      *p.first = reinterpret_cast<uint8_t*>(at);
      at += (p.second + 63) & ~size_t{63};
    }
  }
};

class GlowEffect::ScratchLease {
 public:
  explicit ScratchLease(GlowEffect* owner) : owner_(owner) {
    std::lock_guard<std::mutex> lock(owner_->m_scratch_mutex);
    if (!owner_->m_scratch.empty()) {
      scratch_ = std::move(owner_->m_scratch.back());
      owner_->m_scratch.pop_back();
    }
  }
  ~ScratchLease() {
    if (!scratch_) return;
    std::lock_guard<std::mutex> lock(owner_->m_scratch_mutex);
    owner_->m_scratch.push_back(std::move(scratch_));
  }
  Scratch& Get() {
    if (!scratch_) scratch_.reset(new Scratch);
    return *scratch_;
  }

 private:
  GlowEffect* owner_;
  std::unique_ptr<Scratch> scratch_;
};

GlowEffect::GlowEffect(CThreadPool* pool, float scale, const CurvePoint* tone_curve,
                       int32_t points)
    : EffectBase(pool, scale), m_tone_curve(tone_curve), m_tone_points(points) {}
GlowEffect::~GlowEffect() = default;

int32_t GlowEffect::ResizeGlow(int32_t width, int32_t height) {
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
  BuildToneCurve(m_tone_curve, m_tone_points, m_tone_lut.get(), 256);
  m_mask_map = BuildMaskMap(m_img_w, m_img_h, m_scaled_img_w, m_scaled_img_h);
  return VX_OK;
}

void GlowEffect::Failure::Note(int32_t rc, const char* name) {
  int32_t none = 0;
  if (code.compare_exchange_strong(none, rc)) stage.store(name);
}

namespace {

bool Overlap(const ImageDesc& a, const ImageDesc& b) {
  auto span = [](const ImageDesc& d, uintptr_t* lo, uintptr_t* hi) {
    *lo = reinterpret_cast<uintptr_t>(d.data);
    *hi = *lo;
    if (d.width && d.height) *hi += uintptr_t(d.stride) * (d.height - 1) + uintptr_t(d.width) * 4;
  };
  uintptr_t a0, a1, b0, b1;
  span(a, &a0, &a1);
  span(b, &b0, &b1);
  return a0 < b1 && b0 < a1;
}

// Half-size columns per vertical segment: the ring of rows stays near 128 KiB.
int32_t SegmentPixels(int32_t columns, int32_t ring_rows) {
  const int32_t px = 131072 / (12 * std::max(ring_rows, 1));
  return std::min(columns, std::max(4, px & ~3));
}

}  // namespace

bool GlowEffect::Fusable(const GlowPlan& plan) const {
  if (!m_src.data || !m_dst.data || Overlap(m_src, m_dst)) return false;
  if (!m_scaled_hlr.data || !m_scaled_img_f.data || !m_aligned_hlr.data || !m_aligned_src.data)
    return false;
  if (plan.output_mode == 3) return true;
  if (m_scaled_img_w < 1 || m_scaled_img_h < 1 || plan.soft_radius < 0) return false;
  if (HasMask() && (m_mask_map.x0.size() != size_t(m_scaled_img_w) ||
                    m_mask_map.y0.size() != size_t(m_scaled_img_h)))
    return false;
  if (plan.output_mode == 0) return true;
  if (plan.blend_index < 0 || plan.blend_index >= kBlendKernelCount) return false;
  return !plan.blur || (plan.blur_radius >= 0 && plan.blur_radius <= 128);
}

template <class Body>
int32_t GlowEffect::FusedPass(const char* lead, const ProcessRect& rect, Split split,
                              const Body& body) {
  Failure failure;
  auto strip = [&](const ProcessRect& s) -> int32_t {
    ScratchLease lease(this);
    const int32_t rc = body(s, lease.Get(), failure);
    if (rc < 0) failure.Note(rc, lead);
    return rc;
  };
  using Strip = decltype(strip);
  BlockFn entry = [](BlockJob* job, int32_t* result) -> int32_t {
    *result = (*static_cast<const Strip*>(job->args))(job->rect);
    return *result;
  };
  const int32_t rc = m_segmenter.SegmentBlock(entry, const_cast<void*>(static_cast<const void*>(&strip)),
                                              this, &rect, split == Split::kRows);
  if (rc < 0) {
    const char* name = failure.stage.load();
    LogStageFailure(name ? name : lead, rc);
  }
  return rc;
}

int32_t GlowEffect::Fused(const GlowPlan& plan) {
  if (plan.output_mode == 3) {
    const ImageView src = SrcView(), dst_at_rect = DstAtRect();
    return RunStage("copy original image", FrameRect(), Split::kRows,
                    [&](const ProcessRect& s) { return copy_block(src, dst_at_rect, s); });
  }
  const ProcessRect scaled = ScaledRect();
  VANTYX_STAGE(FusedPass("downsampling src", scaled, Split::kRows,
                         [&](const ProcessRect& s, Scratch& sc, Failure& f) {
                           return HalfSizeRows(plan, s, sc, f);
                         }));
  if (plan.soft_radius > 0)
    VANTYX_STAGE(FusedPass("BoxBlurV", scaled, Split::kColumns,
                           [&](const ProcessRect& s, Scratch& sc, Failure& f) {
                             return HalfSizeColumns(plan, s, sc, f);
                           }));
  if (plan.output_mode == 0)
    return FusedPass("upsampling hlr", m_process_rect, Split::kRows,
                     [&](const ProcessRect& s, Scratch& sc, Failure& f) {
                       return GlowRows(plan, s, sc, f);
                     });
  if (plan.before_base) plan.before_base(plan.before_base_ctx);
  if (!plan.blur)
    return FusedPass("blending hlr to result", m_process_rect, Split::kRows,
                     [&](const ProcessRect& s, Scratch& sc, Failure& f) {
                       return BlendRows(plan, s, sc, f);
                     });

  // A strip blurs rows of its neighbours' too (its halo): it blends them from the caller's
  // destination as it was, so the rows near each strip's edges are kept first, before any
  // strip writes its results. Every pass below cuts the same rectangle into the same strips.
  const ProcessRect dst_rect = DstRect();
  const int32_t halo = plan.blur_radius > 1 ? 2 * (plan.blur_radius - 1) : 0;
  if (halo > 0 && m_segmenter.BlockCount() > 1) {
    const ImageView dst = DstView(), kept = ViewOf(m_aligned_hlr);
    VANTYX_STAGE(RunStage("blending hlr to result", dst_rect, Split::kRows, [&](const ProcessRect& s) {
      const int32_t top = int32_t(s.top), bottom = int32_t(s.bottom);
      const size_t bytes = size_t(dst.width) * 4;
      for (int32_t y = top; y < bottom; ++y)
        if (y < top + halo || y >= bottom - halo) std::memcpy(kept.Row(y), dst.Row(y), bytes);
      return VX_OK;
    }));
  }
  return FusedPass("blending hlr to result", dst_rect, Split::kRows,
                   [&](const ProcessRect& s, Scratch& sc, Failure& f) {
                     return BlurredBlendRows(plan, s, halo, sc, f);
                   });
}

// Half size, one strip of rows: downsampling, key, light curve and both horizontal blurs, four
// rows at a time. Without a blur the rows go straight back to bytes and through the colour stage.
int32_t GlowEffect::HalfSizeRows(const GlowPlan& plan, const ProcessRect& strip, Scratch& s,
                                 Failure& f) {
  const int32_t sw = m_scaled_img_w, sh = m_scaled_img_h;
  const int32_t top = int32_t(strip.top), bottom = std::min<int32_t>(int32_t(strip.bottom), sh);
  if (top >= bottom) return VX_OK;
  const ImageView src = SrcView(), hlr = ViewOf(m_scaled_hlr), hlr_f = ViewOf(m_scaled_img_f);
  const ImageView mask = MaskView();
  s.resample.Init(src, Area{0, 0, m_img_w, m_img_h}, sw, sh, 0, sw);
  float light[256];
  LightCurveTable(plan.light_gain, plan.light_k, light);
  uint8_t glow[256];  // no blur: the light curve straight back to bytes
  for (int32_t b = 0; b < 256; ++b) {
    const float v = 255.0f * light[b] + 0.0f;
    glow[b] = !(v >= 1.0f) ? 0 : v >= 256.0f ? 255 : uint8_t(int32_t(v));
  }
  const size_t row_floats = size_t(sw) * 3 + 4;  // one pixel more: the fast blur reads 16 bytes
  uint8_t *down = nullptr, *x_rows = nullptr, *h_rows = nullptr;
  s.Carve({{&down, size_t(sw) * 4}, {&x_rows, 4 * row_floats * 4}, {&h_rows, 4 * row_floats * 4}});
  const int32_t r = plan.soft_radius;
  for (int32_t y = top; y < bottom; y += 4) {
    const int32_t rows = std::min(4, bottom - y);
    float* x[4];
    float* h[4];
    uint8_t* out[4];
    uint8_t* h_out[4];
    for (int32_t k = 0; k < rows; ++k) {
      s.resample.RowSse41(y + k, down);
      uint8_t* key = hlr.Row(y + k);
      const uint8_t* mask_row = HasMask() ? mask.Row(m_mask_map.y0[size_t(y + k)]) : nullptr;
      HighlightKeyRowSse41(down, key, 0, sw, mask_row, &m_mask_map, plan.threshold, plan.rule);
      if (r <= 0) {
        for (int32_t i = 0; i < sw; ++i)
          for (int c = 0; c < 3; ++c) key[4 * i + c] = glow[key[4 * i + c]];
        if (plan.colour.name) {
          const int32_t rc = plan.colour.run(plan.colour.ctx, key, sw);
          if (rc < 0) {
            f.Note(rc, plan.colour.name);
            return rc;
          }
        }
        continue;
      }
      x[k] = reinterpret_cast<float*>(x_rows) + size_t(k) * row_floats;
      h[k] = reinterpret_cast<float*>(h_rows) + size_t(k) * row_floats;
      for (int32_t i = 0; i < sw; ++i)
        for (int c = 0; c < 3; ++c) x[k][3 * i + c] = light[key[4 * i + c]];
      x[k][3 * sw] = 0.0f;
      h[k][3 * sw] = 0.0f;
      h_out[k] = reinterpret_cast<uint8_t*>(h[k]);
      out[k] = hlr_f.Row(y + k);
    }
    if (r > 0) {
      detail::BoxBlurF96RowsSse41(h_out, x, rows, sw, r);
      detail::BoxBlurF96RowsSse41(out, h, rows, sw, r);
    }
  }
  return VX_OK;
}

// Half size, one strip of columns: both vertical blurs, then bytes and the colour stage.
int32_t GlowEffect::HalfSizeColumns(const GlowPlan& plan, const ProcessRect& strip, Scratch& s,
                                    Failure& f) {
  const int32_t n = m_scaled_img_h, r = plan.soft_radius;
  const int32_t left = int32_t(strip.left), right = std::min<int32_t>(int32_t(strip.right), m_scaled_img_w);
  if (left >= right || n < 1) return VX_OK;
  const ImageView hlr = ViewOf(m_scaled_hlr), hlr_f = ViewOf(m_scaled_img_f);
  const int32_t ring_rows = std::min(2 * r, n);
  const int32_t seg = SegmentPixels(right - left, ring_rows);
  uint8_t *ring = nullptr, *row = nullptr;
  s.Carve({{&ring, size_t(ring_rows) * size_t(seg) * 12}, {&row, size_t(seg) * 12}});
  for (int32_t x0 = left; x0 < right; x0 += seg) {
    const int32_t w = std::min(seg, right - x0);
    const int32_t bytes = w * 12;
    s.first.Init(true, n, r, 0, n, bytes);
    s.second.Init(true, n, r, 0, n, bytes);
    const int32_t cap = s.second.Capacity();
    for (int32_t i = 0; i < n; ++i) {
      s.first.Push(i, hlr_f.At(x0, i));
      for (int32_t j; (j = s.first.Ready()) >= 0;) {
        uint8_t* v1 = ring + size_t(j % cap) * size_t(bytes);
        s.first.EmitSse41(v1);
        s.second.Push(j, v1);
        for (int32_t k; (k = s.second.Ready()) >= 0;) {
          s.second.EmitSse41(row);
          uint8_t* out = hlr.At(x0, k);
          convert_f32_to_u8_sse41(PixelRow(row, w, PIXEL_FLOAT96), PixelRow(out, w), 255.0f, 0.0f,
                                  PixelRowRect(w));
          if (plan.colour.name) {
            const int32_t rc = plan.colour.run(plan.colour.ctx, out, w);
            if (rc < 0) {
              f.Note(rc, plan.colour.name);
              return rc;
            }
          }
        }
      }
    }
  }
  return VX_OK;
}

// Output mode 0: the enlarged glow rows of the process rectangle, into the destination.
int32_t GlowEffect::GlowRows(const GlowPlan& plan, const ProcessRect& strip, Scratch& s, Failure& f) {
  const ImageView dst_at_rect = DstAtRect();
  const int32_t left = int32_t(m_process_rect.left), right = int32_t(m_process_rect.right);
  if (left >= right) return VX_OK;
  s.resample.Init(ViewOf(m_scaled_hlr), Area{0, 0, m_scaled_img_w, m_scaled_img_h}, m_img_w,
                  m_img_h, left, right);
  for (int32_t y = int32_t(strip.top); y < int32_t(strip.bottom); ++y) {
    uint8_t* out = dst_at_rect.At(left, y);
    s.resample.RowSse41(y, out);
    if (plan.layer.name) {
      const int32_t rc = plan.layer.run(plan.layer.ctx, out, right - left);
      if (rc < 0) {
        f.Note(rc, plan.layer.name);
        return rc;
      }
    }
  }
  return VX_OK;
}

// One row of the blend: frame row y of the picture (through the base stages) and of the
// enlarged glow (through the layer stage), blended into `row`, which holds the destination's
// bytes of that row.
int32_t GlowEffect::BlendRow(const GlowPlan& plan, int32_t y, uint8_t* row, uint8_t* layer,
                             uint8_t* base_copy, Scratch& s, Failure& f) {
  const int32_t left = int32_t(m_process_rect.left), w = int32_t(m_process_rect.right) - left;
  s.resample.RowSse41(y, layer);
  if (plan.layer.name) {
    const int32_t rc = plan.layer.run(plan.layer.ctx, layer, w);
    if (rc < 0) {
      f.Note(rc, plan.layer.name);
      return rc;
    }
  }
  uint8_t* base = SrcView().At(left, y);
  for (const RowStage& stage : plan.base) {
    if (!stage.name) continue;
    int32_t rc;
    if (base == base_copy) {
      rc = stage.run(stage.ctx, base, w);
    } else if (stage.run_to) {
      rc = stage.run_to(stage.ctx, base, base_copy, w);
    } else {
      std::memcpy(base_copy, base, size_t(w) * 4);
      rc = stage.run(stage.ctx, base_copy, w);
    }
    base = base_copy;
    if (rc < 0) {
      f.Note(rc, stage.name);
      return rc;
    }
  }
  const int32_t rc = kBlendKernelsSse41[plan.blend_index](PixelRow(base, w), PixelRow(layer, w),
                                                         PixelRow(row, w), plan.opacity,
                                                         PixelRowRect(w));
  if (rc < 0) f.Note(rc, "blending hlr to result");
  return rc;
}

// The blend without a blur: each row of the process rectangle blended in place.
int32_t GlowEffect::BlendRows(const GlowPlan& plan, const ProcessRect& strip, Scratch& s, Failure& f) {
  const int32_t left = int32_t(m_process_rect.left), right = int32_t(m_process_rect.right);
  if (left >= right) return VX_OK;
  const size_t row_bytes = size_t(right - left) * 4;
  uint8_t *layer = nullptr, *base = nullptr;
  s.Carve({{&layer, row_bytes}, {&base, row_bytes}});
  s.resample.Init(ViewOf(m_scaled_hlr), Area{0, 0, m_scaled_img_w, m_scaled_img_h}, m_img_w,
                  m_img_h, left, right);
  const ImageView dst_at_rect = DstAtRect();
  for (int32_t y = int32_t(strip.top); y < int32_t(strip.bottom); ++y)
    VANTYX_STAGE(BlendRow(plan, y, dst_at_rect.At(left, y), layer, base, s, f));
  return VX_OK;
}

// The blend, blurred and mixed, for the destination rows [strip.top, strip.bottom): blended
// rows from `halo` rows above to `halo` rows below, both horizontal blurs of each, then both
// vertical blurs through rings of rows, and the weighting (or the blurred rows themselves in
// output mode 1) of the strip's own rows. Coordinates are the destination's.
int32_t GlowEffect::BlurredBlendRows(const GlowPlan& plan, const ProcessRect& strip, int32_t halo,
                                     Scratch& s, Failure& f) {
  const ImageView dst = DstView(), kept = ViewOf(m_aligned_hlr);
  const int32_t n = dst.height, w = dst.width, top = int32_t(m_process_rect.top);
  const int32_t y0 = int32_t(strip.top), y1 = std::min(int32_t(strip.bottom), n);
  if (w < 1 || y0 >= y1) return VX_OK;
  const size_t row_bytes = size_t(w) * 4;
  const int32_t r = plan.blur_radius;
  auto finish = [&](uint8_t* blurred, uint8_t* blended, int32_t y) -> int32_t {
    if (plan.output_mode != 1) {
      const int32_t rc = plan.weight.run(plan.weight.ctx, blurred, blended, w);
      if (rc < 0) {
        f.Note(rc, plan.weight.name);
        return rc;
      }
      blurred = blended;
    }
    if (blurred != dst.Row(y)) std::memcpy(dst.Row(y), blurred, row_bytes);
    return VX_OK;
  };

  if (halo == 0) {  // a radius of 0 or 1 leaves the blend as it is
    uint8_t *layer = nullptr, *base = nullptr, *copy = nullptr;
    s.Carve({{&layer, row_bytes}, {&base, row_bytes}, {&copy, row_bytes}});
    s.resample.Init(ViewOf(m_scaled_hlr), Area{0, 0, m_scaled_img_w, m_scaled_img_h}, m_img_w,
                    m_img_h, int32_t(m_process_rect.left), int32_t(m_process_rect.right));
    for (int32_t y = y0; y < y1; ++y) {
      VANTYX_STAGE(BlendRow(plan, y + top, dst.Row(y), layer, base, s, f));
      std::memcpy(copy, dst.Row(y), row_bytes);
      VANTYX_STAGE(finish(copy, dst.Row(y), y));
    }
    return VX_OK;
  }

  const int32_t b0 = std::max(0, y0 - halo), b1 = std::min(n, y1 + halo);
  s.first.Init(false, n, r, std::max(0, y0 - (r - 1)), std::min(n, y1 + (r - 1)), int32_t(row_bytes));
  s.second.Init(false, n, r, y0, y1, int32_t(row_bytes));
  const int32_t cap_h = s.first.Capacity(), cap_v = s.second.Capacity();
  uint8_t *layer = nullptr, *base = nullptr, *h1 = nullptr, *blurred = nullptr, *halo_row = nullptr;
  uint8_t *ring_h = nullptr, *ring_v = nullptr;
  s.Carve({{&layer, row_bytes},
           {&base, row_bytes},
           {&h1, row_bytes},
           {&blurred, row_bytes},
           {&halo_row, row_bytes},
           {&ring_h, row_bytes * size_t(cap_h)},
           {&ring_v, row_bytes * size_t(cap_v)}});
  s.resample.Init(ViewOf(m_scaled_hlr), Area{0, 0, m_scaled_img_w, m_scaled_img_h}, m_img_w,
                  m_img_h, int32_t(m_process_rect.left), int32_t(m_process_rect.right));
  auto slot = [&](uint8_t* ring, int32_t cap, int32_t i, int32_t first) {
    return ring + size_t((i - first) % cap) * row_bytes;
  };
  // The strip's own rows are blended in place, where the weighting finds them; a halo row only
  // feeds the horizontal blurs, through one scratch row.
  for (int32_t b = b0; b < b1; ++b) {
    uint8_t* blended = dst.Row(b);
    if (b < y0 || b >= y1) {
      blended = halo_row;
      std::memcpy(blended, kept.Row(b), row_bytes);
    }
    VANTYX_STAGE(BlendRow(plan, b + top, blended, layer, base, s, f));
    uint8_t* h = slot(ring_h, cap_h, b, b0);
    detail::BoxBlurBgraRowSse41(blended, h1, w, r);
    detail::BoxBlurBgraRowSse41(h1, h, w, r);
    s.first.Push(b, h);
    for (int32_t j; (j = s.first.Ready()) >= 0;) {
      uint8_t* v = slot(ring_v, cap_v, j, s.second.FirstInput());
      s.first.EmitSse41(v);
      s.second.Push(j, v);
      for (int32_t k; (k = s.second.Ready()) >= 0;) {
        s.second.EmitSse41(blurred);
        VANTYX_STAGE(finish(blurred, dst.Row(k), k));
      }
    }
  }
  return VX_OK;
}

}  // namespace Vantyx
