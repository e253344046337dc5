#include "effects/amberfade/amberfade_kernels.h"

#include <algorithm>
#include <cmath>

#include "core/effect_base.h"
#include "vantyx.h"

namespace Vantyx {
namespace amberfade {

namespace {

inline uint8_t ClampByte(int64_t v) { return uint8_t(std::clamp<int64_t>(v, 0, 255)); }

}  // namespace

void BuildGammaTable(float gamma, uint32_t* table) {
  const double exponent = 1.0 / double(gamma);
  for (int32_t i = 0; i < kGammaSize; ++i)
    table[i] = uint32_t(std::pow(double(i) / 16383.0, exponent) * 65536.0);
}

void BuildContrastTable(float k, uint8_t table[256]) {
  const float a = (1.0f - k) * 50.0f;
  for (int32_t c = 0; c < 256; ++c)
    table[c] = ClampByte(TruncToInt(float(c) * (127.0f - a) / 127.0f + a));
}

int32_t shift_red_blue(const ImageView& img, int32_t fb16, int32_t fr16, const ProcessRect& strip) {
  if (!img.data) return VX_E_POINTER;
  if (img.format != PIXEL_BGRA32) return VX_E_INVALIDARG;
  const Area a = Clip(AreaOf(strip), img);
  for (int32_t y = a.top; y < a.bottom; ++y) {
    uint8_t* p = img.At(a.left, y);
    for (int32_t x = a.left; x < a.right; ++x, p += 4) {
      // Factors are unbounded in the full call: 64-bit products, 0 below 0.
      const int64_t b = int64_t{p[0]} * fb16, r = int64_t{p[2]} * fr16;
      p[0] = b >= 0xFF0000 ? 255 : ClampByte(b / 65536);
      p[2] = r >= 0xFF0000 ? 255 : ClampByte(r / 65536);
    }
  }
  return VX_OK;
}

int32_t apply_gamma_plain(const ImageView& img, const uint32_t* table, const ProcessRect& strip) {
  if (!img.data || !table) return VX_E_POINTER;
  if (img.format != PIXEL_BGRA32) return VX_E_INVALIDARG;
  const Area a = Clip(AreaOf(strip), img);
  for (int32_t y = a.top; y < a.bottom; ++y) {
    uint8_t* p = img.At(a.left, y);
    for (int32_t x = a.left; x < a.right; ++x, p += 4) {
      const int32_t b = p[0], g = p[1], r = p[2];
      const int32_t yg = int32_t(table[(b * 7471 + r * 19595 + g * 38470) >> 10]);
      const int32_t u = (41419 * b - 13959 * r - 27460 * g + 0x800000) >> 8;
      const int32_t v = ((r + 256) * 32768 - 5308 * b - 27460 * g) >> 8;
      const int32_t nb = ((((u - 32768) * 2066) >> 10) + yg) >> 8;
      const int32_t ng = ((u * -400 - v * 833 + 0x2680000) >> 10) + yg;
      const int32_t nr = ((((v - 32768) * 1634) >> 10) + yg) >> 8;
      // No upper clamp: a result above 255 keeps its low eight bits.
      p[0] = uint8_t(nb < 1 ? 0 : nb);
      p[1] = uint8_t(ng < 256 ? 0 : ng >> 8);
      p[2] = uint8_t(nr < 1 ? 0 : nr);
    }
  }
  return VX_OK;
}

void BuildTemperatureTable(float fr, float fg, float fb, TemperatureTable* t) {
  const float f[3] = {fb, fg, fr};
  for (int i = 0; i < 3; ++i) t->factor[i] = f[i];
  for (int i = 0; i < 3; ++i)
    for (int32_t c = 0; c < 256; ++c) t->scaled[i][c] = ClampByte(TruncToInt(float(c) * f[i]));
}

int32_t adjust_temperature_plain(const ImageView& img, const TemperatureTable& t,
                                 const ProcessRect& strip) {
  if (!img.data) return VX_E_POINTER;
  if (img.format != PIXEL_BGRA32) return VX_E_INVALIDARG;
  const auto& scale = t.scaled;
  const Area a = Clip(AreaOf(strip), img);
  for (int32_t y = a.top; y < a.bottom; ++y) {
    uint8_t* p = img.At(a.left, y);
    for (int32_t x = a.left; x < a.right; ++x, p += 4) {
      const int32_t y0 = (p[2] * 19660 + p[0] * 7209 + p[1] * 38665) >> 8;
      const int32_t b = scale[0][p[0]], g = scale[1][p[1]], r = scale[2][p[2]];
      const int32_t y1 = (r * 19660 + b * 7209 + g * 38665) >> 8;
      if (y0 != 0 && y1 != 0) {
        p[0] = uint8_t(std::min(255, b * y0 / y1));
        p[1] = uint8_t(std::min(255, g * y0 / y1));
        p[2] = uint8_t(std::min(255, r * y0 / y1));
      } else {
        p[0] = uint8_t(b), p[1] = uint8_t(g), p[2] = uint8_t(r);
      }
    }
  }
  return VX_OK;
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
  if (!blurred.data || !dst.data) return VX_E_POINTER;
  if (blurred.format != PIXEL_BGRA32 || dst.format != PIXEL_BGRA32) return VX_E_INVALIDARG;
  const Area a = Clip(Clip(AreaOf(strip), blurred), dst);
  for (int32_t y = a.top; y < a.bottom; ++y) {
    uint8_t* p = blurred.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    for (int32_t x = a.left; x < a.right; ++x, p += 4, d += 4) {
      const int32_t b = p[0], g = p[1], r = p[2];
      const int32_t y0 = r * 19660 + g * 38665 + b * 7209;
      int32_t c[3] = {b, w.green[g], w.red[r]};
      const int32_t y1 = (b * 7209 + c[2] * 19660 + c[1] * 38665) >> 8;
      if (y0 > 255 && y1 != 0)
        for (int i = 0; i < 3; ++i) c[i] = std::min(255, c[i] * (y0 >> 8) / y1);
      for (int i = 0; i < 3; ++i) {
        p[i] = uint8_t(c[i]);
        const int64_t sum = int64_t{c[i]} * w.tint16 + int64_t{d[i]} * w.result16;
        d[i] = sum >= 0xFF0000 ? 255 : ClampByte(sum / 65536);
      }
    }
  }
  return VX_OK;
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
