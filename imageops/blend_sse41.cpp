// The fast blend kernels: the arithmetic of blend_internal.h on several pixels at a time, one
// channel per register. The narrow modes (blend_internal.h) take eight pixels in 16-bit lanes;
// the others four pixels in 32-bit lanes.
//
// Divisions in 32-bit lanes: SSE has no integer division, so Div(n, d) converts both to float,
// divides and truncates. That is exact for every integer |n| < 2^23 and 1 <= d < 2^24: both
// convert exactly; if d divides n the quotient is an integer below 2^24 and the division
// returns it exactly; otherwise n/d lies at least 1/d from every integer while the rounding
// error is below one ulp, at most |n/d| x 2^-23 < 1/d, so truncation still lands on
// trunc(n/d). This holds in every rounding mode (a host may change MXCSR), and no operand is
// ever subnormal. The kernels' numerators stay within -65280..130050 for divisors 1..255, plus
// -129276..0 over 255 in soft light's polynomial. Divisions by 255 of numerators known to lie
// in 0..65535 use an exact multiply and shift instead (DivU255), as do the constant divisors
// of the hue modes (DivConst). Sqrt255 uses sqrtps, correctly rounded, whose truncation is
// floor(sqrt(255 b)) for all 256 inputs.
//
// Divisions in 16-bit lanes (numerator n in 0..65535, divisor d in 1..255; the narrow
// composite and the hue ratio): with r = min(65536 / d, 65535) the high half of n x r is
// q0 = floor(n r / 65536), which is floor(n/d) or one less, because 65536/d - r is at most 1
// and n below 65536; one compare of the remainder n - q0 d against d corrects it. r comes from
// one float division per pixel (exact by the argument above), shared by the three channels.
#include <smmintrin.h>

#include <cstring>

#include "imageops/blend.h"
#include "imageops/blend_internal.h"

