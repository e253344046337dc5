// Blend kernels: hand-computed pixels, an independent evaluation of every mode's formula, the
// exactness of the fast form's float division, and plain against fast on awkward geometry.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "imageops/blend.h"
#include "test_support.h"

namespace Vantyx {
namespace {

using test::HasSse41;
using test::Image;

constexpr int32_t kPointer = static_cast<int32_t>(0x80004003);
constexpr int32_t kArg = static_cast<int32_t>(0x80070057);

ProcessRect Rect(uint32_t l, uint32_t t, uint32_t r, uint32_t b) { return ProcessRect{l, t, r, b}; }
ProcessRect Whole(const Image& img) {
  return Rect(0, 0, uint32_t(img.width), uint32_t(img.height));
}

void SetPixel(Image& img, int32_t x, int32_t y, uint8_t b, uint8_t g, uint8_t r, uint8_t a) {
  uint8_t* p = img.Pixel(x, y);
  p[0] = b, p[1] = g, p[2] = r, p[3] = a;
}

// One pixel of base over layer with `index`, into a destination prefilled with 0xAB.
std::vector<uint8_t> BlendOne(const BlendKernel* table, int32_t index, std::vector<uint8_t> b,
                              std::vector<uint8_t> l, uint32_t opacity) {
  Image base(1, 1), layer(1, 1), dst(1, 1);
  SetPixel(base, 0, 0, b[0], b[1], b[2], b[3]);
  SetPixel(layer, 0, 0, l[0], l[1], l[2], l[3]);
  dst.Fill(0xAB);
  EXPECT_EQ(table[index](base.View(), layer.View(), dst.View(), opacity, Whole(dst)), 0);
  return dst.bytes;
}

using Px = std::vector<uint8_t>;

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

// ---- Mode list and argument checks ----------------------------------------------------------

TEST(BlendTable, ModeCodesReachTheirIndices) {
  const int32_t expected[29] = {0,  1,  2,  4,  5,  6,  8,  9,  11, 12, 13, 14, 15, 16, 17,
                                18, 19, 21, 23, 25, 26, 27, 28, 30, 32, 34, 35, 36, 37};
  for (int32_t code = 0; code < kBlendModeCount; ++code) {
    EXPECT_EQ(kBlendModeToIndex[code], expected[code]);
    EXPECT_EQ(BlendIndexForMode(code), expected[code]);
  }
  EXPECT_EQ(BlendIndexForMode(-1), -1);
  EXPECT_EQ(BlendIndexForMode(29), -1);
}

TEST(BlendTable, ArgumentChecksInOrder) {
  Image base(2, 2), layer(2, 2), dst(2, 2);
  base.FillRandom(1), layer.FillRandom(2), dst.Fill(0x5A);
  const std::vector<uint8_t> before = dst.bytes;
  for (const BlendKernel* table : {kBlendKernelsPlain, kBlendKernelsSse41}) {
    if (table == kBlendKernelsSse41 && !HasSse41()) continue;
    for (int32_t i = 0; i < kBlendKernelCount; ++i) {
      ImageView nul = layer.View();
      nul.data = nullptr;
      nul.format = PIXEL_GRAY8;  // a null pointer is reported before the format
      EXPECT_EQ(table[i](nul, layer.View(), dst.View(), 255, Whole(dst)), kPointer);
      EXPECT_EQ(table[i](base.View(), nul, dst.View(), 255, Whole(dst)), kPointer);
      ImageView nul_dst = dst.View();
      nul_dst.data = nullptr;
      EXPECT_EQ(table[i](base.View(), layer.View(), nul_dst, 255, Whole(dst)), kPointer);
      ImageView gray = layer.View();
      gray.format = PIXEL_GRAY8;
      EXPECT_EQ(table[i](base.View(), gray, dst.View(), 255, Whole(dst)), kArg);
      EXPECT_EQ(table[i](base.View(), layer.View(), dst.View(), 255, Rect(1, 1, 1, 2)), 0);
      EXPECT_EQ(table[i](base.View(), layer.View(), dst.View(), 255, Rect(5, 5, 9, 9)), 0);
    }
  }
  EXPECT_EQ(dst.bytes, before);
  EXPECT_EQ(blend_block(38, base.View(), layer.View(), dst.View(), 255, Whole(dst), 0), kArg);
  EXPECT_EQ(blend_block(-1, base.View(), layer.View(), dst.View(), 255, Whole(dst), 5), kArg);
  EXPECT_EQ(blend_block(6, base.View(), layer.View(), dst.View(), 255, Whole(dst), 0), 0);
  EXPECT_NE(dst.bytes, before);
}

// ---- Hand-computed pixels -------------------------------------------------------------------

TEST(BlendHand, ScreenOfMidGreyOverMidGrey) {
  // a = (255 x 255) >> 8 = 254; ab = 255: wb = 1 x 255 / 255 = 1, wl = 0, ws = 254; alpha 255.
  // S = 255 - 127 x 127 / 255 = 255 - 63 = 192; out = (254 x 192 + 1 x 128) / 255 = 48896 / 255
  // = 191.7 -> 191.
  const Px expected = {191, 191, 191, 255};
  EXPECT_EQ(BlendOne(kBlendKernelsPlain, 6, {128, 128, 128, 255}, {128, 128, 128, 255}, 255),
            expected);
  if (HasSse41()) {
    EXPECT_EQ(BlendOne(kBlendKernelsSse41, 6, {128, 128, 128, 255}, {128, 128, 128, 255}, 255),
              expected);
  }
}

TEST(BlendHand, OpaqueLayerKeepsATraceOfTheBase) {
  // Normal, a = 254: (254 x 200 + 1 x 10) / 255 = 50810 / 255 = 199.3 -> 199, not 200.
  // Base alpha 0: wb = 0, wl = a, ws = 0, so out = l exactly and alpha = 254.
  // Layer alpha 128: a = 32640 >> 8 = 127, wb = 128, ws = 127: (127 x 200 + 128 x 10) / 255
  // = 26680 / 255 = 104.6 -> 104.
  for (const BlendKernel* table : {kBlendKernelsPlain, kBlendKernelsSse41}) {
    if (table == kBlendKernelsSse41 && !HasSse41()) continue;
    EXPECT_EQ(BlendOne(table, 0, {10, 10, 10, 255}, {200, 0, 255, 255}, 255),
              (Px{199, 0, 254, 255}));
    EXPECT_EQ(BlendOne(table, 0, {10, 10, 10, 0}, {200, 0, 255, 255}, 255), (Px{200, 0, 255, 254}));
    EXPECT_EQ(BlendOne(table, 37, {10, 10, 10, 255}, {200, 0, 255, 128}, 255),
              (Px{104, 5, 132, 255}));
    // Opacity above 255 acts as 255.
    EXPECT_EQ(BlendOne(table, 0, {10, 10, 10, 255}, {200, 0, 255, 255}, 100000),
              (Px{199, 0, 254, 255}));
  }
}

TEST(BlendHand, TransparentLayerOrZeroOpacityLeavesStaleDestination) {
  // Layer alpha 1 at opacity 255 gives a = 255 >> 8 = 0: also untouched.
  for (const BlendKernel* table : {kBlendKernelsPlain, kBlendKernelsSse41}) {
    if (table == kBlendKernelsSse41 && !HasSse41()) continue;
    for (int32_t i = 0; i < kBlendKernelCount; ++i) {
      EXPECT_EQ(BlendOne(table, i, {1, 2, 3, 255}, {9, 9, 9, 0}, 255),
                (Px{0xAB, 0xAB, 0xAB, 0xAB}));
      EXPECT_EQ(BlendOne(table, i, {1, 2, 3, 255}, {9, 9, 9, 255}, 0),
                (Px{0xAB, 0xAB, 0xAB, 0xAB}));
      EXPECT_EQ(BlendOne(table, i, {1, 2, 3, 255}, {9, 9, 9, 1}, 255),
                (Px{0xAB, 0xAB, 0xAB, 0xAB}));
    }
  }
}

TEST(BlendHand, AlphaOnlyWritesAlphaAlone) {
  // a = 254: alpha = 1 x 200 / 255 = 0. Layer alpha 128, a = 127: 128 x 200 / 255 = 100.4 -> 100.
  for (const BlendKernel* table : {kBlendKernelsPlain, kBlendKernelsSse41}) {
    if (table == kBlendKernelsSse41 && !HasSse41()) continue;
    EXPECT_EQ(BlendOne(table, 17, {1, 2, 3, 200}, {9, 9, 9, 255}, 255), (Px{0xAB, 0xAB, 0xAB, 0}));
    EXPECT_EQ(BlendOne(table, 17, {1, 2, 3, 200}, {9, 9, 9, 128}, 255),
              (Px{0xAB, 0xAB, 0xAB, 100}));
  }
}

TEST(BlendHand, ColourFollowsTheHueChromaLumaSteps) {
  // Base (B, G, R) = (50, 100, 150): Y = (150 x 19660 + 100 x 38665 + 50 x 7209) >> 16
  // = 7175950 >> 16 = 109; Cb = 100. Layer (200, 40, 10): M = 200 = B, C = 190;
  // h = ((10 - 40) x 256) / 190 + 1024 = -40 + 1024 = 984. Cb >= 5 and Y in 60..180: C = 190.
  // x = ((256 - |472 - 256|) x 190) >> 8 = 7600 >> 8 = 29; sextant 768..1023: (R, G, B) =
  // (0, 29, 190); its luma = 2490995 >> 16 = 38, d = 71: (71, 100, 261 -> 255).
  // Composite at a = 254: B (254 x 255 + 50) / 255 = 254, G (25400 + 100) / 255 = 100,
  // R (254 x 71 + 150) / 255 = 18184 / 255 = 71.
  //
  // Grey, dark base (20, 20, 22): Cb = 2, Y = 1350000 >> 16 = 20. Layer pure red: C = 255,
  // h = 0. Step 3: C = 255 x 2 / 5 = 102; step 4 (Y <= 59): C = 102 x 20 / 60 = 34. x = 0:
  // (R, G, B) = (34, 0, 0), luma 668440 >> 16 = 10, d = 10: (44, 10, 10). Composite: B and G
  // (2540 + 20) / 255 = 10, R (254 x 44 + 22) / 255 = 11198 / 255 = 43.
  for (const BlendKernel* table : {kBlendKernelsPlain, kBlendKernelsSse41}) {
    if (table == kBlendKernelsSse41 && !HasSse41()) continue;
    EXPECT_EQ(BlendOne(table, 28, {50, 100, 150, 255}, {200, 40, 10, 255}, 255),
              (Px{254, 100, 71, 255}));
    EXPECT_EQ(BlendOne(table, 28, {20, 20, 22, 255}, {0, 0, 255, 255}, 255), (Px{10, 10, 43, 255}));
  }
}

// ---- Exactness of the fast form's arithmetic ------------------------------------------------

// The fast form divides integers in single precision and truncates. Numerators by division
// site: weights 0..65025 (multiply and shift, below); the composite -65025..130050 (F within
// -255..510); multiply, screen, overlay, hard light, exclusion 0..130050; burn -65025..0; dodge and
// divide 0..65025; hue -65280..65280; chroma limits 0..65025 (divisors 5, 60, 75); soft light |n|
// <= 65025, and its polynomial -129276..0 over 255. Divisors 1..255 wherever the result is used.
TEST(BlendExact, FloatDivisionTruncatesLikeIntegerDivision) {
  int64_t bad = 0;
  for (int32_t d = 1; d <= 255; ++d) {
    const float fd = float(d);
    for (int32_t n = -65280; n <= 130050; ++n) bad += int32_t(float(n) / fd) != n / d;
  }
  for (int32_t n = -129276; n <= 0; ++n) bad += int32_t(float(n) / 255.0f) != n / 255;
  EXPECT_EQ(bad, 0);
}

// Products known to lie in 0..65535 (weights, multiply, screen) are divided by multiplying.
TEST(BlendExact, MultiplyShiftDividesBy255) {
  for (uint32_t n = 0; n <= 65535; ++n) ASSERT_EQ((n * 0x8081u) >> 23, n / 255) << n;
}

// The narrow modes divide 16-bit numerators by the composite's divisor d with a reciprocal
// r = min(65536 / d, 65535) (a float division, truncated), a high product and one correction:
// q0 = (n r) >> 16 is n / d or one less, and the remainder n - q0 d, compared as a signed
// 16-bit value, lies within 0..2d - 1.
TEST(BlendExact, ReciprocalDividesSixteenBitNumerators) {
  int64_t bad = 0;
  for (int32_t d = 1; d <= 255; ++d) {
    const uint32_t r = std::min(uint32_t(int32_t(65536.0f / float(d))), 65535u);
    for (uint32_t n = 0; n <= 65535; ++n) {
      const uint32_t q0 = (n * r) >> 16;
      const int32_t rem = int32_t(n - q0 * uint32_t(d));
      bad += rem < 0 || rem > 2 * d - 1;
      bad += q0 + (rem > d - 1 ? 1u : 0u) != n / uint32_t(d);
    }
  }
  EXPECT_EQ(bad, 0);
}

TEST(BlendExact, FloatSquareRootTruncatesToIntegerRoot) {
  for (int32_t b = 0; b < 256; ++b) {
    int32_t r = 0;
    while ((r + 1) * (r + 1) <= 255 * b) ++r;
    EXPECT_EQ(int32_t(std::sqrt(float(255 * b))), r) << b;
  }
}

// ---- Every formula against the reference ----------------------------------------------------

// 256 x 256 pixels: B and G run over every (base, layer) pair, alphas vary per pixel.
void MakeSweep(Image& base, Image& layer) {
  base = Image(256, 256), layer = Image(256, 256);
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 256; ++x) {
      SetPixel(base, x, y, uint8_t(x), uint8_t(y), uint8_t(x ^ (y * 3)),
               uint8_t((x * 31 + y * 17) & 255));
      SetPixel(layer, x, y, uint8_t(y), uint8_t(x), uint8_t(255 - x + y),
               uint8_t((x * 13 + y * 29 + 5) | (x & 1 ? 0xC0 : 0)));
    }
}

TEST(BlendReference, EveryIndexMatchesItsFormula) {
  Image base, layer;
  MakeSweep(base, layer);
  Image rnd_base(128, 64), rnd_layer(128, 64);
  rnd_base.FillRandom(11), rnd_layer.FillRandom(12);
  for (int32_t y = 0; y < 8; ++y)  // greys and near-greys for the hue modes
    for (int32_t x = 0; x < 128; ++x) {
      uint8_t* p = (y & 1 ? rnd_base : rnd_layer).Pixel(x, y);
      p[1] = p[0], p[2] = uint8_t(p[0] + (y >> 1));
    }
  // The sweep at full opacity; the random images at a partial one and at one above 255.
  const uint32_t runs[][2] = {{0, 255}, {1, 77}, {1, 300}};
  for (int32_t i = 0; i < kBlendKernelCount; ++i)
    for (const auto& run : runs) {
      const int32_t set = int32_t(run[0]);
      const uint32_t op = run[1];
      Image& b = set ? rnd_base : base;
      Image& l = set ? rnd_layer : layer;
      Image expected(b.width, b.height), plain(b.width, b.height);
      expected.FillRandom(uint32_t(i * 7 + op + set));
      plain.bytes = expected.bytes;
      for (int32_t y = 0; y < b.height; ++y)
        for (int32_t x = 0; x < b.width; ++x)
          RefPixel(i, b.Pixel(x, y), l.Pixel(x, y), expected.Pixel(x, y), op);
      ASSERT_EQ(kBlendKernelsPlain[i](b.View(), l.View(), plain.View(), op, Whole(plain)), 0);
      EXPECT_TRUE(plain == expected) << "index " << i << " opacity " << op << " set " << set;
      if (!HasSse41()) continue;
      Image fast(b.width, b.height);
      fast.FillRandom(uint32_t(i * 7 + op + set));
      ASSERT_EQ(kBlendKernelsSse41[i](b.View(), l.View(), fast.View(), op, Whole(fast)), 0);
      EXPECT_TRUE(fast == expected) << "index " << i << " opacity " << op << " set " << set;
    }
}

// Both forms of index i over (b, l) against the reference, from a stale destination.
void ExpectFormula(int32_t i, Image& b, Image& l, uint32_t op, const char* what) {
  Image expected(b.width, b.height);
  expected.FillRandom(uint32_t(i * 5 + op));
  Image plain = expected, fast = expected;
  for (int32_t y = 0; y < b.height; ++y)
    for (int32_t x = 0; x < b.width; ++x)
      RefPixel(i, b.Pixel(x, y), l.Pixel(x, y), expected.Pixel(x, y), op);
  ASSERT_EQ(kBlendKernelsPlain[i](b.View(), l.View(), plain.View(), op, Whole(plain)), 0);
  EXPECT_TRUE(plain == expected) << what << ": index " << i << " opacity " << op;
  if (!HasSse41()) return;
  ASSERT_EQ(kBlendKernelsSse41[i](b.View(), l.View(), fast.View(), op, Whole(fast)), 0);
  EXPECT_TRUE(fast == expected) << what << ": index " << i << " opacity " << op;
}

// An opaque base (the fast form's reduced rule) with every (base, layer) pair in B and G, and
// black layer runs of 8 to 16 pixels (its shortcut where F(b, 0) = b), partly transparent.
TEST(BlendReference, OpaqueBaseMatchesTheFormula) {
  Image base, layer;
  MakeSweep(base, layer);
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 256; ++x) {
      base.Pixel(x, y)[3] = 255;
      if ((x + y * 8) % 64 < 8 + (y & 8)) {
        uint8_t* p = layer.Pixel(x, y);
        p[0] = p[1] = p[2] = 0;
        if (y % 5 == 0) p[3] = uint8_t(x & 1);  // some pixels left alone
      }
    }
  for (int32_t i = 0; i < kBlendKernelCount; ++i)
    ExpectFormula(i, base, layer, 255, "opaque");
}

