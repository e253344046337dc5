// SSE4.1 forms of the two conversions: four pixels per step, the row's tail with the same
// scalar arithmetic as the plain forms. Loads and stores stay inside the strip's pixels.
#include <smmintrin.h>

#include <cstring>

#include "imageops/copy_convert.h"
#include "vantyx.h"

namespace Vantyx {

namespace {

constexpr int32_t kNullBuffer = static_cast<int32_t>(0x80004003u);
constexpr int32_t kBadArgument = static_cast<int32_t>(0x80070057u);

uint8_t FloatToByte(float v) {
  return !(v >= 1.0f) ? 0 : v >= 256.0f ? 255 : static_cast<uint8_t>(static_cast<int32_t>(v));
}

}  // namespace

int32_t convert_u8_to_f32_sse41(const ImageView& src, const ImageView& dst, float scale,
                                float offset, const ProcessRect& strip) {
  if (src.data == nullptr || dst.data == nullptr) return kNullBuffer;
  if (src.format != PIXEL_BGRA32 || dst.format != PIXEL_FLOAT96) return kBadArgument;
  const Area a = Clip(Clip(AreaOf(strip), src), dst);
  if (a.Empty()) return 0;

  // 16 BGRA bytes -> 12 BGR bytes; the last four lanes are unused.
  const __m128i drop_alpha = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  const __m128 vscale = _mm_set1_ps(scale);
  const __m128 voffset = _mm_set1_ps(offset);
  const int32_t width = a.right - a.left;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* s = src.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    int32_t x = 0;
    for (; x + 4 <= width; x += 4, s += 16, d += 48) {
      const __m128i bgr = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s)),
                                           drop_alpha);
      const __m128 f0 = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(bgr));
      const __m128 f1 = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_srli_si128(bgr, 4)));
      const __m128 f2 = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_srli_si128(bgr, 8)));
      // Multiply, then add: the same two roundings as the plain form.
      _mm_storeu_ps(reinterpret_cast<float*>(d), _mm_add_ps(_mm_mul_ps(f0, vscale), voffset));
      _mm_storeu_ps(reinterpret_cast<float*>(d + 16), _mm_add_ps(_mm_mul_ps(f1, vscale), voffset));
      _mm_storeu_ps(reinterpret_cast<float*>(d + 32), _mm_add_ps(_mm_mul_ps(f2, vscale), voffset));
    }
    for (; x < width; ++x, s += 4, d += 12) {
      float out[3];
      for (int i = 0; i < 3; ++i) out[i] = static_cast<float>(s[i]) * scale + offset;
      std::memcpy(d, out, sizeof(out));
    }
  }
  return 0;
}

int32_t convert_f32_to_u8_sse41(const ImageView& src, const ImageView& dst, float scale,
                                float offset, const ProcessRect& strip) {
  if (src.data == nullptr || dst.data == nullptr) return kNullBuffer;
  if (src.format != PIXEL_FLOAT96 || dst.format != PIXEL_BGRA32) return kBadArgument;
  const Area a = Clip(Clip(AreaOf(strip), src), dst);
  if (a.Empty()) return 0;

  const __m128 vscale = _mm_set1_ps(scale);
  const __m128 voffset = _mm_set1_ps(offset);
  const __m128 zero = _mm_setzero_ps();
  const __m128 top = _mm_set1_ps(255.0f);
  // 12 packed BGR bytes -> BGRx per pixel; x lanes are zero and replaced by the old alpha.
  const __m128i spread = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
  const __m128i colour_mask = _mm_setr_epi8(-1, -1, -1, 0, -1, -1, -1, 0, -1, -1, -1, 0, -1, -1, -1, 0);
  const int32_t width = a.right - a.left;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* s = src.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    int32_t x = 0;
    for (; x + 4 <= width; x += 4, s += 48, d += 16) {
      __m128i q[3];
      for (int k = 0; k < 3; ++k) {
        const __m128 f = _mm_loadu_ps(reinterpret_cast<const float*>(s + 16 * k));
        const __m128 v = _mm_add_ps(_mm_mul_ps(vscale, f), voffset);
        // max(v, 0) returns 0 for NaN (second operand); min caps at 255. Truncating the
        // clamped value gives exactly the plain form's 0 below 1 and 255 from 256 up.
        q[k] = _mm_cvttps_epi32(_mm_min_ps(_mm_max_ps(v, zero), top));
      }
      const __m128i w01 = _mm_packus_epi32(q[0], q[1]);
      const __m128i w2 = _mm_packus_epi32(q[2], q[2]);
      const __m128i bytes = _mm_shuffle_epi8(_mm_packus_epi16(w01, w2), spread);
      const __m128i old = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_blendv_epi8(old, bytes, colour_mask));
    }
    for (; x < width; ++x, s += 12, d += 4) {
      float in[3];
      std::memcpy(in, s, sizeof(in));
      for (int i = 0; i < 3; ++i) d[i] = FloatToByte(scale * in[i] + offset);
    }
  }
  return 0;
}

}  // namespace Vantyx