namespace Vantyx {
namespace blend_detail {
namespace {

// A mask of whole lanes (all ones or all zeros).
struct M4 {
  __m128i v;
};

struct V4 {
  __m128i v;
  V4() = default;
  explicit V4(int32_t c) : v(_mm_set1_epi32(c)) {}
  explicit V4(__m128i x) : v(x) {}
};

inline V4 operator+(V4 a, V4 b) { return V4(_mm_add_epi32(a.v, b.v)); }
inline V4 operator-(V4 a, V4 b) { return V4(_mm_sub_epi32(a.v, b.v)); }
inline V4 operator*(V4 a, V4 b) { return V4(_mm_mullo_epi32(a.v, b.v)); }
inline V4 operator&(V4 a, V4 b) { return V4(_mm_and_si128(a.v, b.v)); }
inline V4 operator>>(V4 a, int s) { return V4(_mm_srai_epi32(a.v, s)); }
inline V4 Min(V4 a, V4 b) { return V4(_mm_min_epi32(a.v, b.v)); }
inline V4 Max(V4 a, V4 b) { return V4(_mm_max_epi32(a.v, b.v)); }
inline V4 Abs(V4 a) { return V4(_mm_abs_epi32(a.v)); }
inline M4 Lt(V4 a, V4 b) { return M4{_mm_cmplt_epi32(a.v, b.v)}; }
inline M4 Gt(V4 a, V4 b) { return M4{_mm_cmpgt_epi32(a.v, b.v)}; }
inline M4 Le(V4 a, V4 b) { return M4{_mm_cmpeq_epi32(_mm_min_epi32(a.v, b.v), a.v)}; }
inline M4 Ge(V4 a, V4 b) { return M4{_mm_cmpeq_epi32(_mm_max_epi32(a.v, b.v), a.v)}; }
inline M4 Eq(V4 a, V4 b) { return M4{_mm_cmpeq_epi32(a.v, b.v)}; }
inline M4 And(M4 a, M4 b) { return M4{_mm_and_si128(a.v, b.v)}; }
inline M4 Or(M4 a, M4 b) { return M4{_mm_or_si128(a.v, b.v)}; }
inline V4 Select(M4 m, V4 t, V4 f) { return V4(_mm_blendv_epi8(f.v, t.v, m.v)); }
inline V4 Div(V4 n, V4 d) {
  return V4(_mm_cvttps_epi32(_mm_div_ps(_mm_cvtepi32_ps(n.v), _mm_cvtepi32_ps(d.v))));
}
// (n x 0x8081) >> 23 equals n / 255 for 0 <= n <= 66298; with n below 2^16 the 16-bit high
// product of each lane's low half is (n x 0x8081) >> 16 and its high half stays 0.
inline V4 DivU255(V4 n) {
  return V4(_mm_srli_epi32(_mm_mulhi_epu16(n.v, _mm_set1_epi32(0x8081)), 7));
}
inline V4 Sqrt255(V4 b) {
  return V4(
      _mm_cvttps_epi32(_mm_sqrt_ps(_mm_cvtepi32_ps(_mm_mullo_epi32(b.v, _mm_set1_epi32(255))))));
}
// The composite's divisor is converted once for the three channels.
inline __m128 MakeDivisor(V4 d) { return _mm_cvtepi32_ps(d.v); }
inline V4 DivBy(V4 n, __m128 d) {
  return V4(_mm_cvttps_epi32(_mm_div_ps(_mm_cvtepi32_ps(n.v), d)));
}

// ---- Eight pixels in 16-bit lanes (narrow modes only) ----------------------------------------

// A mask of whole 16-bit lanes.
struct M8 {
  __m128i v;
};

// Lanes wrap at 16 bits; comparisons, Min, Max and Abs treat them as signed, >> as unsigned.
struct V8 {
  __m128i v;
  V8() = default;
  explicit V8(int32_t c) : v(_mm_set1_epi16(static_cast<int16_t>(c))) {}
  explicit V8(__m128i x) : v(x) {}
};

inline V8 operator+(V8 a, V8 b) { return V8(_mm_add_epi16(a.v, b.v)); }
inline V8 operator-(V8 a, V8 b) { return V8(_mm_sub_epi16(a.v, b.v)); }
inline V8 operator*(V8 a, V8 b) { return V8(_mm_mullo_epi16(a.v, b.v)); }
inline V8 operator&(V8 a, V8 b) { return V8(_mm_and_si128(a.v, b.v)); }
inline V8 operator>>(V8 a, int s) { return V8(_mm_srli_epi16(a.v, s)); }
inline V8 Min(V8 a, V8 b) { return V8(_mm_min_epi16(a.v, b.v)); }
inline V8 Max(V8 a, V8 b) { return V8(_mm_max_epi16(a.v, b.v)); }
inline V8 Abs(V8 a) { return V8(_mm_abs_epi16(a.v)); }
inline M8 Lt(V8 a, V8 b) { return M8{_mm_cmplt_epi16(a.v, b.v)}; }
inline M8 Gt(V8 a, V8 b) { return M8{_mm_cmpgt_epi16(a.v, b.v)}; }
inline M8 Le(V8 a, V8 b) { return M8{_mm_cmpeq_epi16(_mm_min_epi16(a.v, b.v), a.v)}; }
inline M8 Ge(V8 a, V8 b) { return M8{_mm_cmpeq_epi16(_mm_max_epi16(a.v, b.v), a.v)}; }
inline M8 Eq(V8 a, V8 b) { return M8{_mm_cmpeq_epi16(a.v, b.v)}; }
inline M8 And(M8 a, M8 b) { return M8{_mm_and_si128(a.v, b.v)}; }
inline M8 Or(M8 a, M8 b) { return M8{_mm_or_si128(a.v, b.v)}; }
inline V8 Select(M8 m, V8 t, V8 f) { return V8(_mm_blendv_epi8(f.v, t.v, m.v)); }
// (n x 0x8081) >> 23 as above, n in 0..65535 read as unsigned.
inline V8 DivU255(V8 n) {
  return V8(_mm_srli_epi16(_mm_mulhi_epu16(n.v, _mm_set1_epi16(-32639)), 7));
}

struct Divisor8 {
  __m128i d, d_minus_1, r;
};
// d in 1..255; r = min(65536 / d, 65535), the pack saturating d = 1.
inline Divisor8 MakeDivisor(V8 d) {
  const __m128i zero = _mm_setzero_si128();
  const __m128 k = _mm_set1_ps(65536.0f);
  const __m128 lo = _mm_div_ps(k, _mm_cvtepi32_ps(_mm_unpacklo_epi16(d.v, zero)));
  const __m128 hi = _mm_div_ps(k, _mm_cvtepi32_ps(_mm_unpackhi_epi16(d.v, zero)));
  const __m128i r = _mm_packus_epi32(_mm_cvttps_epi32(lo), _mm_cvttps_epi32(hi));
  return Divisor8{d.v, _mm_sub_epi16(d.v, _mm_set1_epi16(1)), r};
}
// n in 0..65535 read as unsigned; the remainder n - q0 d lies within 0..2d - 1.
inline V8 DivBy(V8 n, const Divisor8& d) {
  const __m128i q0 = _mm_mulhi_epu16(n.v, d.r);
  const __m128i rem = _mm_sub_epi16(n.v, _mm_mullo_epi16(q0, d.d));
  return V8(_mm_sub_epi16(q0, _mm_cmpgt_epi16(rem, d.d_minus_1)));
}
// n read as unsigned, as in DivU255; lanes beyond the limit give unused values.
template <int32_t D, int32_t kLimit> inline V8 DivConst(V8 n) {
  constexpr MulShift k = FindMulShift(D, kLimit);
  static_assert(k.s >= 0, "no 16-bit multiplier is exact over this range");
  return V8(_mm_srli_epi16(_mm_mulhi_epu16(n.v, _mm_set1_epi16(static_cast<int16_t>(k.m))), k.s));
}
// |n| x 256 lies within 0..65280, so the quotient of magnitudes is DivBy's; the sign follows.
inline V8 HueRatio(V8 n, V8 c) {
  const V8 m = DivBy(V8(_mm_slli_epi16(_mm_abs_epi16(n.v), 8)), MakeDivisor(c));
  return V8(_mm_sign_epi16(m.v, n.v));
}
// The weights as signed 16-bit multipliers of pmaddwd: 38665 g = 32767 g + 5898 g, taken in
// pairs (r, g) and (b, g); the sums reach 255 x 65534, well inside 32 bits.
inline V8 Luma(V8 r, V8 g, V8 b) {
  const __m128i w_rg = _mm_set1_epi32((32767 << 16) | 19660);
  const __m128i w_bg = _mm_set1_epi32((5898 << 16) | 7209);
  const __m128i lo = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(r.v, g.v), w_rg),
                                   _mm_madd_epi16(_mm_unpacklo_epi16(b.v, g.v), w_bg));
  const __m128i hi = _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(r.v, g.v), w_rg),
                                   _mm_madd_epi16(_mm_unpackhi_epi16(b.v, g.v), w_bg));
  return V8(_mm_packs_epi32(_mm_srli_epi32(lo, 16), _mm_srli_epi32(hi, 16)));
}

