// The Halation kernels: plain forms and the choosers.
#include "effects/halation/halation_kernels.h"

#include "effects/common/pixel_loops.h"
#include "effects/halation/halation_kernels_internal.h"
#include "vantyx.h"

namespace Vantyx {
namespace halation {

using pixel_loops::EachPixel;

int32_t Luma(int32_t b, int32_t g, int32_t r) {
  const uint8_t p[3] = {uint8_t(b), uint8_t(g), uint8_t(r)};
  return detail::LumaOf(p);
}

int32_t key_luma_plain(const ImageView& src, const ImageView& dst, int32_t threshold, float gain,
                       const ProcessRect& strip) {
  return EachPixel(src, src, dst, strip, [&](const uint8_t* s, const uint8_t*, uint8_t* d) {
    detail::KeyPixel(s, d, threshold, gain);
  });
}

int32_t extract_midtone_plain(const ImageView& src, const ImageView& dst, int32_t threshold,
                              const ProcessRect& strip) {
  const float range = detail::MidtoneRange(threshold);
  return EachPixel(src, src, dst, strip, [&](const uint8_t* s, const uint8_t*, uint8_t* d) {
    detail::MidtonePixel(s, d, threshold, range);
  });
}

int32_t tone_map_highlight_plain(const ImageView& img, const uint8_t* curve_a,
                                 const uint8_t* curve_b, const ProcessRect& strip) {
  if (!curve_a || !curve_b) return VX_E_POINTER;
  return EachPixel(img, img, img, strip, [&](const uint8_t*, const uint8_t*, uint8_t* p) {
    p[1] = curve_b[p[1]];
    p[2] = curve_a[p[2]];
  });
}

int32_t tone_map_midtone_plain(const ImageView& img, const uint8_t* curve_c,
                               const ProcessRect& strip) {
  if (!curve_c) return VX_E_POINTER;
  return EachPixel(img, img, img, strip, [&](const uint8_t*, const uint8_t*, uint8_t* p) {
    p[0] = 0;
    p[2] = curve_c[p[2]];
  });
}

int32_t compare_masks_plain(const ImageView& highlight, const ImageView& midtone,
                            const ImageView& dst, const ProcessRect& strip) {
  return EachPixel(highlight, midtone, dst, strip, detail::ComparePixel);
}

int32_t decide_visible_plain(const ImageView& src, const ImageView& colour, const ImageView& dst,
                             int32_t threshold, const ProcessRect& strip) {
  return EachPixel(src, colour, dst, strip, [&](const uint8_t* s, const uint8_t* c, uint8_t* d) {
    detail::DecidePixel(s, c, d, threshold);
  });
}

int32_t key_luma(const ImageView& src, const ImageView& dst, int32_t threshold, float gain,
                 const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return key_luma_sse41(src, dst, threshold, gain, strip);
  return key_luma_plain(src, dst, threshold, gain, strip);
}

int32_t extract_midtone(const ImageView& src, const ImageView& dst, int32_t threshold,
                        const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return extract_midtone_sse41(src, dst, threshold, strip);
  return extract_midtone_plain(src, dst, threshold, strip);
}

int32_t compare_masks(const ImageView& highlight, const ImageView& midtone, const ImageView& dst,
                      const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return compare_masks_sse41(highlight, midtone, dst, strip);
  return compare_masks_plain(highlight, midtone, dst, strip);
}

int32_t decide_visible(const ImageView& src, const ImageView& colour, const ImageView& dst,
                       int32_t threshold, const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return decide_visible_sse41(src, colour, dst, threshold, strip);
  return decide_visible_plain(src, colour, dst, threshold, strip);
}

}  // namespace halation
}  // namespace Vantyx
