#include "effects/blackmist/blackmist_kernels.h"

#include <algorithm>
#include <cmath>

#include "core/effect_base.h"
#include "imageops/colour.h"

namespace Vantyx {
namespace blackmist {

void BuildTintTable(float amount, float hue, TintTable* table) {
  const int32_t tint_hue = TruncToInt(hue * 36000.0f);
  // Amounts above 1 saturate the tint colour fully rather than overflow the HSV arithmetic.
  const int32_t tint_sat = std::clamp(TruncToInt(amount * 32640.0f), 0, 32640);
  for (int32_t m = 0; m < 256; ++m) {
    HsvToRgb(tint_hue, tint_sat, m * 128, &table->rgb[0][m], &table->rgb[1][m], &table->rgb[2][m]);
    table->packed[m] = uint32_t(table->rgb[0][m]) << 16 | uint32_t(table->rgb[1][m]) << 8 |
                       uint32_t(table->rgb[2][m]);
  }
}

int32_t adjust_color(const ImageView& img, float amount, float hue, float brightness,
                     const ProcessRect& strip, int32_t simd_level, const TintTable* table) {
  return simd_level >= SIMD_SSE41 ? adjust_color_sse41(img, amount, hue, brightness, strip, table)
                                  : adjust_color_plain(img, amount, hue, brightness, strip);
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
