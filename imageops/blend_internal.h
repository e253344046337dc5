// Private to the blend kernels. Every mode's arithmetic is written once here, as templates
// over a lane type V: the plain form instantiates them with int32_t (one pixel), the fast form
// with a four-lane SSE4.1 type (four pixels, one per 32-bit lane) that offers the same
// operations with the same results. No intrinsics here: this header is included by plain code.
//
// Lane primitives every V provides (the int32_t ones are below):
//   + - * (no overflow in any range used), >> and & by constants, Min, Max, Abs,
//   Lt/Le/Gt/Ge/Eq giving a mask, And/Or of masks, Select(mask, if_true, if_false),
//   Div(n, d): n / d truncated toward zero, for d >= 1 and |n| < 2^23 (the fast form divides
//   in single precision; see blend_sse41.cpp for why that is exact),
//   DivU255(n): n / 255 for n in 0..65535 (the fast form multiplies and shifts),
//   Sqrt255(b): floor(sqrt(255 * b)) for b in 0..255,
//   DivConst<d, limit>(n): n / d for a constant d and n in 0..limit (the fast form multiplies
//   and shifts, with a multiplier found and checked at compile time: FindMulShift),
//   MakeDivisor(d) and DivBy(n, divisor): Div(n, d) for the composite's divisor d in 1..255,
//   prepared once per pixel because the three channels share it,
//   Luma(r, g, b): (19660 r + 38665 g + 7209 b) >> 16 (the highlight keys' weights) for
//   channels in 0..255,
//   HueRatio(n, c): n x 256 / c truncated toward zero, for 1 <= c <= 255 and |n| <= c
//   (DivConst, Luma and HueRatio serve the hue modes only, which are narrow: the four-lane
//   type leaves them out).
// Both sides of a Select are always evaluated, so every divisor is kept >= 1 in both.
//
// The fast form also runs the narrow modes (kNarrow) on eight pixels of 16-bit lanes. A
// narrow mode's F lies within 0..255 and each of its steps does too, within -255..1791 before
// a limit, or (products, DivU255 and DivConst inputs, right shifts) within 0..65535; its lanes
// wrap at 16 bits, compare as signed values and shift right as unsigned ones, so those ranges
// give the same results as 32-bit lanes. The products that need more bits (luma, the hue's
// x 256) are primitives of each form.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {
namespace blend_detail {

// Shared checks and clipping: 0x80004003 for a null image, 0x80070057 for a format other
// than BGRA32, otherwise 0 with `area` = strip clipped to base, layer and destination (layer
// pixels outside the layer are transparent, so those destination pixels are left alone).
int32_t PrepareBlend(const ImageView& base, const ImageView& layer, const ImageView& dst,
                     const ProcessRect& strip, Area* area);

// Opacities above 255 act as 255, so a = (A x opacity) >> 8 stays within 0..254.
inline int32_t ClampOpacity(uint32_t opacity) {
  return opacity > 255u ? 255 : static_cast<int32_t>(opacity);
}

}  // namespace blend_detail
}  // namespace Vantyx

// The per-pixel pieces must melt into the pixel loop: an out-of-line call would pass the
// four-lane values through memory.
#if defined(__GNUC__)
#define VANTYX_BLEND_INLINE inline __attribute__((always_inline))
#else
#define VANTYX_BLEND_INLINE inline
#endif

