#include "imageops/copy_convert.h"

#include <cstring>

#include "vantyx.h"

namespace Vantyx {

namespace {

constexpr int32_t kNullBuffer = static_cast<int32_t>(0x80004003u);
constexpr int32_t kBadArgument = static_cast<int32_t>(0x80070057u);

}  // namespace

int32_t copy_block(const ImageView& src, const ImageView& dst, const ProcessRect& strip) {
  if (src.data == nullptr || dst.data == nullptr) return kNullBuffer;
  // The pixel step is the format's size: formats of equal size copy byte for byte.
  const uint32_t step = BytesPerPixel(src.format);
  if (step != BytesPerPixel(dst.format)) return kBadArgument;
  const Area a = Clip(Clip(AreaOf(strip), src), dst);
  if (a.Empty()) return 0;
  const size_t bytes = static_cast<size_t>(a.right - a.left) * step;
  for (int32_t y = a.top; y < a.bottom; ++y)
    std::memmove(dst.At(a.left, y), src.At(a.left, y), bytes);  // src may be dst
  return 0;
}

int32_t convert_u8_to_f32_plain(const ImageView& src, const ImageView& dst, float scale,
                                float offset, const ProcessRect& strip) {
  if (src.data == nullptr || dst.data == nullptr) return kNullBuffer;
  if (src.format != PIXEL_BGRA32 || dst.format != PIXEL_FLOAT96) return kBadArgument;
  const Area a = Clip(Clip(AreaOf(strip), src), dst);
  if (a.Empty()) return 0;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* s = src.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    for (int32_t x = a.left; x < a.right; ++x, s += 4, d += 12) {
      float out[3];
      for (int i = 0; i < 3; ++i) out[i] = static_cast<float>(s[i]) * scale + offset;
      std::memcpy(d, out, sizeof(out));  // float rows need not be 4-byte aligned
    }
  }
  return 0;
}

int32_t convert_f32_to_u8_plain(const ImageView& src, const ImageView& dst, float scale,
                                float offset, const ProcessRect& strip) {
  if (src.data == nullptr || dst.data == nullptr) return kNullBuffer;
  if (src.format != PIXEL_FLOAT96 || dst.format != PIXEL_BGRA32) return kBadArgument;
  const Area a = Clip(Clip(AreaOf(strip), src), dst);
  if (a.Empty()) return 0;
  for (int32_t y = a.top; y < a.bottom; ++y) {
    const uint8_t* s = src.At(a.left, y);
    uint8_t* d = dst.At(a.left, y);
    for (int32_t x = a.left; x < a.right; ++x, s += 12, d += 4) {
      float in[3];
      std::memcpy(in, s, sizeof(in));
      for (int i = 0; i < 3; ++i) {
        const float v = scale * in[i] + offset;
        // trunc(v) >= 256 gives 255 and trunc(v) < 1 gives 0; comparing before the
        // conversion keeps NaN (-> 0) and huge values away from an undefined cast.
        d[i] = !(v >= 1.0f) ? 0 : v >= 256.0f ? 255 : static_cast<uint8_t>(static_cast<int32_t>(v));
      }
    }
  }
  return 0;
}

int32_t convert_u8_to_f32(const ImageView& src, const ImageView& dst, float scale, float offset,
                          const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return convert_u8_to_f32_sse41(src, dst, scale, offset, strip);
  return convert_u8_to_f32_plain(src, dst, scale, offset, strip);
}

int32_t convert_f32_to_u8(const ImageView& src, const ImageView& dst, float scale, float offset,
                          const ProcessRect& strip, int32_t simd_level) {
  if (simd_level >= SIMD_SSE41) return convert_f32_to_u8_sse41(src, dst, scale, offset, strip);
  return convert_f32_to_u8_plain(src, dst, scale, offset, strip);
}

}  // namespace Vantyx
