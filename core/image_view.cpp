#include "core/image_view.h"

#include <algorithm>
#include <cstdint>

#include "core/smart_buffer.h"

namespace Vantyx {

uint32_t BytesPerPixel(uint32_t format) {
  switch (format) {
    case PIXEL_BGRA32: return 4;
    case PIXEL_BGR24: return 3;
    case PIXEL_GRAY8: return 1;
    case PIXEL_GRAY16: return 2;
    case PIXEL_GRAYF32: return 4;
    case PIXEL_FLOAT96: return 12;
    case PIXEL_GRAY32_ALT: return 4;
    default: return 0;
  }
}

ImageView ViewOf(const ImageDesc& desc, int32_t origin_x, int32_t origin_y) {
  ImageView v;
  v.data = static_cast<uint8_t*>(desc.data);
  v.width = static_cast<int32_t>(std::min<uint32_t>(desc.width, INT32_MAX));
  v.height = static_cast<int32_t>(std::min<uint32_t>(desc.height, INT32_MAX));
  v.stride = static_cast<int32_t>(std::min<uint32_t>(desc.stride, INT32_MAX));
  v.format = desc.format;
  v.origin_x = origin_x;
  v.origin_y = origin_y;
  return v;
}

ImageView ViewOf(const SmartBuffer& buffer) {
  ImageView v;
  v.data = buffer.data.get();
  v.width = static_cast<int32_t>(std::min<uint32_t>(buffer.width, INT32_MAX));
  v.height = std::max(buffer.height, 0);
  v.stride = static_cast<int32_t>(std::min<uint32_t>(buffer.stride, INT32_MAX));
  v.format = buffer.format;
  return v;
}

Area AreaOf(const ProcessRect& rect) {
  if (rect.left > INT32_MAX || rect.top > INT32_MAX || rect.right > INT32_MAX ||
      rect.bottom > INT32_MAX)
    return Area{0, 0, 0, 0};
  return Area{static_cast<int32_t>(rect.left), static_cast<int32_t>(rect.top),
              static_cast<int32_t>(rect.right), static_cast<int32_t>(rect.bottom)};
}

Area Clip(const Area& area, const ImageView& view) {
  // 64-bit edges: an origin far from zero must not overflow.
  const int64_t l = std::max<int64_t>(area.left, view.origin_x);
  const int64_t t = std::max<int64_t>(area.top, view.origin_y);
  const int64_t r = std::min<int64_t>(area.right, int64_t{view.origin_x} + view.width);
  const int64_t b = std::min<int64_t>(area.bottom, int64_t{view.origin_y} + view.height);
  if (l >= r || t >= b) return Area{0, 0, 0, 0};
  return Area{static_cast<int32_t>(l), static_cast<int32_t>(t), static_cast<int32_t>(r),
              static_cast<int32_t>(b)};
}

}  // namespace Vantyx