// Every (layer alpha, base alpha) pair: layer alpha runs along x, base alpha along y.
TEST(BlendReference, EveryAlphaPairMatchesTheFormula) {
  Image base(256, 256), layer(256, 256);
  base.FillRandom(51), layer.FillRandom(52);
  for (int32_t y = 0; y < 256; ++y)
    for (int32_t x = 0; x < 256; ++x) {
      layer.Pixel(x, y)[3] = uint8_t(x);
      base.Pixel(x, y)[3] = uint8_t(y);
    }
  for (int32_t i = 0; i < kBlendKernelCount; ++i)
    ExpectFormula(i, base, layer, 131, "alphas");
}

// ---- Plain against fast ---------------------------------------------------------------------

// Runs both forms over the same stale destination, strip by strip, and compares.
void ExpectFormsAgree(int32_t index, int32_t w, int32_t h, int32_t extra, uint32_t seed,
                      int32_t strip_rows) {
  Image base(w, h, PIXEL_BGRA32, extra), layer(w, h, PIXEL_BGRA32, extra * 2 + 4);
  Image plain(w, h, PIXEL_BGRA32, extra + 1);
  base.FillRandom(seed), layer.FillRandom(seed + 1), plain.FillRandom(seed + 2);
  Image fast = plain;
  const uint32_t opacity = 96 + seed % 200;
  for (int32_t top = 0; top < h; top += strip_rows) {
    const ProcessRect s =
        Rect(0, uint32_t(top), uint32_t(w), uint32_t(std::min(h, top + strip_rows)));
    ASSERT_EQ(kBlendKernelsPlain[index](base.View(), layer.View(), plain.View(), opacity, s), 0);
    ASSERT_EQ(kBlendKernelsSse41[index](base.View(), layer.View(), fast.View(), opacity, s), 0);
  }
  ASSERT_TRUE(plain == fast) << "index " << index << " size " << w << "x" << h;
}

