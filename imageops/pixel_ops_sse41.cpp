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

// The lowest pixel of o and d: sum >> 16 per channel, in 32 bits. For sums >= 0 the shift
// equals the plain form's division by 65536.
inline __m128i WeightedPixel(__m128i o, __m128i d, __m128i w1, __m128i w2) {
  const __m128i sum = _mm_add_epi32(_mm_mullo_epi32(_mm_cvtepu8_epi32(o), w1),
                                    _mm_mullo_epi32(_mm_cvtepu8_epi32(d), w2));
  return _mm_srai_epi32(sum, 16);
}

}  // namespace

int32_t weighting_sum_sse41(const ImageView& other, const ImageView& dst, int32_t w1, int32_t w2,
                            const ProcessRect& strip) {
  if (other.data == nullptr || dst.data == nullptr) return kNullBuffer;
  if (other.format != PIXEL_BGRA32 || dst.format != PIXEL_BGRA32) return kBadArgument;
  const Area a = Clip(Clip(AreaOf(strip), other), dst);
  if (a.Empty()) return 0;

  // The vector path works in 32 bits, exact while 255 x (|w1| + |w2|) fits an int32 (the
  // effects' weights are at most about 65536). Larger weights take the 64-bit scalar loop;
  // SSE4.1 has no 64-bit compare or arithmetic shift to do that in vectors.
  const int64_t reach = 255 * (std::llabs(w1) + std::llabs(w2));
  const bool vector_ok = reach <= INT32_MAX;

  const __m128i vw1 = _mm_set1_epi32(w1);
  const __m128i vw2 = _mm_set1_epi32(w2);
  const __m128i colour = ColourMask();
  const int32_t width = a.right - a.left;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* o = other.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    int32_t x = 0;
    if (vector_ok) {
      for (; x + 4 <= width; x += 4, o += 16, d += 16) {
        const __m128i ov = _mm_loadu_si128(reinterpret_cast<const __m128i*>(o));
        const __m128i dv = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
        // Byte shifts need immediate counts: the four pixels are written out.
        const __m128i p0 = WeightedPixel(ov, dv, vw1, vw2);
        const __m128i p1 = WeightedPixel(_mm_srli_si128(ov, 4), _mm_srli_si128(dv, 4), vw1, vw2);
        const __m128i p2 = WeightedPixel(_mm_srli_si128(ov, 8), _mm_srli_si128(dv, 8), vw1, vw2);
        const __m128i p3 = WeightedPixel(_mm_srli_si128(ov, 12), _mm_srli_si128(dv, 12), vw1, vw2);
        // The two saturating packs give 0 for negative sums and 255 from 0xFF0000 up.
        const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(p0, p1), _mm_packs_epi32(p2, p3));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_blendv_epi8(dv, bytes, colour));
      }
    }
    for (; x < width; ++x, o += 4, d += 4) {
      d[0] = WeightedByte(o[0], d[0], w1, w2);
      d[1] = WeightedByte(o[1], d[1], w1, w2);
      d[2] = WeightedByte(o[2], d[2], w1, w2);
    }
  }
  return 0;
}

}  // namespace Vantyx
