// The walks that the families' own per-pixel kernels share: the checks and clipping of a
// strip over BGRA32 images, and the pixel-by-pixel loop of the plain forms (the fast forms'
// loop is in pixel_loops_sse41.h). No intrinsics here. The templates have internal linkage on
// purpose: an SSE4.1 file is built with -msse4.1, and a shared inline copy emitted there could
// be the one the linker keeps for the plain forms.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "core/image_view.h"

namespace Vantyx {
namespace pixel_loops {

// Null image 0x80004003, a format other than BGRA32 0x80070057, else 0 with *area the strip
// cut to every image.
int32_t PrepareBgra(std::initializer_list<const ImageView*> images, const ProcessRect& strip,
                    Area* area);

namespace {

// Runs pixel(pa, pb, pd) over the strip; `a` and `b` are only read (they may be `d` itself).
template <class Pixel>
int32_t EachPixel(const ImageView& a, const ImageView& b, const ImageView& d,
                  const ProcessRect& strip, const Pixel& pixel) {
  Area area;
  const int32_t rc = PrepareBgra({&a, &b, &d}, strip, &area);
  if (rc != 0 || area.Empty()) return rc;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    const uint8_t* pa = a.At(area.left, y);
    const uint8_t* pb = b.At(area.left, y);
    uint8_t* pd = d.At(area.left, y);
    for (int32_t x = area.left; x < area.right; ++x, pa += 4, pb += 4, pd += 4) pixel(pa, pb, pd);
  }
  return 0;
}

}  // namespace
}  // namespace pixel_loops
}  // namespace Vantyx
