#include "effects/amberfade/amberfade_kernels.h"

#include <algorithm>
#include <cmath>

#include "core/effect_base.h"
#include "effects/amberfade/amberfade_kernels_internal.h"
#include "effects/common/pixel_loops.h"
#include "imageops/pixel_ops.h"
#include "vantyx.h"

namespace Vantyx {
namespace amberfade {

using pixel_loops::EachPixel;

namespace {

inline uint8_t ClampByte(int64_t v) { return uint8_t(std::clamp<int64_t>(v, 0, 255)); }

}  // namespace

void BuildGammaTable(float gamma, uint32_t* table) {
  // -0 passes the range check as 0 does and means the same; 1 / -0 would make the table infinite.
  const double exponent = 1.0 / double(gamma == 0.0f ? 0.0f : gamma);
  for (int32_t i = 0; i < kGammaSize; ++i)
    table[i] = uint32_t(std::pow(double(i) / 16383.0, exponent) * 65536.0);
}

void BuildContrastTable(float k, uint8_t table[256]) {
  const float a = (1.0f - k) * 50.0f;
  for (int32_t c = 0; c < 256; ++c)
    table[c] = ClampByte(TruncToInt(float(c) * (127.0f - a) / 127.0f + a));
}

int32_t shift_red_blue(const ImageView& img, int32_t fb16, int32_t fr16, const ProcessRect& strip) {
  return EachPixel(img, img, img, strip, [&](const uint8_t*, const uint8_t*, uint8_t* p) {
    // Factors are unbounded in the full call: 64-bit products, 0 below 0.
    const int64_t b = int64_t{p[0]} * fb16, r = int64_t{p[2]} * fr16;
    p[0] = b >= 0xFF0000 ? 255 : ClampByte(b / 65536);
    p[2] = r >= 0xFF0000 ? 255 : ClampByte(r / 65536);
  });
}

int32_t apply_gamma_plain(const ImageView& img, const uint32_t* table, const ProcessRect& strip) {
  if (!table) return VX_E_POINTER;
  return EachPixel(img, img, img, strip, [&](const uint8_t*, const uint8_t*, uint8_t* p) {
    detail::GammaPixel(p, table);
  });
}

void BuildTemperatureTable(float fr, float fg, float fb, TemperatureTable* t) {
  const float f[3] = {fb, fg, fr};
  for (int i = 0; i < 3; ++i) t->factor[i] = f[i];
  for (int i = 0; i < 3; ++i)
    for (int32_t c = 0; c < 256; ++c) t->scaled[i][c] = ClampByte(TruncToInt(float(c) * f[i]));
}

int32_t adjust_temperature_plain(const ImageView& img, const TemperatureTable& t,
                                 const ProcessRect& strip) {
  return EachPixel(img, img, img, strip, [&](const uint8_t*, const uint8_t*, uint8_t* p) {
    detail::TemperaturePixel(p, t);
  });
}

void BuildBlueWeights(float colour, float weight_tint, float weight_result, BlueWeights* w) {
  const float red = 1.0f - 0.15f * (colour + 1.0f), green = 1.0f - 0.2f * (colour + 1.0f);
  for (int32_t c = 0; c < 256; ++c) {
    w->red[c] = ClampByte(TruncToInt(float(c) * red));
    w->green[c] = ClampByte(TruncToInt(float(c) * green));
  }
  w->tint16 = TruncToInt(weight_tint * 65536.0f);
  w->result16 = TruncToInt(weight_result * 65536.0f);
}

int32_t weight_blue_plain(const ImageView& blurred, const ImageView& dst, const BlueWeights& w,
                          const ProcessRect& strip) {
  const int32_t rc = EachPixel(blurred, blurred, blurred, strip,
                               [&](const uint8_t*, const uint8_t*, uint8_t* p) { detail::BluePixel(p, w); });
  return rc < 0 ? rc : weighting_sum_plain(blurred, dst, w.tint16, w.result16, strip);
}

int32_t apply_gamma(const ImageView& img, const uint32_t* table, const ProcessRect& strip,
                    int32_t simd_level) {
  return simd_level >= SIMD_SSE41 ? apply_gamma_sse41(img, table, strip)
                                  : apply_gamma_plain(img, table, strip);
}

int32_t adjust_temperature(const ImageView& img, const TemperatureTable& t, const ProcessRect& strip,
                           int32_t simd_level) {
  return simd_level >= SIMD_SSE41 ? adjust_temperature_sse41(img, t, strip)
                                  : adjust_temperature_plain(img, t, strip);
}

int32_t weight_blue(const ImageView& blurred, const ImageView& dst, const BlueWeights& w,
                    const ProcessRect& strip, int32_t simd_level) {
  return simd_level >= SIMD_SSE41 ? weight_blue_sse41(blurred, dst, w, strip)
                                  : weight_blue_plain(blurred, dst, w, strip);
}

}  // namespace amberfade
}  // namespace Vantyx
