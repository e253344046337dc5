// The per-pixel stages only Infrared uses. All images are BGRA32 (else 0x80070057; a null image
// 0x80004003) and addressed with the same coordinates; each kernel works on the strip cut to
// its images. Colours go through the integer HSV helpers of imageops/colour.h (hue in
// hundredths of a degree, -1 for grey; saturation and value 0..32640).
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {
namespace infrared {

// The hue band of "extract certain range of hue pixel", worked out once per frame.
struct HueBand {
  bool whole = false;   // the band is the whole circle: pixels are copied
  int32_t h1 = 0;       // lower limit, trunc(fmod(hue_start, 1) x 36000)
  int32_t h2 = 0;       // upper limit, the same of hue_start + hue_range
  int32_t p1[3] = {};   // R, G, B of (h1, 32640, 32640)
  int32_t p2[3] = {};   // R, G, B of (h2, 32640, 32640)
  int32_t tolerance = 1;  // K = hue_tolerance x 585225 / 360 + 1
};
HueBand MakeHueBand(float hue_start, float hue_range, uint32_t hue_tolerance);

// The adjustment of "adjust hue, saturation, luminance": trunc(hue_shift x 36000),
// trunc(saturation x 32640), trunc(luminance x 32640), all in float.
struct HsvShift {
  int32_t hue = 0;
  int32_t saturation = 0;
  int32_t value = 0;
};
HsvShift MakeHsvShift(float hue_shift, float saturation, float luminance);

// The foreground blur's radius from the larger side of the half-size buffer: 1 below 350,
// else max(6, longest / 320).
int32_t BlurRadius(int32_t longest);

// "extract certain range of hue pixel": a pixel whose hue lies in the band is copied; any other
// keeps its hue and value and has its saturation S scaled by 1 - q, q = trunc(d) / K with d the
// smaller redmean distance (squared, in float) to the two limit colours: 0 where (1 - q) S < 1.
// Alpha copied. A whole-circle band copies every pixel.
int32_t extract_hue_band(const ImageView& src, const ImageView& dst, const HueBand& band,
                         const ProcessRect& strip, int32_t simd_level);
int32_t extract_hue_band_plain(const ImageView& src, const ImageView& dst, const HueBand& band,
                               const ProcessRect& strip);
int32_t extract_hue_band_sse41(const ImageView& src, const ImageView& dst, const HueBand& band,
                               const ProcessRect& strip);

// "remove low saturation pixels", in place: B, G, R = 0 where threshold x 32640 > S (float).
int32_t remove_low_saturation(const ImageView& img, float threshold, const ProcessRect& strip,
                              int32_t simd_level);
int32_t remove_low_saturation_plain(const ImageView& img, float threshold,
                                    const ProcessRect& strip);
int32_t remove_low_saturation_sse41(const ImageView& img, float threshold,
                                    const ProcessRect& strip);

// "extract background based": dst = the `scaled` pixel where the foreground's B, G and R are
// all 0, else black with the `scaled` pixel's alpha.
int32_t extract_background(const ImageView& foreground, const ImageView& scaled,
                           const ImageView& dst, const ProcessRect& strip, int32_t simd_level);
int32_t extract_background_plain(const ImageView& foreground, const ImageView& scaled,
                                 const ImageView& dst, const ProcessRect& strip);
int32_t extract_background_sse41(const ImageView& foreground, const ImageView& scaled,
                                 const ImageView& dst, const ProcessRect& strip);

// "adjust hue, saturation, luminance", in place: value V' = V + shift.value and saturation
// S' = S + shift.saturation, each clamped to 0..32640 (V = 0 stays 0); hue
// H' = trunc(H x 0.25 + shift.hue) modulo 36000 in float. Alpha untouched.
int32_t adjust_hsv(const ImageView& img, const HsvShift& shift, const ProcessRect& strip,
                   int32_t simd_level);
int32_t adjust_hsv_plain(const ImageView& img, const HsvShift& shift, const ProcessRect& strip);
int32_t adjust_hsv_sse41(const ImageView& img, const HsvShift& shift, const ProcessRect& strip);

// "combine foreground and background": dst = min(255, foreground + background) for each of the
// four bytes, alpha included.
int32_t combine_layers(const ImageView& foreground, const ImageView& background,
                       const ImageView& dst, const ProcessRect& strip, int32_t simd_level);
int32_t combine_layers_plain(const ImageView& foreground, const ImageView& background,
                             const ImageView& dst, const ProcessRect& strip);
int32_t combine_layers_sse41(const ImageView& foreground, const ImageView& background,
                             const ImageView& dst, const ProcessRect& strip);

}  // namespace infrared
}  // namespace Vantyx
