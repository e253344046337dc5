#include "core/smart_buffer.h"

#include <cstring>
#include <new>

#include "core/image_view.h"

namespace Vantyx {
namespace {

constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057u);
constexpr int32_t kNotImpl = static_cast<int32_t>(0x80004001u);
constexpr int32_t kNullPointer = static_cast<int32_t>(0x80004003u);

uint32_t ChannelsOf(uint32_t format) {
  switch (format) {
    case PIXEL_BGRA32: return 4;
    case PIXEL_BGR24: return 3;
    case PIXEL_FLOAT96: return 3;
    default: return 1;
  }
}

// The shared steps of Create and Attach: sizes and format are stored first (a refused buffer
// still shows what was asked for), then the geometry is checked in 64 bits so that a byte
// count beyond 32 bits is refused rather than wrapped into a short allocation.
int32_t SetGeometry(SmartBuffer* buffer, uint32_t width, int32_t height, uint32_t format,
                    uint32_t* bytes) {
  buffer->width = width;
  buffer->height = height;
  buffer->format = format;
  if (format > PIXEL_GRAY32_ALT) return kNotImpl;

  const uint64_t stride = uint64_t{width} * BytesPerPixel(format);
  const uint64_t total = height < 0 ? 0 : stride * static_cast<uint64_t>(height);
  if (height < 0 || stride > UINT32_MAX || total > UINT32_MAX) {
    // The old storage does not match the stored size: drop it so nothing reads past it.
    buffer->data.reset();
    buffer->stride = 0;
    buffer->channels = ChannelsOf(format);
    return kInvalidArg;
  }
  buffer->channels = ChannelsOf(format);
  buffer->stride = static_cast<uint32_t>(stride);
  *bytes = static_cast<uint32_t>(total);
  return 0;
}

// Checks shared by both copies. The row length is counted in pixels of the source format, and
// both images must have the same pixel size, so a row never runs past either image.
int32_t CopyRect(const uint8_t* src, uint32_t src_w, uint32_t src_h, uint32_t src_stride,
                 uint32_t src_format, const ProcessRect& rect, const ImageDesc& dst) {
  if (rect.left > INT32_MAX || rect.top > INT32_MAX) return kInvalidArg;  // negative edges
  if (rect.right < rect.left || rect.bottom < rect.top) return kInvalidArg;
  if (rect.right > src_w || rect.bottom > src_h) return kInvalidArg;
  const uint32_t w = rect.right - rect.left;
  const uint32_t h = rect.bottom - rect.top;
  if (dst.width != w || dst.height != h) return kInvalidArg;

  const uint32_t bpp = BytesPerPixel(src_format);
  if (bpp == 0 || bpp != BytesPerPixel(dst.format)) return kInvalidArg;
  const uint64_t row_bytes = uint64_t{w} * bpp;
  if (uint64_t{rect.right} * bpp > src_stride || row_bytes > dst.stride) return kInvalidArg;
  if (h == 0 || row_bytes == 0) return 0;
  if (!src || !dst.data) return kNullPointer;

  const uint8_t* from = src + uint64_t{rect.top} * src_stride + uint64_t{rect.left} * bpp;
  uint8_t* to = static_cast<uint8_t*>(dst.data);
  for (uint32_t y = 0; y < h; ++y) {
    std::memcpy(to, from, static_cast<size_t>(row_bytes));
    from += src_stride;
    to += dst.stride;
  }
  return 0;
}

}  // namespace

int32_t CreateSmartBufferData(SmartBuffer* buffer, uint32_t width, int32_t height,
                              uint32_t format) {
  if (!buffer) return kInvalidArg;
  uint32_t bytes = 0;
  const int32_t rc = SetGeometry(buffer, width, height, format, &bytes);
  if (rc != 0) return rc;
  // Not cleared: every effect clears its buffers itself. bad_alloc reaches the caller; until
  // the new array exists the old one stays, so another owner's pixels are never touched.
  buffer->data = std::shared_ptr<uint8_t>(new uint8_t[bytes], std::default_delete<uint8_t[]>());
  return 0;
}

int32_t AttachSmartBufferData(SmartBuffer* buffer, uint32_t width, int32_t height,
                              uint32_t format, uint8_t* external) {
  if (!buffer) return kInvalidArg;
  if (format == PIXEL_FLOAT96) {
    buffer->width = width;
    buffer->height = height;
    buffer->format = format;
    return kNotImpl;
  }
  uint32_t bytes = 0;
  const int32_t rc = SetGeometry(buffer, width, height, format, &bytes);
  if (rc != 0) return rc;
  // Caller memory: the handle shares nothing and frees nothing.
  buffer->data = std::shared_ptr<uint8_t>(external, [](uint8_t*) {});
  return 0;
}

int32_t CopyRectToDesc(const SmartBuffer& src, const ProcessRect& rect, const ImageDesc& dst) {
  if (src.height < 0) return kInvalidArg;
  return CopyRect(src.data.get(), src.width, static_cast<uint32_t>(src.height), src.stride,
                  src.format, rect, dst);
}

int32_t CopyRectToDesc(const ImageDesc& src, const ProcessRect& rect, const ImageDesc& dst) {
  return CopyRect(static_cast<const uint8_t*>(src.data), src.width, src.height, src.stride,
                  src.format, rect, dst);
}

}  // namespace Vantyx