// Internal linkage on purpose: blend_sse41.cpp is built with -msse4.1, and a shared inline
// copy of these functions emitted there could be the one the linker keeps for the plain form.
namespace Vantyx {
namespace blend_detail {
namespace {

// ---- Scalar lanes -------------------------------------------------------------------------

inline int32_t Min(int32_t a, int32_t b) { return a < b ? a : b; }
inline int32_t Max(int32_t a, int32_t b) { return a > b ? a : b; }
inline int32_t Abs(int32_t a) { return a < 0 ? -a : a; }
inline bool Lt(int32_t a, int32_t b) { return a < b; }
inline bool Le(int32_t a, int32_t b) { return a <= b; }
inline bool Gt(int32_t a, int32_t b) { return a > b; }
inline bool Ge(int32_t a, int32_t b) { return a >= b; }
inline bool Eq(int32_t a, int32_t b) { return a == b; }
inline bool And(bool a, bool b) { return a && b; }
inline bool Or(bool a, bool b) { return a || b; }
inline int32_t Select(bool m, int32_t t, int32_t f) { return m ? t : f; }
inline int32_t Div(int32_t n, int32_t d) { return n / d; }
inline int32_t DivU255(int32_t n) { return n / 255; }
template <int32_t D, int32_t kLimit> inline int32_t DivConst(int32_t n) { return n / D; }
inline int32_t MakeDivisor(int32_t d) { return d; }
inline int32_t DivBy(int32_t n, int32_t d) { return n / d; }
inline int32_t Luma(int32_t r, int32_t g, int32_t b) {
  return (r * 19660 + g * 38665 + b * 7209) >> 16;
}
inline int32_t HueRatio(int32_t n, int32_t c) { return n * 256 / c; }

// n / d as (n x m) >> (16 + s) with m below 2^16, exact for every n in 0..limit; s = -1 when
// no such m exists. Evaluated at compile time, so the search is also the proof.
struct MulShift {
  int32_t m, s;
};
constexpr MulShift FindMulShift(int32_t d, int32_t limit) {
  for (int32_t s = 0; s < 16; ++s) {
    const int64_t m = ((int64_t{1} << (16 + s)) + d - 1) / d;
    if (m > 65535) break;
    bool exact = true;
    for (int32_t n = 0; n <= limit && exact; ++n) exact = ((n * m) >> (16 + s)) == n / d;
    if (exact) return MulShift{static_cast<int32_t>(m), s};
  }
  return MulShift{0, -1};
}

struct Sqrt255Table {
  uint8_t v[256];
  constexpr Sqrt255Table() : v() {
    for (int32_t b = 0; b < 256; ++b) {
      int32_t r = 0;
      while ((r + 1) * (r + 1) <= 255 * b) ++r;
      v[b] = static_cast<uint8_t>(r);
    }
  }
};
constexpr Sqrt255Table kSqrt255{};
inline int32_t Sqrt255(int32_t b) { return kSqrt255.v[b]; }

// ---- Shared pieces --------------------------------------------------------------------------

template <class V> VANTYX_BLEND_INLINE V Clamp255(V v) { return Min(Max(v, V(0)), V(255)); }

// Channels are ordered B, G, R as in memory.
template <class V> VANTYX_BLEND_INLINE V Chroma(const V* p) {
  return Max(p[0], Max(p[1], p[2])) - Min(p[0], Min(p[1], p[2]));
}

// Hue in 1/256 of a sextant (0..1535), 0 for a grey. Ties go to red, then green.
template <class V> VANTYX_BLEND_INLINE V Hue(const V* p, V c) {
  const V b = p[0], g = p[1], r = p[2];
  const V m = Max(b, Max(g, r));
  const auto is_r = Eq(m, r);
  const auto is_g = Eq(m, g);
  const V num = Select(is_r, g - b, Select(is_g, b - r, r - g));
  const V base = Select(is_r, V(1536), Select(is_g, V(512), V(1024)));
  V h = HueRatio(num, Max(c, V(1))) + base;
  h = Select(Ge(h, V(1536)), h - V(1536), h);
  return Select(Lt(c, V(1)), V(0), h);
}

// Chroma limited by luma so that very dark and very bright results stay near grey. With c and
// y in 0..255 the chosen quotient's numerator is at most 255 x 59 or 74 x 255.
template <class V> VANTYX_BLEND_INLINE V LimitChromaByLuma(V c, V y) {
  return Select(Le(y, V(59)), DivConst<60, 255 * 59>(c * y),
                Select(Ge(y, V(181)), DivConst<75, 74 * 255>((V(255) - y) * c), c));
}

// The colour of hue h, chroma c and luma y, written into out as B, G, R. For c = 0 this is
// (y, y, y): x and the sextant colour are 0 and the luma difference is y itself.
template <class V> VANTYX_BLEND_INLINE void ColourFromHcy(V h, V c, V y, V* out) {
  const V x = ((V(256) - Abs((h & V(511)) - V(256))) * c) >> 8;
  const V s = h >> 8;
  const auto s0 = Eq(s, V(0)), s1 = Eq(s, V(1)), s2 = Eq(s, V(2));
  const auto s3 = Eq(s, V(3)), s4 = Eq(s, V(4)), s5 = Eq(s, V(5));
  const V r = Select(Or(s0, s5), c, Select(Or(s1, s4), x, V(0)));
  const V g = Select(Or(s1, s2), c, Select(Or(s0, s3), x, V(0)));
  const V b = Select(Or(s3, s4), c, Select(Or(s2, s5), x, V(0)));
  const V d = y - Luma(r, g, b);
  out[0] = Clamp255(b + d);
  out[1] = Clamp255(g + d);
  out[2] = Clamp255(r + d);
}

// Colour burn and colour dodge of base b by a blend value x in 0..255.
template <class V> VANTYX_BLEND_INLINE V Burn(V b, V x) {
  const V v = Max(V(0), V(255) + Div((b - V(255)) * V(255), Max(x, V(1))));
  return Select(Eq(b, V(255)), V(255), Select(Eq(x, V(0)), V(0), v));
}
template <class V> VANTYX_BLEND_INLINE V Dodge(V b, V x) {
  const V v = Min(V(255), Div(b * V(255), Max(V(255) - x, V(1))));
  return Select(Eq(b, V(0)), V(0), Select(Eq(x, V(255)), V(255), v));
}

// ---- Modes ----------------------------------------------------------------------------------
// A separable mode gives F(b, l) per channel; a non-separable one fills all three at once.
// base[]/layer[] hold B, G, R, A.

// What a mode allows: kNarrow, that it fits 16-bit lanes (above); kKeepsBaseOverBlack, that
// F(b, 0) = b; kLayerOnly, that F = l.
struct Wide {
  static constexpr bool kNarrow = false, kKeepsBaseOverBlack = false, kLayerOnly = false;
};
struct Narrow {
  static constexpr bool kNarrow = true, kKeepsBaseOverBlack = false, kLayerOnly = false;
};
struct NarrowKeepsBase {
  static constexpr bool kNarrow = true, kKeepsBaseOverBlack = true, kLayerOnly = false;
};

template <class Fn> struct Separable {
  static constexpr bool kAlphaOnly = false;
  static constexpr bool kNarrow = Fn::kNarrow;
  static constexpr bool kLayerOnly = Fn::kLayerOnly;
  static constexpr bool kKeepsBaseOverBlack = Fn::kKeepsBaseOverBlack;
  template <class V> VANTYX_BLEND_INLINE static void Apply(const V* base, const V* layer, V* f) {
    for (int32_t c = 0; c < 3; ++c) f[c] = Fn::F(base[c], layer[c]);
  }
};

struct NormalF : Narrow {
  static constexpr bool kLayerOnly = true;
  template <class V> static V F(V, V l) { return l; }
};
struct DarkenF : Narrow {
  template <class V> static V F(V b, V l) { return Min(b, l); }
};
struct MultiplyF : Narrow {
  template <class V> static V F(V b, V l) { return DivU255(b * l); }
};
struct LinearBurnF : Narrow {
  template <class V> static V F(V b, V l) { return Max(b + l - V(255), V(0)); }
};
struct LinearBurnUnlimitedF : Wide {
  template <class V> static V F(V b, V l) { return b + l - V(255); }
};
struct LightenF : NarrowKeepsBase {
  template <class V> static V F(V b, V l) { return Max(b, l); }
};
struct ScreenF : NarrowKeepsBase {
  template <class V> static V F(V b, V l) { return V(255) - DivU255((V(255) - b) * (V(255) - l)); }
};
struct LinearDodgeF : NarrowKeepsBase {
  template <class V> static V F(V b, V l) { return Min(b + l, V(255)); }
};
struct AddF : Wide {
  template <class V> static V F(V b, V l) { return b + l; }
};
// Hard light with base and layer swapped.
struct OverlayF : Wide {
  template <class V> static V F(V b, V l) {
    return Select(Le(b, V(127)), Div(V(2) * b * l, V(255)),
                  V(255) - Div(V(2) * (V(255) - b) * (V(255) - l), V(255)));
  }
};
// The compositing-standard soft light: darken by b(1-b)(1-2l) below the middle, lighten
// towards D(b) above it, D(b) = ((16b - 12)b + 4)b for b <= 1/4, else sqrt(b).
struct SoftLightF : Wide {
  template <class V> static V F(V b, V l) {
    const V p = Min(b, V(63));  // keeps the unused polynomial's numerators small
    const V poly = Div((Div((V(16) * p - V(3060)) * p, V(255)) + V(1020)) * p, V(255));
    const V d = Select(Le(b, V(63)), poly, Sqrt255(b));
    return Select(Le(l, V(127)), b - Div((V(255) - V(2) * l) * DivU255(b * (V(255) - b)), V(255)),
                  b + Div((V(2) * l - V(255)) * (d - b), V(255)));
  }
};
struct HardLightF : Wide {
  template <class V> static V F(V b, V l) {
    return Select(Le(l, V(127)), Div(V(2) * b * l, V(255)),
                  V(255) - Div(V(2) * (V(255) - b) * (V(255) - l), V(255)));
  }
};
struct DifferenceF : NarrowKeepsBase {
  template <class V> static V F(V b, V l) { return Abs(b - l); }
};
struct ExclusionF : Wide {
  template <class V> static V F(V b, V l) { return b + l - Div(V(2) * b * l, V(255)); }
};
struct LinearLightF : Narrow {
  template <class V> static V F(V b, V l) { return Clamp255(b + V(2) * l - V(255)); }
};
struct VividLightF : Wide {
  template <class V> static V F(V b, V l) {
    return Select(Le(l, V(127)), Burn(b, V(2) * l), Dodge(b, V(2) * l - V(255)));
  }
};
struct ColourBurnF : Wide {
  template <class V> static V F(V b, V l) { return Burn(b, l); }
};
struct ColourDodgeF : Wide {
  template <class V> static V F(V b, V l) { return Dodge(b, l); }
};
struct PinLightF : Narrow {
  template <class V> static V F(V b, V l) {
    return Select(Le(l, V(127)), Min(b, V(2) * l), Max(b, V(2) * l - V(255)));
  }
};
struct HardMixF : Narrow {
  template <class V> static V F(V b, V l) { return Select(Ge(b + l, V(255)), V(255), V(0)); }
};
struct SubtractF : Wide {
  template <class V> static V F(V b, V l) { return b - l; }
};
struct NegationF : NarrowKeepsBase {
  template <class V> static V F(V b, V l) { return V(255) - Abs(V(255) - b - l); }
};
struct SubtractLimitedF : NarrowKeepsBase {
  template <class V> static V F(V b, V l) { return Max(b - l, V(0)); }
};
struct AverageF : Narrow {
  template <class V> static V F(V b, V l) { return (b + l) >> 1; }
};
struct DivideF : Wide {
  template <class V> static V F(V b, V l) { return Min(V(255), Div(b * V(255), Max(l, V(1)))); }
};
struct DivideReversedF : Wide {
  template <class V> static V F(V b, V l) { return Min(V(255), Div(l * V(255), Max(b, V(1)))); }
};
struct GrainExtractF : Narrow {
  template <class V> static V F(V b, V l) { return Clamp255(b - l + V(128)); }
};
struct GrainMergeF : Narrow {
  template <class V> static V F(V b, V l) { return Clamp255(b + l - V(128)); }
};

// Non-separable modes in the hue-chroma-luma model; their F is a clamped colour or a copied
// pixel, so they are narrow.
struct NonSeparable : Narrow {
  static constexpr bool kAlphaOnly = false;
};

// Layer hue and chroma on base luma; a nearly grey base lets little colour through.
struct ColourOp : NonSeparable {
  template <class V> VANTYX_BLEND_INLINE static void Apply(const V* base, const V* layer, V* f) {
    const V cb = Chroma(base);
    const V y = Luma(base[2], base[1], base[0]);
    const V cl = Chroma(layer);
    const V h = Hue(layer, cl);
    V c = Select(Lt(cb, V(5)), DivConst<5, 255 * 4>(cl * cb), cl);
    c = LimitChromaByLuma(c, y);
    ColourFromHcy(h, c, y, f);
  }
};
// Layer hue with base chroma and luma (a grey layer gives grey).
struct HueOp : NonSeparable {
  template <class V> VANTYX_BLEND_INLINE static void Apply(const V* base, const V* layer, V* f) {
    const V cb = Chroma(base);
    const V y = Luma(base[2], base[1], base[0]);
    const V cl = Chroma(layer);
    const V h = Hue(layer, cl);
    const V c = LimitChromaByLuma(Select(Lt(cl, V(1)), V(0), cb), y);
    ColourFromHcy(h, c, y, f);
  }
};
// Base hue and luma with layer chroma (a grey base stays grey).
struct SaturationOp : NonSeparable {
  template <class V> VANTYX_BLEND_INLINE static void Apply(const V* base, const V* layer, V* f) {
    const V cb = Chroma(base);
    const V y = Luma(base[2], base[1], base[0]);
    const V h = Hue(base, cb);
    const V c = LimitChromaByLuma(Select(Lt(cb, V(1)), V(0), Chroma(layer)), y);
    ColourFromHcy(h, c, y, f);
  }
};
// Base hue and chroma on layer luma.
struct LuminosityOp : NonSeparable {
  template <class V> VANTYX_BLEND_INLINE static void Apply(const V* base, const V* layer, V* f) {
    const V cb = Chroma(base);
    const V y = Luma(layer[2], layer[1], layer[0]);
    const V h = Hue(base, cb);
    ColourFromHcy(h, LimitChromaByLuma(cb, y), y, f);
  }
};
// The whole pixel of lower (higher) luma; ties keep the base.
struct DarkerColourOp : NonSeparable {
  template <class V> VANTYX_BLEND_INLINE static void Apply(const V* base, const V* layer, V* f) {
    const auto m = Lt(Luma(layer[2], layer[1], layer[0]), Luma(base[2], base[1], base[0]));
    for (int32_t c = 0; c < 3; ++c) f[c] = Select(m, layer[c], base[c]);
  }
};
struct LighterColourOp : NonSeparable {
  template <class V> VANTYX_BLEND_INLINE static void Apply(const V* base, const V* layer, V* f) {
    const auto m = Gt(Luma(layer[2], layer[1], layer[0]), Luma(base[2], base[1], base[0]));
    for (int32_t c = 0; c < 3; ++c) f[c] = Select(m, layer[c], base[c]);
  }
};

// Alpha only: the destination alpha becomes (255 - a) x ab / 255, colour bytes untouched.
struct AlphaOnlyOp : Narrow {
  static constexpr bool kAlphaOnly = true;
  template <class V> VANTYX_BLEND_INLINE static void Apply(const V*, const V*, V*) {}
};

// ---- Compositing ----------------------------------------------------------------------------

// One pixel per lane: base/layer B, G, R, A and a = (layer A x opacity) >> 8, into out B, G,
// R, A. Lanes with a = 0 produce values the caller must not store.
template <class Op, class V>
VANTYX_BLEND_INLINE void Composite(const V* base, const V* layer, V a, V* out) {
  const V ab = base[3];
  const V wb = DivU255((V(255) - a) * ab);
  if constexpr (Op::kAlphaOnly) {
    out[3] = wb;
    return;
  }
  out[3] = a + wb;
  const V wl = DivU255((V(255) - ab) * a);
  const V ws = DivU255(ab * a);
  const auto ao = MakeDivisor(Max(a + wb, V(1)));
  V f[3];
  Op::Apply(base, layer, f);
  for (int32_t c = 0; c < 3; ++c) {
    // ws + wl <= a, so for F within 0..255 the numerator is at most 255 (a + wb): the
    // quotient already lies within 0..255 and the numerator within 0..65025. Normal's F is
    // l itself, and ws l + wl l = (ws + wl) l saves a product.
    const V n = Op::kLayerOnly ? (ws + wl) * layer[c] + wb * base[c]
                               : ws * f[c] + wl * layer[c] + wb * base[c];
    const V q = DivBy(n, ao);
    out[c] = Op::kNarrow ? q : Clamp255(q);
  }
}

// Composite for lanes whose base alpha is 255, narrow modes only. Then wb = (255 - a) x 255
// / 255 = 255 - a, wl = 0, ws = a and a + wb = 255 exactly, so the general rule reduces to
// (a F + (255 - a) b) / 255 with a numerator within 0..65025.
template <class Op, class V>
VANTYX_BLEND_INLINE void CompositeOpaque(const V* base, const V* layer, V a, V* out) {
  static_assert(Op::kNarrow, "the numerator must stay within 0..65535");
  out[3] = V(255);
  if constexpr (Op::kAlphaOnly) {
    out[3] = V(255) - a;
    return;
  }
  V f[3];
  Op::Apply(base, layer, f);
  const V wb = V(255) - a;
  for (int32_t c = 0; c < 3; ++c) out[c] = DivU255(a * f[c] + wb * base[c]);
}

}  // namespace
}  // namespace blend_detail
}  // namespace Vantyx

