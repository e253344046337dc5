#include "core/effect_base.h"

#include <cmath>
#include <cstring>
#include <new>

#include "imageops/box_blur.h"
#include "imageops/resample.h"

namespace Vantyx {

EffectBase::EffectBase(CThreadPool* pool, float scale) : m_scale(scale) { m_segmenter.Bind(pool); }

int32_t EffectBase::SetCpuInfo(const CpuInfo* info) {
  if (!info) return VX_E_POINTER;
  cpu = *info;
  return VX_OK;
}

int32_t EffectBase::ResizeBuffers(int32_t width, int32_t height, const WorkingBuffer* buffers,
                                  size_t count, bool* resized) {
  *resized = false;
  if (width < 1 || height < 1) return VX_E_INVALIDARG;
  if (width == m_img_w && height == m_img_h) return VX_OK;

  m_img_w = width;
  m_img_h = height;
  m_aligned_img_w = AlignedSize(width);
  m_aligned_img_h = AlignedSize(height);
  m_scaled_img_w = ScaledSize(width, m_scale);
  m_scaled_img_h = ScaledSize(height, m_scale);

  for (size_t i = 0; i < count; ++i) {
    const WorkingBuffer& wanted = buffers[i];
    uint32_t w = 0;
    int32_t h = 0;
    switch (wanted.size) {
      case BufferSize::kAligned: w = uint32_t(m_aligned_img_w); h = m_aligned_img_h; break;
      case BufferSize::kScaled: w = uint32_t(m_scaled_img_w); h = m_scaled_img_h; break;
      case BufferSize::kAlignedSquare: w = uint32_t(m_aligned_img_w); h = m_aligned_img_w; break;
    }
    int32_t rc;
    try {
      rc = CreateSmartBufferData(wanted.buffer, w, h, wanted.format);
    } catch (const std::bad_alloc&) {
      // An exception must not cross into the host: report it like any failed creation.
      rc = VX_E_OUTOFMEMORY;
    }
    if (rc < 0) {
      DebugLog(wanted.message, static_cast<unsigned>(rc));
      // Forget the size, so that the same size asked again builds the buffers again, and give
      // back every buffer: no frame can use them now.
      ClearSizes();
      for (size_t j = 0; j < count; ++j) buffers[j].buffer->data.reset();
      return rc;
    }
  }
  for (size_t i = 0; i < count; ++i) {
    SmartBuffer* b = buffers[i].buffer;
    if (b->data) std::memset(b->data.get(), 0, size_t(b->stride) * size_t(b->height));
    if (buffers[i].frame_logical) {
      b->width = uint32_t(m_img_w);
      b->height = m_img_h;
    }
  }
  *resized = true;
  return VX_OK;
}

void EffectBase::ClearSizes() {
  m_img_w = m_img_h = 0;
  m_aligned_img_w = m_aligned_img_h = 0;
  m_scaled_img_w = m_scaled_img_h = 0;
}

int32_t EffectBase::CheckFrame(const ImageDesc& src, const ImageDesc& mask, const ImageDesc& dst,
                               const ProcessRect& rect) const {
  if (m_img_w < 0 || m_img_h < 0) return VX_E_FAIL;
  const uint32_t w = uint32_t(m_img_w), h = uint32_t(m_img_h);
  if (src.width != w || src.height != h || !src.data) return VX_E_INVALIDARG;
  if (mask.data && (mask.width != w || mask.height != h || mask.format != PIXEL_GRAY8))
    return VX_E_INVALIDARG;
  // Unsigned 32-bit differences, as hosts compute them.
  if (dst.width != rect.right - rect.left || dst.height != rect.bottom - rect.top)
    return VX_E_INVALIDARG;
  if (src.format != PIXEL_BGRA32 || dst.format != PIXEL_BGRA32) return VX_E_NOTIMPL;

  // The rectangle inside the frame, rows long enough for their pixels, channel counts.
  if (!(rect.left <= rect.right && rect.right <= w && rect.top <= rect.bottom && rect.bottom <= h))
    return VX_E_INVALIDARG;
  if (uint64_t(src.stride) < uint64_t(src.width) * 4 || uint64_t(dst.stride) < uint64_t(dst.width) * 4)
    return VX_E_INVALIDARG;
  if (src.channels != 4 || dst.channels != 4) return VX_E_INVALIDARG;
  if (mask.data && (uint64_t(mask.stride) < uint64_t(mask.width) || mask.channels != 1))
    return VX_E_INVALIDARG;
  return VX_OK;
}

void EffectBase::StoreFrame(const ImageDesc& src, const ImageDesc& mask, const ImageDesc& dst,
                            const ProcessRect& rect) {
  m_src = src;
  m_mask = mask;
  m_dst = dst;
  m_process_rect = rect;
}

void EffectBase::DropFrame() {
  m_src = ImageDesc{};
  m_mask = ImageDesc{};
  m_dst = ImageDesc{};
  m_process_rect = ProcessRect{0, 0, 0, 0};
}

ProcessRect EffectBase::FrameRect() const {
  return ProcessRect{0, 0, uint32_t(m_img_w), uint32_t(m_img_h)};
}

ProcessRect EffectBase::ScaledRect() const {
  return ProcessRect{0, 0, uint32_t(m_scaled_img_w), uint32_t(m_scaled_img_h)};
}

ProcessRect EffectBase::DstRect() const { return ProcessRect{0, 0, m_dst.width, m_dst.height}; }

ImageView EffectBase::DstAtRect() const {
  return ViewOf(m_dst, int32_t(m_process_rect.left), int32_t(m_process_rect.top));
}

int32_t EffectBase::ResampleStage(const char* name, const ImageView& from, const ImageView& to,
                                  const char* kernel_name) {
  const ProcessRect from_rect{0, 0, uint32_t(from.width), uint32_t(from.height)};
  const ProcessRect to_rect{0, 0, uint32_t(to.width), uint32_t(to.height)};
  const int32_t simd = cpu.simd_level;
  return RunStage(name, to_rect, Split::kRows, [&](const ProcessRect& s) {
    return resample_bilinear(from, to, from_rect, s, simd);
  }, kernel_name);
}

int32_t EffectBase::BoxBlur(const ImageView& image, const ProcessRect& rect, int32_t radius,
                            int32_t simd_level) {
  for (int pass = 0; pass < 2; ++pass)
    VANTYX_STAGE(RunStage("BoxBlurH", rect, Split::kRows, [&](const ProcessRect& s) {
      return box_blur_rows(image, nullptr, radius, s, simd_level);
    }));
  for (int pass = 0; pass < 2; ++pass)
    VANTYX_STAGE(RunStage("BoxBlurV", rect, Split::kColumns, [&](const ProcessRect& s) {
      return box_blur_cols(image, nullptr, radius, s, simd_level);
    }));
  return VX_OK;
}

}  // namespace Vantyx

namespace Vantyx {

int32_t TruncToInt(double v) {
  if (std::isnan(v)) return 0;
  if (v >= 2147483647.0) return INT32_MAX;
  if (v <= -2147483648.0) return INT32_MIN;
  return static_cast<int32_t>(v);
}

int32_t TruncToInt(float v) { return TruncToInt(static_cast<double>(v)); }

}  // namespace Vantyx