inline void Unpack(__m128i p, V4* c) {
  const __m128i byte = _mm_set1_epi32(0xFF);
  c[0] = V4(_mm_and_si128(p, byte));
  c[1] = V4(_mm_and_si128(_mm_srli_epi32(p, 8), byte));
  c[2] = V4(_mm_and_si128(_mm_srli_epi32(p, 16), byte));
  c[3] = V4(_mm_srli_epi32(p, 24));
}

// Four pixels; lanes whose a is 0 keep their destination bytes.
template <class Op>
VANTYX_BLEND_INLINE void Blend4(const uint8_t* pb, const uint8_t* pl, uint8_t* pd, V4 opacity) {
  const __m128i lv = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pl));
  V4 l[4];
  Unpack(lv, l);
  const V4 a = (l[3] * opacity) >> 8;
  const __m128i write = _mm_cmpgt_epi32(a.v, _mm_setzero_si128());
  if (_mm_testz_si128(write, write)) return;
  V4 b[4];
  Unpack(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pb)), b);
  V4 out[4];
  Composite<Op>(b, l, a, out);
  const __m128i old = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pd));
  __m128i packed;
  if constexpr (Op::kAlphaOnly) {
    packed =
        _mm_or_si128(_mm_and_si128(old, _mm_set1_epi32(0x00FFFFFF)), _mm_slli_epi32(out[3].v, 24));
  } else {
    packed = _mm_or_si128(_mm_or_si128(out[0].v, _mm_slli_epi32(out[1].v, 8)),
                          _mm_or_si128(_mm_slli_epi32(out[2].v, 16), _mm_slli_epi32(out[3].v, 24)));
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(pd), _mm_blendv_epi8(old, packed, write));
}

