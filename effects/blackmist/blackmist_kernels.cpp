#include "effects/blackmist/blackmist_kernels.h"

#include <algorithm>
#include <cmath>

#include "core/effect_base.h"
#include "imageops/colour.h"
#include "imageops/resample_internal.h"

namespace Vantyx {
namespace blackmist {

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

int32_t detect_highlights_plain(const ImageView& src, const ImageView& dst, const ImageView* mask,
                                const MaskMap* map, uint32_t threshold, bool keep_saturation,
                                const ProcessRect& strip) {
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

  const int32_t t_int = int32_t(std::min<uint32_t>(threshold, 255));
  const float t = float(t_int) / 255.0f;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    const uint8_t* s = src.At(area.left, y);
    uint8_t* d = dst.At(area.left, y);
    for (int32_t x = area.left; x < area.right; ++x, s += 4, d += 4) {
      const int32_t b = s[0], g = s[1], r = s[2];
      const int32_t db = std::max(b - t_int, 0), dg = std::max(g - t_int, 0),
                    dr = std::max(r - t_int, 0);
      if (mask) {
        const int32_t m = *mask->At(map->x0[size_t(x)], map->y0[size_t(y)]);
        d[0] = uint8_t(db * m / 256);
        d[1] = uint8_t(dg * m / 256);
        d[2] = uint8_t(dr * m / 256);
      } else {
        const float luma = float(38665 * g + 19660 * r + 7209 * b) / 65536.0f / 255.0f;
        if (luma < t) {
          d[0] = d[1] = d[2] = 0;
        } else {
          const int32_t kb = HighlightSoftFactor(float(b), luma, t);
          const int32_t kg = HighlightSoftFactor(float(g), luma, t);
          const int32_t kr = HighlightSoftFactor(float(r), luma, t);
          if (!keep_saturation) {
            d[0] = uint8_t(kb);
            d[1] = uint8_t(kg);
            d[2] = uint8_t(kr);
          } else {
            // The thresholded colour, brought to the knee's brightness, keeps its own hue but
            // at most three times the knee output's saturation.
            const int32_t m1 = std::max({kb, kg, kr});
            const int32_t m2 = std::max({db, dg, dr});
            int32_t cb = db, cg = dg, cr = dr;
            if (m2 > 0) {
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
      }
      d[3] = s[3];
    }
  }
  return VX_OK;
}

int32_t adjust_light_plain(const ImageView& img, float gain, float k, const ProcessRect& strip) {
  if (!img.data) return VX_E_POINTER;
  if (img.format != PIXEL_FLOAT96) return VX_E_INVALIDARG;
  const Area area = Clip(AreaOf(strip), img);
  if (area.Empty()) return VX_OK;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    float* p = reinterpret_cast<float*>(img.At(area.left, y));
    for (int32_t i = 0; i < (area.right - area.left) * 3; ++i) {
      const float v = 2.0f * p[i] - 1.0f;
      const float z = (v - v * k) / (k - 2.0f * std::fabs(v) * k + 1.0f);
      p[i] = gain * (z + 1.0f) / 2.0f + 0.0f;
    }
  }
  return VX_OK;
}

int32_t adjust_color_plain(const ImageView& img, float amount, float hue, float brightness,
                           const ProcessRect& strip) {
  if (!img.data) return VX_E_POINTER;
  if (img.format != PIXEL_BGRA32) return VX_E_INVALIDARG;
  const Area area = Clip(AreaOf(strip), img);
  if (area.Empty()) return VX_OK;

  const int32_t tint_hue = TruncToInt(hue * 36000.0f);
  // Amounts above 1 saturate the tint colour fully rather than overflow the HSV arithmetic.
  const int32_t tint_sat = std::clamp(TruncToInt(amount * 32640.0f), 0, 32640);
  const float keep = 1.0f - amount;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    uint8_t* p = img.At(area.left, y);
    for (int32_t x = area.left; x < area.right; ++x, p += 4) {
      int32_t c[3] = {p[2], p[1], p[0]};  // r, g, b
      int32_t tint[3];
      HsvToRgb(tint_hue, tint_sat, std::max({c[0], c[1], c[2]}) * 128, &tint[0], &tint[1], &tint[2]);
      for (int i = 0; i < 3; ++i)
        c[i] = std::clamp(TruncToInt(float(c[i]) * keep + float(tint[i]) * amount), 0, 255);
      int32_t h, s, v;
      RgbToHsv(c[0], c[1], c[2], &h, &s, &v);
      s = std::min(TruncToInt(float(s) * (1.0f + 0.0f)), 32640);  // no saturation boost
      HsvToRgb(h, s, v, &c[0], &c[1], &c[2]);
      for (int i = 0; i < 3; ++i) p[2 - i] = uint8_t(TruncToInt(float(c[i]) * brightness));
    }
  }
  return VX_OK;
}

}  // namespace blackmist
}  // namespace Vantyx
