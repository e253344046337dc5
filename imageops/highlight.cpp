#include "imageops/highlight.h"

#include <algorithm>
#include <cmath>

#include "imageops/colour.h"
#include "imageops/resample_internal.h"
#include "vantyx.h"

namespace Vantyx {

MaskMap BuildMaskMap(int32_t frame_w, int32_t frame_h, int32_t scaled_w, int32_t scaled_h) {
  MaskMap map;
  if (frame_w < 1 || frame_h < 1 || scaled_w < 1 || scaled_h < 1) return map;
  // The downsampling stage's own taps, so that the mask lines up with the scaled picture.
  std::vector<detail::ResampleTap> taps(size_t(std::max(scaled_w, scaled_h)));
  detail::BuildResampleTaps(scaled_w, frame_w, 0, frame_w, 0, scaled_w, taps.data());
  for (int32_t x = 0; x < scaled_w; ++x) map.x0.push_back(taps[size_t(x)].i0);
  detail::BuildResampleTaps(scaled_h, frame_h, 0, frame_h, 0, scaled_h, taps.data());
  for (int32_t y = 0; y < scaled_h; ++y) map.y0.push_back(taps[size_t(y)].i0);
  return map;
}

void HighlightKeyRow(const uint8_t* src_row, uint8_t* out, int32_t x_begin, int32_t x_end,
                     const uint8_t* mask_row, const MaskMap* map, int32_t threshold,
                     SaturationRule rule) {
  const int32_t t_int = std::clamp(threshold, -255, 255);
  const float t = float(t_int) / 255.0f;
  const uint8_t* s = src_row + 4 * size_t(x_begin);
  uint8_t* d = out;
  for (int32_t x = x_begin; x < x_end; ++x, s += 4, d += 4) {
    const int32_t b = s[0], g = s[1], r = s[2];
    const int32_t db = std::clamp(b - t_int, 0, 255), dg = std::clamp(g - t_int, 0, 255),
                  dr = std::clamp(r - t_int, 0, 255);
    d[3] = s[3];
    if (mask_row) {
      const int32_t m = mask_row[map->x0[size_t(x)]];
      d[0] = uint8_t(db * m / 256);
      d[1] = uint8_t(dg * m / 256);
      d[2] = uint8_t(dr * m / 256);
      continue;
    }
    const float luma = float(38665 * g + 19660 * r + 7209 * b) / 65536.0f / 255.0f;
    if (luma < t) {
      d[0] = d[1] = d[2] = 0;
      continue;
    }
    const int32_t kb = HighlightSoftFactor(float(b), luma, t);
    const int32_t kg = HighlightSoftFactor(float(g), luma, t);
    const int32_t kr = HighlightSoftFactor(float(r), luma, t);
    if (rule == SaturationRule::kNone) {
      d[0] = uint8_t(kb);
      d[1] = uint8_t(kg);
      d[2] = uint8_t(kr);
      continue;
    }
    // The thresholded colour, brought to the knee's brightness, keeps its own hue but at most
    // three times the knee output's saturation.
    const int32_t m1 = std::max({kb, kg, kr});
    const int32_t m2 = std::max({db, dg, dr});
    int32_t cb = db, cg = dg, cr = dr;
    if (m2 > 0 && (rule == SaturationRule::kRescaleWhenLit || m1 > m2)) {
      cb = cb * m1 / m2;
      cg = cg * m1 / m2;
      cr = cr * m1 / m2;
    }
    int32_t hue, sat, val;
    RgbToHsv(cr, cg, cb, &hue, &sat, &val);
    sat = std::min(sat, 3 * SaturationOfRgb(kr, kg, kb));
    HsvToRgb(hue, sat, val, &cr, &cg, &cb);
    d[0] = uint8_t(cb);
    d[1] = uint8_t(cg);
    d[2] = uint8_t(cr);
  }
}

namespace {

using KeyRowFn = void (*)(const uint8_t*, uint8_t*, int32_t, int32_t, const uint8_t*, const MaskMap*,
                          int32_t, SaturationRule);

int32_t DetectHighlights(KeyRowFn row, const ImageView& src, const ImageView& dst,
                         const ImageView* mask, const MaskMap* map, int32_t threshold,
                         SaturationRule rule, const ProcessRect& strip) {
  if (!src.data || !dst.data || (mask && (!mask->data || !map))) return VX_E_POINTER;
  if (src.format != PIXEL_BGRA32 || dst.format != PIXEL_BGRA32 ||
      (mask && mask->format != PIXEL_GRAY8))
    return VX_E_INVALIDARG;
  Area area = Clip(Clip(AreaOf(strip), src), dst);
  if (mask) {
    area.right = std::min<int32_t>(area.right, int32_t(map->x0.size()));
    area.bottom = std::min<int32_t>(area.bottom, int32_t(map->y0.size()));
  }
  if (area.Empty()) return VX_OK;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    const uint8_t* mask_row = mask ? mask->Row(map->y0[size_t(y)]) : nullptr;
    row(src.At(src.Left(), y), dst.At(area.left, y), area.left - src.Left(),
        area.right - src.Left(), mask_row, map, threshold, rule);
  }
  return VX_OK;
}

}  // namespace

int32_t detect_highlights_plain(const ImageView& src, const ImageView& dst, const ImageView* mask,
                                const MaskMap* map, int32_t threshold, SaturationRule rule,
                                const ProcessRect& strip) {
  return DetectHighlights(&HighlightKeyRow, src, dst, mask, map, threshold, rule, strip);
}

int32_t detect_highlights(const ImageView& src, const ImageView& dst, const ImageView* mask,
                          const MaskMap* map, int32_t threshold, SaturationRule rule,
                          const ProcessRect& strip, int32_t simd_level) {
  return DetectHighlights(simd_level >= SIMD_SSE41 ? &HighlightKeyRowSse41 : &HighlightKeyRow,
                          src, dst, mask, map, threshold, rule, strip);
}

namespace {

float LightCurve(float c, float gain, float k) {
  const float v = 2.0f * c - 1.0f;
  const float z = (v - v * k) / (k - 2.0f * std::fabs(v) * k + 1.0f);
  return gain * (z + 1.0f) / 2.0f + 0.0f;
}

}  // namespace

int32_t adjust_light_plain(const ImageView& img, float gain, float k, const ProcessRect& strip) {
  if (!img.data) return VX_E_POINTER;
  if (img.format != PIXEL_FLOAT96) return VX_E_INVALIDARG;
  const Area area = Clip(AreaOf(strip), img);
  if (area.Empty()) return VX_OK;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    float* p = reinterpret_cast<float*>(img.At(area.left, y));
    for (int32_t i = 0; i < (area.right - area.left) * 3; ++i) p[i] = LightCurve(p[i], gain, k);
  }
  return VX_OK;
}

void LightCurveTable(float gain, float k, float table[256]) {
  const float scale = 1.0f / 255.0f;  // "convert BYTE to Float": byte x (1/255) + 0
  for (int32_t b = 0; b < 256; ++b)
    table[b] = LightCurve(static_cast<float>(b) * scale + 0.0f, gain, k);
}

}  // namespace Vantyx
