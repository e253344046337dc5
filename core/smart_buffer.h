// Working images: a shared, reference-counted block of pixel bytes with its geometry.
#pragma once

#include <cstdint>
#include <memory>

#include "vantyx.h"

namespace Vantyx {

struct SmartBuffer {
  std::shared_ptr<uint8_t> data;  // array storage, or caller memory that is never freed
  uint32_t width = 0;
  int32_t height = 0;
  uint32_t stride = 0;  // width x bytes per pixel, no row padding
  uint32_t channels = 4;
  uint32_t format = PIXEL_BGRA32;
};

// (Re)creates the storage for width x height pixels of `format`; the bytes are not cleared.
// 0x80004001 for an unknown format (sizes and format already stored), 0x80070057 when the
// byte count does not fit in 32 bits. std::bad_alloc propagates.
int32_t CreateSmartBufferData(SmartBuffer* buffer, uint32_t width, int32_t height, uint32_t format);

// As CreateSmartBufferData, but the buffer uses `external` without owning it. PIXEL_FLOAT96 is
// refused with 0x80004001.
int32_t AttachSmartBufferData(SmartBuffer* buffer, uint32_t width, int32_t height, uint32_t format,
                              uint8_t* external);

// Rectangle copies: the source rectangle {left, top, right, bottom} must lie inside the source
// and match the destination's size (0x80070057 otherwise); each row copies its (right - left)
// pixels, never more than either image holds.
int32_t CopyRectToDesc(const SmartBuffer& src, const ProcessRect& rect, const ImageDesc& dst);
int32_t CopyRectToDesc(const ImageDesc& src, const ProcessRect& rect, const ImageDesc& dst);

}  // namespace Vantyx