// Eight BGRA pixels into B, G, R, A of 16 bits each.
inline void Unpack8(const uint8_t* p, V8* c) {
  const __m128i by_channel = _mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  const __m128i* v = reinterpret_cast<const __m128i*>(p);
  const __m128i p0 = _mm_shuffle_epi8(_mm_loadu_si128(v), by_channel);
  const __m128i p1 = _mm_shuffle_epi8(_mm_loadu_si128(v + 1), by_channel);
  const __m128i bg = _mm_unpacklo_epi32(p0, p1);  // B0..B7 G0..G7
  const __m128i ra = _mm_unpackhi_epi32(p0, p1);  // R0..R7 A0..A7
  const __m128i zero = _mm_setzero_si128();
  c[0] = V8(_mm_cvtepu8_epi16(bg));
  c[1] = V8(_mm_unpackhi_epi8(bg, zero));
  c[2] = V8(_mm_cvtepu8_epi16(ra));
  c[3] = V8(_mm_unpackhi_epi8(ra, zero));
}

// Eight pixels; lanes whose a is 0 keep their destination bytes. A group whose base alpha is
// 255 throughout takes the reduced composite, which gives the same bytes.
template <class Op>
VANTYX_BLEND_INLINE void Blend8(const uint8_t* pb, const uint8_t* pl, uint8_t* pd,
                                __m128i opacity_hi) {
  V8 l[4];
  Unpack8(pl, l);
  const V8 a(_mm_mulhi_epu16(l[3].v, opacity_hi));  // (A x opacity) >> 8
  const __m128i write = _mm_cmpgt_epi16(a.v, _mm_setzero_si128());
  const int32_t written = _mm_movemask_epi8(write);
  if (written == 0) return;
  V8 b[4];
  Unpack8(pb, b);
  V8 out[4];
  __m128i lo, hi;
  __m128i keep_lo = _mm_setzero_si128(), keep_hi = _mm_setzero_si128();
  const bool opaque = _mm_movemask_epi8(_mm_cmpeq_epi16(b[3].v, _mm_set1_epi16(255))) == 0xFFFF;
  if (Op::kKeepsBaseOverBlack && opaque &&
      _mm_testz_si128(_mm_or_si128(_mm_or_si128(l[0].v, l[1].v), l[2].v), _mm_set1_epi16(-1))) {
    // F(b, 0) = b: (a b + (255 - a) b) / 255 = b with alpha 255, the base pixel itself.
    lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pb));
    hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pb + 16));
  } else if constexpr (Op::kAlphaOnly) {
    if (opaque)
      CompositeOpaque<Op>(b, l, a, out);
    else
      Composite<Op>(b, l, a, out);
    const __m128i alpha = _mm_packus_epi16(out[3].v, out[3].v);
    lo = _mm_slli_epi32(_mm_cvtepu8_epi32(alpha), 24);
    hi = _mm_slli_epi32(_mm_cvtepu8_epi32(_mm_srli_si128(alpha, 4)), 24);
    keep_lo = keep_hi = _mm_set1_epi32(0x00FFFFFF);
  } else {
    if (opaque)
      CompositeOpaque<Op>(b, l, a, out);
    else
      Composite<Op>(b, l, a, out);
    const __m128i bg = _mm_packus_epi16(out[0].v, out[1].v);  // B0..B7 G0..G7
    const __m128i ra = _mm_packus_epi16(out[2].v, out[3].v);  // R0..R7 A0..A7
    const __m128i br = _mm_unpacklo_epi8(bg, ra);
    const __m128i ga = _mm_unpackhi_epi8(bg, ra);
    lo = _mm_unpacklo_epi8(br, ga);
    hi = _mm_unpackhi_epi8(br, ga);
  }
  __m128i* d = reinterpret_cast<__m128i*>(pd);
  if (written == 0xFFFF && !Op::kAlphaOnly) {
    _mm_storeu_si128(d, lo);
    _mm_storeu_si128(d + 1, hi);
    return;
  }
  // Per pixel, the bytes to keep: all four where a is 0, else the colour for alpha only.
  const __m128i skip = _mm_xor_si128(write, _mm_set1_epi32(-1));
  keep_lo = _mm_or_si128(keep_lo, _mm_cvtepi16_epi32(skip));
  keep_hi = _mm_or_si128(keep_hi, _mm_unpackhi_epi16(skip, skip));
  _mm_storeu_si128(d, _mm_blendv_epi8(lo, _mm_loadu_si128(d), keep_lo));
  _mm_storeu_si128(d + 1, _mm_blendv_epi8(hi, _mm_loadu_si128(d + 1), keep_hi));
}

