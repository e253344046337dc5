// Blend kernels: hand-computed pixels, an independent evaluation of every mode's formula over
// every (base, layer) pair and every alpha pair, the checks, and plain against fast.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "harness.h"
#include "imageops/blend.h"

namespace Vantyx {
namespace {

using test::Image;
using test::Whole;
using Px = std::vector<uint8_t>;

std::vector<const BlendKernel*> Tables() {
  std::vector<const BlendKernel*> t{kBlendKernelsPlain};
  if (test::HasSse41()) t.push_back(kBlendKernelsSse41);
  return t;
}

// ---- Independent reference ------------------------------------------------------------------

int Clamp(int v) { return std::min(255, std::max(0, v)); }
int Burn(int b, int x) {
  if (b == 255) return 255;
  if (x == 0) return 0;
  return std::max(0, 255 - (255 - b) * 255 / x);
}
int Dodge(int b, int x) {
  if (b == 0) return 0;
  if (x == 255) return 255;
  return std::min(255, b * 255 / (255 - x));
}

int RefSeparable(int index, int b, int l) {
  switch (index) {
    case 0:
    case 37: return l;
    case 1: return std::min(b, l);
    case 2: return b * l / 255;
    case 3: return std::max(0, b + l - 255);
    case 4: return b + l - 255;
    case 5: return std::max(b, l);
    case 6: return 255 - (255 - b) * (255 - l) / 255;
    case 7:
    case 29: return std::min(b + l, 255);
    case 8:
    case 30: return b + l;
    case 9: return b < 128 ? 2 * b * l / 255 : 255 - 2 * (255 - b) * (255 - l) / 255;
    case 10: {
      if (l < 128) return b - (255 - 2 * l) * (b * (255 - b) / 255) / 255;
      const int d = b < 64 ? ((16 * b - 3060) * b / 255 + 1020) * b / 255
                           : int(std::floor(std::sqrt(255.0 * b)));
      return b + (2 * l - 255) * (d - b) / 255;
    }
    case 11: return l < 128 ? 2 * b * l / 255 : 255 - 2 * (255 - b) * (255 - l) / 255;
    case 12: return std::abs(b - l);
    case 13: return b + l - 2 * b * l / 255;
    case 18: return Clamp(b + 2 * l - 255);
    case 19: return l < 128 ? Burn(b, 2 * l) : Dodge(b, 2 * l - 255);
    case 20: return Burn(b, l);
    case 21: return Dodge(b, l);
    case 22: return l < 128 ? std::min(b, 2 * l) : std::max(b, 2 * l - 255);
    case 23: return b + l >= 255 ? 255 : 0;
    case 24: return b - l;
    case 27: return 255 - std::abs(255 - b - l);
    case 31: return std::max(b - l, 0);
    case 32: return (b + l) / 2;
    case 33: return l == 0 ? (b == 0 ? 0 : 255) : std::min(255, b * 255 / l);
    case 34: return b == 0 ? (l == 0 ? 0 : 255) : std::min(255, l * 255 / b);
    case 35: return Clamp(b - l + 128);
    case 36: return Clamp(b + l - 128);
  }
  ADD_FAILURE() << "not separable: " << index;
  return 0;
}

struct Rgb {
  int r, g, b;
};
int LumaOf(Rgb c) { return (c.r * 19660 + c.g * 38665 + c.b * 7209) >> 16; }
int ChromaOf(Rgb c) { return std::max({c.r, c.g, c.b}) - std::min({c.r, c.g, c.b}); }
int HueOf(Rgb c) {
  const int m = std::max({c.r, c.g, c.b}), ch = ChromaOf(c);
  if (ch < 1) return 0;
  if (m == c.r) return ((c.g - c.b) * 256 / ch + 1536) % 1536;
  if (m != c.g) return (c.r - c.g) * 256 / ch + 1024;
  return (c.b - c.r) * 256 / ch + 512;
}
int LimitByLuma(int c, int y) {
  if (y <= 59) return c * y / 60;
  if (y >= 181) return (255 - y) * c / 75;
  return c;
}
Rgb FromHcy(int h, int c, int y) {
  Rgb o{0, 0, 0};
  if (c > 0) {
    const int x = ((256 - std::abs(h % 512 - 256)) * c) >> 8;
    switch (h / 256) {
      case 0: o = {c, x, 0}; break;
      case 1: o = {x, c, 0}; break;
      case 2: o = {0, c, x}; break;
      case 3: o = {0, x, c}; break;
      case 4: o = {x, 0, c}; break;
      default: o = {c, 0, x}; break;
    }
  }
  const int d = y - LumaOf(o);
  return Rgb{Clamp(o.r + d), Clamp(o.g + d), Clamp(o.b + d)};
}
Rgb RefNonSeparable(int index, Rgb b, Rgb l) {
  const int yb = LumaOf(b), cb = ChromaOf(b), cl = ChromaOf(l);
  switch (index) {
    case 14: return FromHcy(HueOf(b), LimitByLuma(cb < 1 ? 0 : cl, yb), yb);
    case 15: return FromHcy(HueOf(b), LimitByLuma(cb, LumaOf(l)), LumaOf(l));
    case 16: return FromHcy(HueOf(l), LimitByLuma(cl < 1 ? 0 : cb, yb), yb);
    case 25: return LumaOf(l) < yb ? l : b;
    case 26: return LumaOf(l) > yb ? l : b;
    case 28: {
      int c = cl;
      if (cb < 5) c = c * cb / 5;
      return FromHcy(HueOf(l), LimitByLuma(c, yb), yb);
    }
  }
  ADD_FAILURE() << "separable: " << index;
  return b;
}
bool IsNonSeparable(int i) {
  return i == 14 || i == 15 || i == 16 || i == 25 || i == 26 || i == 28;
}

// The compositing rule on one BGRA pixel.
void RefPixel(int index, const uint8_t* base, const uint8_t* layer, uint8_t* dst,
              uint32_t opacity) {
  const int a = (layer[3] * int(std::min(opacity, 255u))) >> 8;
  if (a <= 0) return;
  const int ab = base[3];
  const int wb = (255 - a) * ab / 255, wl = (255 - ab) * a / 255, ws = ab * a / 255;
  if (index == 17) {
    dst[3] = uint8_t(wb);
    return;
  }
  int f[3];
  if (IsNonSeparable(index)) {
    const Rgb o =
        RefNonSeparable(index, Rgb{base[2], base[1], base[0]}, Rgb{layer[2], layer[1], layer[0]});
    f[0] = o.b, f[1] = o.g, f[2] = o.r;
  } else {
    for (int c = 0; c < 3; ++c) f[c] = RefSeparable(index, base[c], layer[c]);
  }
  for (int c = 0; c < 3; ++c)
    dst[c] = uint8_t(Clamp((ws * f[c] + wl * layer[c] + wb * base[c]) / (a + wb)));
  dst[3] = uint8_t(a + wb);
}

// ---- The mode list and the checks ----------------------------------------------------------

TEST(BlendTable, ModeCodesReachTheirIndices) {
  const int32_t want[29] = {0,  1,  2,  4,  5,  6,  8,  9,  11, 12, 13, 14, 15, 16, 17,
                            18, 19, 21, 23, 25, 26, 27, 28, 30, 32, 34, 35, 36, 37};
  for (int32_t code = -1; code <= kBlendModeCount; ++code) {
    const bool known = code >= 0 && code < kBlendModeCount;
    EXPECT_EQ(BlendIndexForMode(code), known ? want[code] : -1) << "code " << code;
    if (known) {
      EXPECT_EQ(kBlendModeToIndex[code], want[code]) << "code " << code;
    }
  }
}

TEST(BlendTable, ChecksInOrderTouchNothing) {
  Image base(2, 2), layer(2, 2), dst(2, 2);
  base.FillRandom(1), layer.FillRandom(2), dst.Fill(0x5A);
  const Image before = dst;
  ImageView null_gray = layer.View(), null_dst = dst.View(), gray = layer.View();
  null_gray.data = nullptr;
  null_gray.format = PIXEL_GRAY8;  // a null pointer is reported before the format
  null_dst.data = nullptr;
  gray.format = PIXEL_GRAY8;
  for (const BlendKernel* table : Tables())
    for (int32_t i = 0; i < kBlendKernelCount; ++i) {
      const ImageView b = base.View(), l = layer.View(), d = dst.View();
      EXPECT_EQ(table[i](null_gray, l, d, 255, Whole(dst)), VX_E_POINTER) << i;
      EXPECT_EQ(table[i](b, null_gray, d, 255, Whole(dst)), VX_E_POINTER) << i;
      EXPECT_EQ(table[i](b, l, null_dst, 255, Whole(dst)), VX_E_POINTER) << i;
      EXPECT_EQ(table[i](b, gray, d, 255, Whole(dst)), VX_E_INVALIDARG) << i;
    }
  EXPECT_EQ(dst, before);
  EXPECT_EQ(blend_block(38, base.View(), layer.View(), dst.View(), 255, Whole(dst), 0),
            VX_E_INVALIDARG);
  EXPECT_EQ(blend_block(-1, base.View(), layer.View(), dst.View(), 255, Whole(dst), 5),
            VX_E_INVALIDARG);
}

// ---- Hand-computed pixels -------------------------------------------------------------------

TEST(BlendHand, OnePixelAtATime) {
  const struct {
    int32_t index;
    Px base, layer;
    uint32_t opacity;
    Px want;  // destination prefilled with 0xAB
  } rows[] = {
      // Screen: a = (255 x 255) >> 8 = 254; base alpha 255: wb = 1 x 255 / 255 = 1, wl = 0,
      // ws = 254. S = 255 - 127 x 127 / 255 = 192; (254 x 192 + 1 x 128) / 255 = 191.7 -> 191.
      {6, {128, 128, 128, 255}, {128, 128, 128, 255}, 255, {191, 191, 191, 255}},
      // Normal at a = 254 keeps a trace of the base: (254 x 200 + 1 x 10) / 255 = 199.3 -> 199.
      {0, {10, 10, 10, 255}, {200, 0, 255, 255}, 255, {199, 0, 254, 255}},
      {0, {10, 10, 10, 255}, {200, 0, 255, 255}, 100000, {199, 0, 254, 255}},  // 255 at most
      // Base alpha 0: wb = 0, wl = a, ws = 0: the layer exactly, alpha 254.
      {0, {10, 10, 10, 0}, {200, 0, 255, 255}, 255, {200, 0, 255, 254}},
      // Layer alpha 128: a = 127, wb = 128, ws = 127: (127 x 200 + 128 x 10) / 255 = 104.6 -> 104.
      {37, {10, 10, 10, 255}, {200, 0, 255, 128}, 255, {104, 5, 132, 255}},
      // Alpha only: a = 254 gives 1 x 200 / 255 = 0; a = 127 gives 128 x 200 / 255 = 100.
      {17, {1, 2, 3, 200}, {9, 9, 9, 255}, 255, {0xAB, 0xAB, 0xAB, 0}},
      {17, {1, 2, 3, 200}, {9, 9, 9, 128}, 255, {0xAB, 0xAB, 0xAB, 100}},
      // Colour: base (B, G, R) = (50, 100, 150): Y = (150 x 19660 + 100 x 38665 + 50 x 7209)
      // >> 16 = 109, Cb = 100. Layer (200, 40, 10): C = 190, h = (10 - 40) x 256 / 190 + 1024
      // = 984. x = ((256 - |472 - 256|) x 190) >> 8 = 29; sextant 3: (R, G, B) = (0, 29, 190),
      // luma 38, d = 71: (71, 100, 261 -> 255). At a = 254: B (254 x 255 + 50) / 255 = 254,
      // G 100, R (254 x 71 + 150) / 255 = 71.
      {28, {50, 100, 150, 255}, {200, 40, 10, 255}, 255, {254, 100, 71, 255}},
      // Grey dark base (20, 20, 22): Cb = 2, Y = 20; pure red layer: C = 255 x 2 / 5 = 102,
      // then 102 x 20 / 60 = 34 (Y <= 59): (R, G, B) = (34, 0, 0), luma 10, d = 10:
      // (44, 10, 10). B and G (2540 + 20) / 255 = 10, R (254 x 44 + 22) / 255 = 43.
      {28, {20, 20, 22, 255}, {0, 0, 255, 255}, 255, {10, 10, 43, 255}},
  };
  for (const BlendKernel* table : Tables()) {
    auto blend = [&](int32_t index, const Px& b, const Px& l, uint32_t opacity) {
      Image base(1, 1), layer(1, 1), dst(1, 1);
      std::copy(b.begin(), b.end(), base.bytes.begin());
      std::copy(l.begin(), l.end(), layer.bytes.begin());
      dst.Fill(0xAB);
      EXPECT_EQ(table[index](base.View(), layer.View(), dst.View(), opacity, Whole(dst)), 0);
      return dst.bytes;
    };
    const char* form = table == kBlendKernelsPlain ? "plain" : "fast";
    for (const auto& r : rows)
      EXPECT_EQ(blend(r.index, r.base, r.layer, r.opacity), r.want) << form << " index " << r.index;
    // A layer alpha of 0 or 1 (a = 255 >> 8 = 0) or opacity 0 writes nothing, in every mode.
    for (int32_t i = 0; i < kBlendKernelCount; ++i) {
      EXPECT_EQ(blend(i, {1, 2, 3, 255}, {9, 9, 9, 0}, 255), Px(4, 0xAB)) << form << " " << i;
      EXPECT_EQ(blend(i, {1, 2, 3, 255}, {9, 9, 9, 1}, 255), Px(4, 0xAB)) << form << " " << i;
      EXPECT_EQ(blend(i, {1, 2, 3, 255}, {9, 9, 9, 255}, 0), Px(4, 0xAB)) << form << " " << i;
    }
  }
}

// ---- Every formula against the reference ----------------------------------------------------

// Both forms of index i over base (at 0, 0) and a layer and destination placed at their own
// origins, against the reference from the same stale destination: the layer's pixels outside
// it count as transparent and nothing outside the destination is written.
void ExpectFormula(int32_t i, Image& b, Image& l, int32_t lx, int32_t ly, const Image& stale,
                   int32_t dx, int32_t dy, uint32_t op, const char* what) {
  Image want = stale;
  for (int32_t y = 0; y < want.height; ++y)
    for (int32_t x = 0; x < want.width; ++x) {
      const int32_t sx = x + dx, sy = y + dy;
      if (sx - lx < 0 || sy - ly < 0 || sx - lx >= l.width || sy - ly >= l.height) continue;
      if (sx >= b.width || sy >= b.height) continue;
      RefPixel(i, b.Pixel(sx, sy), l.Pixel(sx - lx, sy - ly), want.Pixel(x, y), op);
    }
  for (const BlendKernel* table : Tables()) {
    Image got = stale;
    ASSERT_EQ(table[i](b.View(), l.View(lx, ly), got.View(dx, dy), op, Whole(b)), 0);
    EXPECT_TRUE(got == want) << what << ": " << (table == kBlendKernelsPlain ? "plain" : "fast")
                             << " index " << i << " opacity " << op;
  }
}

TEST(BlendReference, EveryIndexMatchesItsFormula) {
  // 256 x 256: B and G run over every (base, layer) pair, alphas vary per pixel.
  Image base(256, 256), layer(256, 256);
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 256; ++x) {
      const uint8_t b[4] = {uint8_t(x), uint8_t(y), uint8_t(x ^ (y * 3)), uint8_t(x * 31 + y * 17)};
      const uint8_t l[4] = {uint8_t(y), uint8_t(x), uint8_t(255 - x + y),
                            uint8_t((x * 13 + y * 29 + 5) | (x & 1 ? 0xC0 : 0))};
      std::copy(b, b + 4, base.Pixel(x, y));
      std::copy(l, l + 4, layer.Pixel(x, y));
    }
  // The same pairs over an opaque base (the fast form's reduced rule) with runs of 8 to 16
  // black layer pixels (its shortcut where F(b, 0) = b), some of them left alone.
  Image opaque = base, runs = layer;
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 256; ++x) {
      opaque.Pixel(x, y)[3] = 255;
      if ((x + y * 8) % 64 < 8 + (y & 8)) {
        uint8_t* p = runs.Pixel(x, y);
        p[0] = p[1] = p[2] = 0;
        if (y % 5 == 0) p[3] = uint8_t(x & 1);
      }
    }
  // Random colours with every (layer alpha, base alpha) pair: layer alpha along x, base along y;
  // greys and near-greys in the first rows for the hue modes.
  Image rb(256, 256), rl(256, 256);
  rb.FillRandom(51), rl.FillRandom(52);
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 256; ++x) {
      rl.Pixel(x, y)[3] = uint8_t(x), rb.Pixel(x, y)[3] = uint8_t(y);
      if (y < 8) {
        uint8_t* p = (y & 1 ? rb : rl).Pixel(x, y);
        p[1] = p[0], p[2] = uint8_t(p[0] + (y >> 1));
      }
    }
  // A layer smaller than the stage, and a destination that holds only a rectangle.
  Image small_layer(11, 5, PIXEL_BGRA32, 2), stale(256, 256), crop(21, 11, PIXEL_BGRA32, 5);
  small_layer.FillRandom(32), stale.FillRandom(33), crop.FillRandom(34);
  for (int32_t i = 0; i < kBlendKernelCount; ++i) {
    ExpectFormula(i, base, layer, 0, 0, stale, 0, 0, 255, "pairs");
    ExpectFormula(i, opaque, runs, 0, 0, stale, 0, 0, 255, "opaque base");
    ExpectFormula(i, rb, rl, 0, 0, stale, 0, 0, 77, "alpha pairs");
    ExpectFormula(i, rb, rl, 0, 0, stale, 0, 0, 300, "alpha pairs");
    ExpectFormula(i, rb, small_layer, 6, 3, stale, 0, 0, 255, "small layer");
    ExpectFormula(i, rb, rl, 0, 0, crop, 9, 4, 200, "cropped destination");
  }
}

// ---- Plain against fast ---------------------------------------------------------------------

TEST(BlendForms, FastMatchesPlain) {
  std::vector<test::KernelRow> rows;
  for (int32_t i = 0; i < kBlendKernelCount; ++i)
    rows.emplace_back("blend " + std::to_string(i),
                      std::vector<std::vector<uint32_t>>{{PIXEL_BGRA32}, {PIXEL_BGRA32}, {PIXEL_BGRA32}},
                      [i](test::Case& c) {
                        const uint32_t opacity = uint32_t(c.Pick({255, 0, 300, c.Int(1, 254)}));
                        return c.Form(kBlendKernelsPlain, kBlendKernelsSse41)[i](
                            c.View(0), c.View(1), c.View(2), opacity, c.strip);
                      });
  test::ExpectFormsAgree(rows);
}

}  // namespace
}  // namespace Vantyx