TEST(BlendForms, AgreeOnOddSizesAndStrides) {
  if (!HasSse41()) GTEST_SKIP() << "no SSE4.1";
  for (int32_t i = 0; i < kBlendKernelCount; ++i) {
    ExpectFormsAgree(i, 1, 1, 0, 1, 1);
    ExpectFormsAgree(i, 3, 2, 3, 2, 1);
    ExpectFormsAgree(i, 5, 7, 5, 3, 3);
    for (int32_t w = 1; w <= 67; w += (i % 3) + 1) ExpectFormsAgree(i, w, 3, w % 7, uint32_t(w), 2);
  }
}

TEST(BlendForms, AgreeOnAFullFrame) {
  if (!HasSse41()) GTEST_SKIP() << "no SSE4.1";
  for (int32_t i : {6, 28}) ExpectFormsAgree(i, 1921, 1081, 3, uint32_t(i + 5), 271);
}

TEST(BlendForms, DestinationViewWithAnOrigin) {
  // The destination holds only the rectangle (9, 4)-(30, 15) of a 37 x 19 stage.
  if (!HasSse41()) GTEST_SKIP() << "no SSE4.1";
  Image base(37, 19, PIXEL_BGRA32, 7), layer(37, 19, PIXEL_BGRA32, 1);
  base.FillRandom(21), layer.FillRandom(22);
  const ProcessRect rect = Rect(9, 4, 30, 15);
  for (int32_t i = 0; i < kBlendKernelCount; ++i) {
    Image full(37, 19), part(21, 11, PIXEL_BGRA32, 5);
    full.FillRandom(23);
    for (int32_t y = 0; y < 11; ++y)
      for (int32_t x = 0; x < 21; ++x) std::copy_n(full.Pixel(x + 9, y + 4), 4, part.Pixel(x, y));
    Image part_fast = part;
    ASSERT_EQ(kBlendKernelsPlain[i](base.View(), layer.View(), full.View(), 200, rect), 0);
    ASSERT_EQ(kBlendKernelsPlain[i](base.View(), layer.View(), part.View(9, 4), 200, rect), 0);
    ASSERT_EQ(kBlendKernelsSse41[i](base.View(), layer.View(), part_fast.View(9, 4), 200, rect), 0);
    EXPECT_TRUE(part == part_fast) << i;
    for (int32_t y = 0; y < 11; ++y)
      for (int32_t x = 0; x < 21; ++x)
        ASSERT_TRUE(
            std::equal(full.Pixel(x + 9, y + 4), full.Pixel(x + 9, y + 4) + 4, part.Pixel(x, y)))
            << i << " at " << x << "," << y;
  }
}

