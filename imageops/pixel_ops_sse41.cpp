// SSE4.1 forms of the byte-table pass and the weighting sum: four pixels per step, tails with
// the plain forms' scalar arithmetic, nothing read or written outside the strip's pixels.
#include <smmintrin.h>

#include <cstdint>
#include <cstdlib>

#include "imageops/pixel_ops.h"
#include "vantyx.h"

namespace Vantyx {

namespace {

constexpr int32_t kNullBuffer = static_cast<int32_t>(0x80004003u);
constexpr int32_t kBadArgument = static_cast<int32_t>(0x80070057u);

inline __m128i ColourMask() {
  return _mm_setr_epi8(-1, -1, -1, 0, -1, -1, -1, 0, -1, -1, -1, 0, -1, -1, -1, 0);
}

inline uint8_t WeightedByte(uint8_t o, uint8_t d, int32_t w1, int32_t w2) {
  const int64_t sum = int64_t{o} * w1 + int64_t{d} * w2;
  return sum >= 0xFF0000 ? 255 : sum < 0 ? 0 : static_cast<uint8_t>(sum / 65536);
}

// One weight as w = 65536 k + ws, ws the weight's low 16 bits as a signed value: then
// o w1 + d w2 = (o ws1 + d ws2) + 65536 (o k1 + d k2), and the floor of the sum over 65536 is
// floor((o ws1 + d ws2) / 65536) + o k1 + d k2 exactly. pmaddwd forms o ws1 + d ws2 (at most
// 2 x 255 x 32768 in size) for pairs (o, d) in 16-bit lanes; the second term stays within
// 16 bits while |k1| + |k2| <= 127. packus then gives 0 below 0 and 255 from 255 up, which is
// the plain form's 0 for a negative sum and 255 from 0xFF0000.
struct SplitWeight {
  int32_t low;  // ws
  int32_t k;
};

SplitWeight Split(int32_t w) {
  const int32_t low = static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(w) & 0xFFFFu));
  return SplitWeight{low, static_cast<int32_t>((int64_t{w} - low) / 65536)};
}

// kK1, kK2: 0 or 1 for those multiples, 2 for any other (a 16-bit multiply).
template <int kK1, int kK2>
inline __m128i Weighted16(__m128i o, __m128i d, __m128i pair_weights, __m128i k1, __m128i k2) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i od_lo = _mm_unpacklo_epi8(o, d), od_hi = _mm_unpackhi_epi8(o, d);
  const __m128i m0 = _mm_madd_epi16(_mm_unpacklo_epi8(od_lo, zero), pair_weights);
  const __m128i m1 = _mm_madd_epi16(_mm_unpackhi_epi8(od_lo, zero), pair_weights);
  const __m128i m2 = _mm_madd_epi16(_mm_unpacklo_epi8(od_hi, zero), pair_weights);
  const __m128i m3 = _mm_madd_epi16(_mm_unpackhi_epi8(od_hi, zero), pair_weights);
  __m128i lo = _mm_packs_epi32(_mm_srai_epi32(m0, 16), _mm_srai_epi32(m1, 16));
  __m128i hi = _mm_packs_epi32(_mm_srai_epi32(m2, 16), _mm_srai_epi32(m3, 16));
  if (kK1 != 0) {
    __m128i ol = _mm_unpacklo_epi8(o, zero), oh = _mm_unpackhi_epi8(o, zero);
    if (kK1 == 2) ol = _mm_mullo_epi16(ol, k1), oh = _mm_mullo_epi16(oh, k1);
    lo = _mm_add_epi16(lo, ol);
    hi = _mm_add_epi16(hi, oh);
  }
  if (kK2 != 0) {
    __m128i dl = _mm_unpacklo_epi8(d, zero), dh = _mm_unpackhi_epi8(d, zero);
    if (kK2 == 2) dl = _mm_mullo_epi16(dl, k2), dh = _mm_mullo_epi16(dh, k2);
    lo = _mm_add_epi16(lo, dl);
    hi = _mm_add_epi16(hi, dh);
  }
  return _mm_packus_epi16(lo, hi);
}

template <int kK1, int kK2>
void WeightRows(const ImageView& other, const ImageView& dst, const Area& a, SplitWeight s1,
                SplitWeight s2, int32_t w1, int32_t w2) {
  const __m128i pair_weights =
      _mm_set1_epi32(static_cast<int32_t>((static_cast<uint32_t>(s2.low) << 16) |
                                          (static_cast<uint32_t>(s1.low) & 0xFFFFu)));
  const __m128i k1 = _mm_set1_epi16(static_cast<int16_t>(s1.k));
  const __m128i k2 = _mm_set1_epi16(static_cast<int16_t>(s2.k));
  const __m128i colour = ColourMask();
  const int32_t width = a.right - a.left;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* o = other.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    int32_t x = 0;
    for (; x + 4 <= width; x += 4, o += 16, d += 16) {
      const __m128i ov = _mm_loadu_si128(reinterpret_cast<const __m128i*>(o));
      const __m128i dv = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
      const __m128i bytes = Weighted16<kK1, kK2>(ov, dv, pair_weights, k1, k2);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_blendv_epi8(dv, bytes, colour));
    }
    for (; x < width; ++x, o += 4, d += 4) {
      d[0] = WeightedByte(o[0], d[0], w1, w2);
      d[1] = WeightedByte(o[1], d[1], w1, w2);
      d[2] = WeightedByte(o[2], d[2], w1, w2);
    }
  }
}

template <int kK1>
void WeightRowsK2(const ImageView& other, const ImageView& dst, const Area& a, SplitWeight s1,
                  SplitWeight s2, int32_t w1, int32_t w2) {
  if (s2.k == 0)
    WeightRows<kK1, 0>(other, dst, a, s1, s2, w1, w2);
  else if (s2.k == 1)
    WeightRows<kK1, 1>(other, dst, a, s1, s2, w1, w2);
  else
    WeightRows<kK1, 2>(other, dst, a, s1, s2, w1, w2);
}

}  // namespace

int32_t weighting_sum_sse41(const ImageView& other, const ImageView& dst, int32_t w1, int32_t w2,
                            const ProcessRect& strip) {
  if (other.data == nullptr || dst.data == nullptr) return kNullBuffer;
  if (other.format != PIXEL_BGRA32 || dst.format != PIXEL_BGRA32) return kBadArgument;
  const Area a = Clip(Clip(AreaOf(strip), other), dst);
  if (a.Empty()) return 0;

  const SplitWeight s1 = Split(w1), s2 = Split(w2);
  if (std::abs(s1.k) + std::abs(s2.k) <= 127) {
    if (s1.k == 0)
      WeightRowsK2<0>(other, dst, a, s1, s2, w1, w2);
    else if (s1.k == 1)
      WeightRowsK2<1>(other, dst, a, s1, s2, w1, w2);
    else
      WeightRowsK2<2>(other, dst, a, s1, s2, w1, w2);
    return 0;
  }

  // Weights this large (never an effect's) take the 64-bit arithmetic of the plain form, one
  // byte at a time.
  const int32_t width = a.right - a.left;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* o = other.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    for (int32_t x = 0; x < width; ++x, o += 4, d += 4) {
      d[0] = WeightedByte(o[0], d[0], w1, w2);
      d[1] = WeightedByte(o[1], d[1], w1, w2);
      d[2] = WeightedByte(o[2], d[2], w1, w2);
    }
  }
  return 0;
}

}  // namespace Vantyx
