// What a kernel sees of an image: a pointer, a stride in bytes, a size and a pixel format,
// placed in the stage's coordinates by an origin. A caller's destination that holds only the
// process rectangle is a view whose origin is the rectangle's top-left corner; kernels clip
// every strip to the views they touch, so nothing outside an image is ever read or written.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vantyx.h"

namespace Vantyx {

struct SmartBuffer;

// Bytes per pixel of a PixelFormat, 0 for an unknown one.
uint32_t BytesPerPixel(uint32_t format);

struct ImageView {
  uint8_t* data = nullptr;
  int32_t width = 0;   // pixels per row
  int32_t height = 0;  // rows
  int32_t stride = 0;  // bytes per row
  uint32_t format = PIXEL_BGRA32;
  int32_t origin_x = 0;  // stage coordinates of pixel (0, 0)
  int32_t origin_y = 0;

  // Pointer to pixel (x, y) given in stage coordinates; (x, y) must lie inside the view.
  uint8_t* At(int32_t x, int32_t y) const {
    return data + static_cast<ptrdiff_t>(y - origin_y) * stride +
           static_cast<ptrdiff_t>(x - origin_x) * BytesPerPixel(format);
  }
  uint8_t* Row(int32_t y) const { return data + static_cast<ptrdiff_t>(y - origin_y) * stride; }

  // The view's area in stage coordinates.
  int32_t Left() const { return origin_x; }
  int32_t Top() const { return origin_y; }
  int32_t Right() const { return origin_x + width; }
  int32_t Bottom() const { return origin_y + height; }
};

// Views of caller images and of working buffers; the buffer's logical size is used.
ImageView ViewOf(const ImageDesc& desc, int32_t origin_x = 0, int32_t origin_y = 0);
ImageView ViewOf(const SmartBuffer& buffer);

// Signed rectangle used inside kernels after clipping.
struct Area {
  int32_t left, top, right, bottom;
  bool Empty() const { return left >= right || top >= bottom; }
};

// The strip as signed values (an empty area for a rectangle whose values do not fit).
Area AreaOf(const ProcessRect& rect);
// The part of `area` that lies inside `view`.
Area Clip(const Area& area, const ImageView& view);

}  // namespace Vantyx
