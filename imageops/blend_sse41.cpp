// The fast blend kernels: the arithmetic of blend_internal.h on four pixels at a time, one
// pixel per 32-bit lane, each channel in its own register.
//
// Divisions: SSE has no integer division, so Div(n, d) converts both to float, divides and
// truncates. That is exact for every integer |n| < 2^23 and 1 <= d < 2^24: both convert
// exactly; if d divides n the quotient is an integer below 2^24 and the division returns it
// exactly; otherwise n/d lies at least 1/d from every integer while the rounding error is
// below one ulp, at most |n/d| x 2^-23 < 1/d, so truncation still lands on trunc(n/d). This
// holds in every rounding mode (a host may change MXCSR), and no operand is ever subnormal.
// The kernels' numerators stay within -65280..130050 for divisors 1..255, plus -129276..0 over
// 255 in soft light's polynomial; test_blend checks these ranges exhaustively. Divisions by 255
// of numerators known to lie in 0..65535 use an exact multiply and shift instead (DivU255).
// Sqrt255 uses sqrtps, correctly rounded, whose truncation is floor(sqrt(255 b)) for all 256
// inputs (also checked).
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

template <class Op>
int32_t BlendSse41(const ImageView& base, const ImageView& layer, const ImageView& dst,
                   uint32_t opacity, const ProcessRect& strip) {
  Area area;
  const int32_t rc = PrepareBlend(base, layer, dst, strip, &area);
  if (rc != 0 || area.Empty()) return rc;
  const V4 op(ClampOpacity(opacity));
  const int32_t n = area.right - area.left;
  for (int32_t y = area.top; y < area.bottom; ++y) {
    const uint8_t* pb = base.At(area.left, y);
    const uint8_t* pl = layer.At(area.left, y);
    uint8_t* pd = dst.At(area.left, y);
    int32_t x = 0;
    for (; x + 4 <= n; x += 4) Blend4<Op>(pb + 4 * x, pl + 4 * x, pd + 4 * x, op);
    if (x < n) {
      // The last 1..3 pixels go through the same arithmetic in a copy, so nothing past the
      // row is read or written; the zero layer alpha of the spare lanes keeps them unwritten.
      const size_t bytes = static_cast<size_t>(n - x) * 4;
      uint8_t tb[16] = {}, tl[16] = {}, td[16] = {};
      std::memcpy(tb, pb + 4 * x, bytes);
      std::memcpy(tl, pl + 4 * x, bytes);
      std::memcpy(td, pd + 4 * x, bytes);
      Blend4<Op>(tb, tl, td, op);
      std::memcpy(pd + 4 * x, td, bytes);
    }
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
