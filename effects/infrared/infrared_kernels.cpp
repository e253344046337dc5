// The Infrared kernels: the band and shift set-up, plain forms and the choosers.
#include "effects/infrared/infrared_kernels.h"
#include <algorithm>

#include <cmath>

#include "effects/common/pixel_loops.h"
#include "effects/infrared/infrared_kernels_internal.h"
#include "imageops/copy_convert.h"
#include "vantyx.h"

namespace Vantyx {
namespace infrared {

using pixel_loops::EachPixel;

HueBand MakeHueBand(float hue_start, float hue_range, uint32_t hue_tolerance) {
  HueBand band;
  const float lower = hue_start, upper = hue_start + hue_range;
  band.whole = std::fabs((upper - lower) - 1.0f) < 0.001f;
  band.h1 = static_cast<int32_t>(std::fmod(lower, 1.0f) * 36000.0f);
  band.h2 = static_cast<int32_t>(std::fmod(upper, 1.0f) * 36000.0f);
  HsvToRgb(band.h1, 32640, 32640, &band.p1[0], &band.p1[1], &band.p1[2]);
  HsvToRgb(band.h2, 32640, 32640, &band.p2[0], &band.p2[1], &band.p2[2]);
  // 585225 = 765^2, about the largest squared distance.
  band.tolerance = static_cast<int32_t>(uint64_t(hue_tolerance) * 585225u / 360u) + 1;
  return band;
}

HsvShift MakeHsvShift(float hue_shift, float saturation, float luminance) {
  HsvShift shift;
  shift.hue = static_cast<int32_t>(hue_shift * 36000.0f);
  shift.saturation = static_cast<int32_t>(saturation * 32640.0f);
  shift.value = static_cast<int32_t>(luminance * 32640.0f);
  return shift;
}

int32_t BlurRadius(int32_t longest) { return longest < 350 ? 1 : std::max(6, longest / 320); }

int32_t extract_hue_band_plain(const ImageView& src, const ImageView& dst, const HueBand& band,
                               const ProcessRect& strip) {
  if (band.whole) {
    Area area;
    const int32_t rc = pixel_loops::PrepareBgra({&src, &dst}, strip, &area);
    return rc != 0 ? rc : copy_block(src, dst, strip);
  }
  return EachPixel(src, src, dst, strip, [&](const uint8_t* s, const uint8_t*, uint8_t* d) {
    detail::BandPixel(s, d, band);
  });
}

int32_t remove_low_saturation_plain(const ImageView& img, float threshold,
                                    const ProcessRect& strip) {
  const float limit = threshold * 32640.0f;
  return EachPixel(img, img, img, strip, [&](const uint8_t*, const uint8_t*, uint8_t* p) {
    detail::RemovePixel(p, limit);
  });
}

int32_t extract_background_plain(const ImageView& foreground, const ImageView& scaled,
                                 const ImageView& dst, const ProcessRect& strip) {
  return EachPixel(foreground, scaled, dst, strip, detail::BackgroundPixel);
}

int32_t adjust_hsv_plain(const ImageView& img, const HsvShift& shift, const ProcessRect& strip) {
  return EachPixel(img, img, img, strip, [&](const uint8_t*, const uint8_t*, uint8_t* p) {
    detail::AdjustPixel(p, shift);
  });
}

int32_t combine_layers_plain(const ImageView& foreground, const ImageView& background,
                             const ImageView& dst, const ProcessRect& strip) {
  return EachPixel(foreground, background, dst, strip, detail::CombinePixel);
}

int32_t extract_hue_band(const ImageView& src, const ImageView& dst, const HueBand& band,
                         const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return extract_hue_band_sse41(src, dst, band, strip);
  return extract_hue_band_plain(src, dst, band, strip);
}

int32_t remove_low_saturation(const ImageView& img, float threshold, const ProcessRect& strip,
                              int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return remove_low_saturation_sse41(img, threshold, strip);
  return remove_low_saturation_plain(img, threshold, strip);
}

int32_t extract_background(const ImageView& foreground, const ImageView& scaled,
                           const ImageView& dst, const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return extract_background_sse41(foreground, scaled, dst, strip);
  return extract_background_plain(foreground, scaled, dst, strip);
}

int32_t adjust_hsv(const ImageView& img, const HsvShift& shift, const ProcessRect& strip,
                   int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return adjust_hsv_sse41(img, shift, strip);
  return adjust_hsv_plain(img, shift, strip);
}

int32_t combine_layers(const ImageView& foreground, const ImageView& background,
                       const ImageView& dst, const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return combine_layers_sse41(foreground, background, dst, strip);
  return combine_layers_plain(foreground, background, dst, strip);
}

}  // namespace infrared
}  // namespace Vantyx
