#include "effects/halation/halation_kernels.h"

#include <algorithm>
#include <initializer_list>

#include "vantyx.h"

namespace Vantyx {
namespace halation {

namespace {

// Null image 0x80004003, a format other than BGRA32 0x80070057, else 0 with *area the strip
// cut to every image.
int32_t Prepare(std::initializer_list<const ImageView*> images, const ProcessRect& strip,
                Area* area) {
  *area = Area{0, 0, 0, 0};
  for (const ImageView* v : images)
    if (!v->data) return VX_E_POINTER;
  for (const ImageView* v : images)
    if (v->format != PIXEL_BGRA32) return VX_E_INVALIDARG;
  Area a = AreaOf(strip);
  for (const ImageView* v : images) a = Clip(a, *v);
  *area = a;
  return VX_OK;
}

// trunc(c f), 0 below 1.
inline uint8_t Faded(uint8_t c, float f) {
  const float v = static_cast<float>(c) * f;
  return v < 1.0f ? 0 : static_cast<uint8_t>(static_cast<int32_t>(v));
}

// Runs pixel(s, d) over the strip for one source and one destination image.
template <class Pixel>
int32_t EachPixel(const ImageView& src, const ImageView& dst, const ProcessRect& strip,
                  const Pixel& pixel) {
  Area a;
  const int32_t rc = Prepare({&src, &dst}, strip, &a);
  if (rc != 0 || a.Empty()) return rc;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* s = src.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    for (int32_t x = a.left; x < a.right; ++x, s += 4, d += 4) pixel(s, d);
  }
  return VX_OK;
}

}  // namespace

int32_t Luma(int32_t b, int32_t g, int32_t r) { return (19660 * r + 38665 * g + 7209 * b) >> 16; }

int32_t key_luma_plain(const ImageView& src, const ImageView& dst, int32_t threshold, float gain,
                       const ProcessRect& strip) {
  const float t = static_cast<float>(threshold);
  return EachPixel(src, dst, strip, [&](const uint8_t* s, uint8_t* d) {
    const int32_t l = Luma(s[0], s[1], s[2]);
    if (l >= threshold) {
      // No lower clamp: a negative red keeps its low byte, and a value below the int32
      // range saturates first (a huge gain).
      const float v = std::min(255.0f, static_cast<float>(s[2] - threshold) * gain + t);
      const int32_t red = v < -2147483648.0f ? INT32_MIN : static_cast<int32_t>(v);
      d[0] = s[0];
      d[1] = s[1];
      d[2] = static_cast<uint8_t>(red & 0xFF);
    } else {
      const float f = 1.0f - static_cast<float>(threshold - l) / 15.0f;
      d[0] = Faded(s[0], f);
      d[1] = Faded(s[1], f);
      d[2] = Faded(s[2], f);
    }
    d[3] = s[3];
  });
}

int32_t extract_midtone_plain(const ImageView& src, const ImageView& dst, int32_t threshold,
                              const ProcessRect& strip) {
  const float range = static_cast<float>(220 - threshold <= 20 ? 20 : 220 - threshold);
  return EachPixel(src, dst, strip, [&](const uint8_t* s, uint8_t* d) {
    const int32_t l = Luma(s[0], s[1], s[2]);
    if (l < threshold) {
      const float f = 1.0f - static_cast<float>(threshold - l) / range;
      d[0] = Faded(s[0], f);
      d[1] = Faded(s[1], f);
      d[2] = Faded(s[2], f);
    } else {
      d[0] = s[0];
      d[1] = s[1];
      d[2] = s[2];
    }
    d[3] = s[3];
  });
}

int32_t tone_map_highlight_plain(const ImageView& img, const uint8_t* curve_a,
                                 const uint8_t* curve_b, const ProcessRect& strip) {
  if (!curve_a || !curve_b) return VX_E_POINTER;
  return EachPixel(img, img, strip, [&](const uint8_t*, uint8_t* p) {
    p[1] = curve_b[p[1]];
    p[2] = curve_a[p[2]];
  });
}

int32_t tone_map_midtone_plain(const ImageView& img, const uint8_t* curve_c,
                               const ProcessRect& strip) {
  if (!curve_c) return VX_E_POINTER;
  return EachPixel(img, img, strip, [&](const uint8_t*, uint8_t* p) {
    p[0] = 0;
    p[2] = curve_c[p[2]];
  });
}

int32_t compare_masks_plain(const ImageView& highlight, const ImageView& midtone,
                            const ImageView& dst, const ProcessRect& strip) {
  Area a;
  const int32_t rc = Prepare({&highlight, &midtone, &dst}, strip, &a);
  if (rc != 0 || a.Empty()) return rc;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* h = highlight.At(a.left, y);
    const uint8_t* m = midtone.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    for (int32_t x = a.left; x < a.right; ++x, h += 4, m += 4, d += 4) {
      d[0] = h[0];
      d[1] = std::max(h[1], m[1]);
      d[2] = std::max(h[2], m[2]);
      d[3] = 255;
    }
  }
  return VX_OK;
}

int32_t decide_visible_plain(const ImageView& src, const ImageView& colour, const ImageView& dst,
                             int32_t threshold, const ProcessRect& strip) {
  Area a;
  const int32_t rc = Prepare({&src, &colour, &dst}, strip, &a);
  if (rc != 0 || a.Empty()) return rc;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* s = src.At(a.left, y);
    const uint8_t* c = colour.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    for (int32_t x = a.left; x < a.right; ++x, s += 4, c += 4, d += 4) {
      const int32_t l = Luma(s[0], s[1], s[2]);
      float w = 1.0f;
      if (threshold == 0)
        w = 0.0f;
      else if (l > threshold)
        w = static_cast<float>(std::max(0, threshold - l + 100)) / 100.0f;
      const uint8_t alpha =
          static_cast<uint8_t>(static_cast<int32_t>(static_cast<float>(c[3]) * w));
      d[0] = c[0];
      d[1] = c[1];
      d[2] = c[2];
      d[3] = alpha;
    }
  }
  return VX_OK;
}

}  // namespace halation
}  // namespace Vantyx
