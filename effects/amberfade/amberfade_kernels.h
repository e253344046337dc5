// The per-pixel stages only Amberfade uses: the colour shift of the half-size glow, the
// picture's contrast, gamma on luma and colour temperature, and the blue-weighted mix. Each
// works on BGRA32 rows in place (alpha untouched) and stores every channel it computes as a
// byte clamped to 0..255, except gamma, whose results keep their low eight bits.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {
namespace amberfade {

constexpr int32_t kGammaSize = 16384;

// trunc(pow(i / 16383, 1 / g) x 65536) for i = 0..16383, in double.
void BuildGammaTable(float gamma, uint32_t* table);
// The contrast of factor k on each byte value: trunc(c x (127 - a) / 127 + a), a = (1 - k) x 50,
// in float, clamped.
void BuildContrastTable(float k, uint8_t table[256]);

// "adjust color": B x fb16 / 65536 and R x fr16 / 65536 (16.16 factors), G untouched.
int32_t shift_red_blue(const ImageView& img, int32_t fb16, int32_t fr16, const ProcessRect& strip);

// Each per-pixel stage below has its plain form, its SSE4.1 form and a chooser (fast from
// processor level 5).

// "apply gamma": luma through `table` (kGammaSize entries), chroma kept.
int32_t apply_gamma(const ImageView& img, const uint32_t* table, const ProcessRect& strip,
                    int32_t simd_level);
int32_t apply_gamma_plain(const ImageView& img, const uint32_t* table, const ProcessRect& strip);
int32_t apply_gamma_sse41(const ImageView& img, const uint32_t* table, const ProcessRect& strip);

// "adjust color temp": B, G, R scaled by the factors (0..1), then brought back to the luma
// they had.
struct TemperatureTable {
  float factor[3];         // B, G, R, each 0..1 (the temperature helper's range)
  uint8_t scaled[3][256];  // trunc(c x factor)
};
void BuildTemperatureTable(float fr, float fg, float fb, TemperatureTable* t);
int32_t adjust_temperature(const ImageView& img, const TemperatureTable& t, const ProcessRect& strip,
                           int32_t simd_level);
int32_t adjust_temperature_plain(const ImageView& img, const TemperatureTable& t,
                                 const ProcessRect& strip);
int32_t adjust_temperature_sse41(const ImageView& img, const TemperatureTable& t,
                                 const ProcessRect& strip);

// "weighting sum with blue color": the blurred picture's R and G pulled down by `colour`,
// brought back to their luma, then mixed with the destination: (blurred x w_tint +
// dst x w_result) / 65536, dst alpha kept. The blurred picture is changed.
struct BlueWeights {
  uint8_t red[256];    // R' of each R
  uint8_t green[256];  // G' of each G
  int32_t tint16;      // trunc(weight x 65536)
  int32_t result16;
};
void BuildBlueWeights(float colour, float weight_tint, float weight_result, BlueWeights* w);
int32_t weight_blue(const ImageView& blurred, const ImageView& dst, const BlueWeights& w,
                    const ProcessRect& strip, int32_t simd_level);
int32_t weight_blue_plain(const ImageView& blurred, const ImageView& dst, const BlueWeights& w,
                          const ProcessRect& strip);
int32_t weight_blue_sse41(const ImageView& blurred, const ImageView& dst, const BlueWeights& w,
                          const ProcessRect& strip);

}  // namespace amberfade
}  // namespace Vantyx
