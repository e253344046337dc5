// Channel split and merge, SSE4.1 form: four pixels per step by byte blends, the plain
// forms' scalar code for the tail.
#include <smmintrin.h>

#include <cstdint>

#include "imageops/channels.h"
#include "vantyx.h"

namespace Vantyx {

namespace {

inline __m128i Load(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline void Store(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// Byte c of every pixel.
inline __m128i ByteMask(int c) { return _mm_set1_epi32(int32_t(0xFFu << (8 * c))); }

}  // namespace

int32_t split_channels_sse41(const ImageView& src, const ImageView& to_b, const ImageView& to_g,
                             const ImageView& to_r, const ProcessRect& strip) {
  Area a;
  const int32_t rc = detail::ChannelsSetup(src, to_b, to_g, to_r, strip, &a);
  if (rc != 0 || a.Empty()) return rc;
  const __m128i mb = ByteMask(0), mg = ByteMask(1), mr = ByteMask(2);
  const __m128i alpha = _mm_set1_epi32(int32_t(0xFF000000u));
  const int32_t width = a.right - a.left;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* s = src.At(a.left, y);
    uint8_t* b = to_b.At(a.left, y);
    uint8_t* g = to_g.At(a.left, y);
    uint8_t* r = to_r.At(a.left, y);
    int32_t x = 0;
    for (; x + 4 <= width; x += 4, s += 16, b += 16, g += 16, r += 16) {
      const __m128i v = Load(s);
      Store(b, _mm_or_si128(_mm_blendv_epi8(Load(b), v, mb), alpha));
      Store(g, _mm_or_si128(_mm_blendv_epi8(Load(g), v, mg), alpha));
      Store(r, _mm_or_si128(_mm_blendv_epi8(Load(r), v, mr), alpha));
    }
    for (; x < width; ++x, s += 4, b += 4, g += 4, r += 4) {
      b[0] = s[0];
      g[1] = s[1];
      r[2] = s[2];
      b[3] = g[3] = r[3] = 255;
    }
  }
  return 0;
}

int32_t merge_channels_sse41(const ImageView& from_b, const ImageView& from_g,
                             const ImageView& from_r, const ImageView& dst,
                             const ProcessRect& strip) {
  Area a;
  const int32_t rc = detail::ChannelsSetup(from_b, from_g, from_r, dst, strip, &a);
  if (rc != 0 || a.Empty()) return rc;
  const __m128i mg = ByteMask(1), mr = ByteMask(2);
  const int32_t width = a.right - a.left;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* b = from_b.At(a.left, y);
    const uint8_t* g = from_g.At(a.left, y);
    const uint8_t* r = from_r.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    int32_t x = 0;
    for (; x + 4 <= width; x += 4, b += 16, g += 16, r += 16, d += 16)
      Store(d, _mm_blendv_epi8(_mm_blendv_epi8(Load(b), Load(g), mg), Load(r), mr));
    for (; x < width; ++x, b += 4, g += 4, r += 4, d += 4) {
      const uint8_t px[4] = {b[0], g[1], r[2], b[3]};
      d[0] = px[0];
      d[1] = px[1];
      d[2] = px[2];
      d[3] = px[3];
    }
  }
  return 0;
}

}  // namespace Vantyx