// The 38 kernel entries in table order; each form expands it with its own kernel template.
// clang-format off
#define VANTYX_BLEND_OPS(K)                                                                     \
  /*  0 */ K(Separable<NormalF>),          /*  1 */ K(Separable<DarkenF>),                       \
  /*  2 */ K(Separable<MultiplyF>),        /*  3 */ K(Separable<LinearBurnF>),                   \
  /*  4 */ K(Separable<LinearBurnUnlimitedF>), /*  5 */ K(Separable<LightenF>),                 \
  /*  6 */ K(Separable<ScreenF>),          /*  7 */ K(Separable<LinearDodgeF>),                  \
  /*  8 */ K(Separable<AddF>),             /*  9 */ K(Separable<OverlayF>),                      \
  /* 10 */ K(Separable<SoftLightF>),       /* 11 */ K(Separable<HardLightF>),                    \
  /* 12 */ K(Separable<DifferenceF>),      /* 13 */ K(Separable<ExclusionF>),                    \
  /* 14 */ K(SaturationOp),                /* 15 */ K(LuminosityOp),                             \
  /* 16 */ K(HueOp),                       /* 17 */ K(AlphaOnlyOp),                              \
  /* 18 */ K(Separable<LinearLightF>),     /* 19 */ K(Separable<VividLightF>),                   \
  /* 20 */ K(Separable<ColourBurnF>),      /* 21 */ K(Separable<ColourDodgeF>),                  \
  /* 22 */ K(Separable<PinLightF>),        /* 23 */ K(Separable<HardMixF>),                      \
  /* 24 */ K(Separable<SubtractF>),        /* 25 */ K(DarkerColourOp),                           \
  /* 26 */ K(LighterColourOp),             /* 27 */ K(Separable<NegationF>),                     \
  /* 28 */ K(ColourOp),                    /* 29 */ K(Separable<LinearDodgeF>),                  \
  /* 30 */ K(Separable<AddF>),             /* 31 */ K(Separable<SubtractLimitedF>),              \
  /* 32 */ K(Separable<AverageF>),         /* 33 */ K(Separable<DivideF>),                       \
  /* 34 */ K(Separable<DivideReversedF>),  /* 35 */ K(Separable<GrainExtractF>),                 \
  /* 36 */ K(Separable<GrainMergeF>),      /* 37 */ K(Separable<NormalF>)
// clang-format on