// One row of n pixels, eight at a time. The last 1..7 go through the same arithmetic in a
// copy, so nothing past the row is read or written; the zero layer alpha of the spare lanes
// keeps them unwritten.
template <class Op>
void BlendRow8(const uint8_t* pb, const uint8_t* pl, uint8_t* pd, int32_t n, __m128i opacity_hi) {
  int32_t x = 0;
  for (; x + 8 <= n; x += 8) Blend8<Op>(pb + 4 * x, pl + 4 * x, pd + 4 * x, opacity_hi);
  if (x < n) {
    const size_t bytes = static_cast<size_t>(n - x) * 4;
    uint8_t tb[32] = {}, tl[32] = {}, td[32] = {};
    std::memcpy(tb, pb + 4 * x, bytes);
    std::memcpy(tl, pl + 4 * x, bytes);
    std::memcpy(td, pd + 4 * x, bytes);
    Blend8<Op>(tb, tl, td, opacity_hi);
    std::memcpy(pd + 4 * x, td, bytes);
  }
}

template <class Op>
void BlendRow4(const uint8_t* pb, const uint8_t* pl, uint8_t* pd, int32_t n, V4 op) {
  int32_t x = 0;
  for (; x + 4 <= n; x += 4) Blend4<Op>(pb + 4 * x, pl + 4 * x, pd + 4 * x, op);
  if (x < n) {
    // As in BlendRow8.
    const size_t bytes = static_cast<size_t>(n - x) * 4;
    uint8_t tb[16] = {}, tl[16] = {}, td[16] = {};
    std::memcpy(tb, pb + 4 * x, bytes);
    std::memcpy(tl, pl + 4 * x, bytes);
    std::memcpy(td, pd + 4 * x, bytes);
    Blend4<Op>(tb, tl, td, op);
    std::memcpy(pd + 4 * x, td, bytes);
  }
}

template <class Op>
int32_t BlendSse41(const ImageView& base, const ImageView& layer, const ImageView& dst,
                   uint32_t opacity, const ProcessRect& strip) {
  Area area;
  const int32_t rc = PrepareBlend(base, layer, dst, strip, &area);
  if (rc != 0 || area.Empty()) return rc;
  const int32_t op = ClampOpacity(opacity);
  const int32_t n = area.right - area.left;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    const uint8_t* pb = base.At(area.left, y);
    const uint8_t* pl = layer.At(area.left, y);
    uint8_t* pd = dst.At(area.left, y);
    if constexpr (Op::kNarrow)
      BlendRow8<Op>(pb, pl, pd, n, _mm_set1_epi16(static_cast<int16_t>(op << 8)));
    else
      BlendRow4<Op>(pb, pl, pd, n, V4(op));
  }
  return 0;
}

}  // namespace
}  // namespace blend_detail

using namespace blend_detail;  // NOLINT(build/namespaces)
#define VANTYX_BLEND_SSE41(Op) &BlendSse41<Op>
const BlendKernel kBlendKernelsSse41[kBlendKernelCount] = {VANTYX_BLEND_OPS(VANTYX_BLEND_SSE41)};
#undef VANTYX_BLEND_SSE41

}  // namespace Vantyx