TEST(BlendForms, LayerSmallerThanTheRectangle) {
  // The layer covers (6, 3)-(17, 8) of a 23 x 13 stage; the rest of dst keeps its stale bytes.
  Image base(23, 13), layer(11, 5, PIXEL_BGRA32, 2), stale(23, 13);
  base.FillRandom(31), layer.FillRandom(32), stale.FillRandom(33);
  for (int32_t i = 0; i < kBlendKernelCount; ++i) {
    Image plain = stale, fast = stale, expected = stale;
    for (int32_t y = 3; y < 8; ++y)
      for (int32_t x = 6; x < 17; ++x)
        RefPixel(i, base.Pixel(x, y), layer.Pixel(x - 6, y - 3), expected.Pixel(x, y), 255);
    ASSERT_EQ(kBlendKernelsPlain[i](base.View(), layer.View(6, 3), plain.View(), 255, Whole(base)),
              0);
    EXPECT_TRUE(plain == expected) << i;
    if (!HasSse41()) continue;
    ASSERT_EQ(kBlendKernelsSse41[i](base.View(), layer.View(6, 3), fast.View(), 255, Whole(base)),
              0);
    EXPECT_TRUE(fast == expected) << i;
  }
}

TEST(BlendForms, BlockJobPicksTheFormByLevel) {
  if (!HasSse41()) GTEST_SKIP() << "no SSE4.1";
  Image base(13, 5), layer(13, 5), a(13, 5), b(13, 5);
  base.FillRandom(41), layer.FillRandom(42), a.FillRandom(43);
  b.bytes = a.bytes;
  for (int32_t i = 0; i < kBlendKernelCount; ++i) {
    ASSERT_EQ(blend_block(i, base.View(), layer.View(), a.View(), 180, Whole(a), 4), 0);
    ASSERT_EQ(blend_block(i, base.View(), layer.View(), b.View(), 180, Whole(b), 6), 0);
  }
  EXPECT_TRUE(a == b);
}

}  // namespace
}  // namespace Vantyx
