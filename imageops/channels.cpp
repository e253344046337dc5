// Channel split and merge: plain forms and the choosers.
#include "imageops/channels.h"

#include "vantyx.h"

namespace Vantyx {

namespace detail {

int32_t ChannelsSetup(const ImageView& a, const ImageView& b, const ImageView& c,
                      const ImageView& d, const ProcessRect& strip, Area* area) {
  *area = Area{0, 0, 0, 0};
  if (!a.data || !b.data || !c.data || !d.data) return VX_E_POINTER;
  if (a.format != PIXEL_BGRA32 || b.format != PIXEL_BGRA32 || c.format != PIXEL_BGRA32 ||
      d.format != PIXEL_BGRA32)
    return VX_E_INVALIDARG;
  *area = Clip(Clip(Clip(Clip(AreaOf(strip), a), b), c), d);
  return 0;
}

}  // namespace detail

int32_t split_channels_plain(const ImageView& src, const ImageView& to_b, const ImageView& to_g,
                             const ImageView& to_r, const ProcessRect& strip) {
  Area a;
  const int32_t rc = detail::ChannelsSetup(src, to_b, to_g, to_r, strip, &a);
  if (rc != 0 || a.Empty()) return rc;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* s = src.At(a.left, y);
    uint8_t* b = to_b.At(a.left, y);
    uint8_t* g = to_g.At(a.left, y);
    uint8_t* r = to_r.At(a.left, y);
    for (int32_t x = a.left; x < a.right; ++x, s += 4, b += 4, g += 4, r += 4) {
      b[0] = s[0];
      g[1] = s[1];
      r[2] = s[2];
      b[3] = g[3] = r[3] = 255;
    }
  }
  return 0;
}

int32_t merge_channels_plain(const ImageView& from_b, const ImageView& from_g,
                             const ImageView& from_r, const ImageView& dst,
                             const ProcessRect& strip) {
  Area a;
  const int32_t rc = detail::ChannelsSetup(from_b, from_g, from_r, dst, strip, &a);
  if (rc != 0 || a.Empty()) return rc;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* b = from_b.At(a.left, y);
    const uint8_t* g = from_g.At(a.left, y);
    const uint8_t* r = from_r.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    for (int32_t x = a.left; x < a.right; ++x, b += 4, g += 4, r += 4, d += 4) {
      const uint8_t px[4] = {b[0], g[1], r[2], b[3]};  // read all before writing: d may alias
      d[0] = px[0];
      d[1] = px[1];
      d[2] = px[2];
      d[3] = px[3];
    }
  }
  return 0;
}

int32_t split_channels(const ImageView& src, const ImageView& to_b, const ImageView& to_g,
                       const ImageView& to_r, const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return split_channels_sse41(src, to_b, to_g, to_r, strip);
  return split_channels_plain(src, to_b, to_g, to_r, strip);
}

int32_t merge_channels(const ImageView& from_b, const ImageView& from_g, const ImageView& from_r,
                       const ImageView& dst, const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return merge_channels_sse41(from_b, from_g, from_r, dst, strip);
  return merge_channels_plain(from_b, from_g, from_r, dst, strip);
}

}  // namespace Vantyx
