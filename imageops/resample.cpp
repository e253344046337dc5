// Bilinear resampling with 8-bit fractions: plain byte kernel, float kernel and the chooser.
//
// Mapping (single precision, float constants): for destination column x of dw, from a source
// of sw columns, rx = dw / sw and s = (x - (dw - 1) * 0.5) / rx + (sw - 1) * 0.5. i = trunc(s);
// the fraction byte is the low eight bits of trunc((s - i) * 256), so where s is negative
// (enlarging, first column or row) the fraction -64 is kept as 192 and that pixel leans towards
// the second source pixel. x0 = max(i, left), pulled back to right - 1 when past the source
// rectangle; x1 = x0 + 1 inside it, else x0. Rows alike.
//
// Bytes: top = ((b - a) * fx >> 8) + a on both rows, then ((bottom - top) * fy >> 8) + top,
// with arithmetic shifts (a negative product rounds towards minus infinity).
// Floats (both images FLOAT96): the same taps, weights fx / 256 and fy / 256 and
// top = a + (b - a) * wx, result = top + (bottom - top) * wy, no rounding.
//
// The source rectangle is in the source view's stage coordinates and is clipped to it; source
// and destination indices count from each view's first pixel, and a strip is a band of
// destination rows in the destination's stage coordinates (its columns are ignored: every call
// writes whole destination rows).
#include "imageops/resample.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "imageops/resample_internal.h"
#include "vantyx.h"

namespace Vantyx {

namespace detail {

void BuildResampleTaps(int32_t dst_len, int32_t src_len, int32_t lo, int32_t hi, int32_t first,
                       int32_t last, ResampleTap* out) {
  const float ratio = static_cast<float>(dst_len) / static_cast<float>(src_len);
  const float dst_mid = static_cast<float>(dst_len - 1) * 0.5f;
  const float src_mid = static_cast<float>(src_len - 1) * 0.5f;
  for (int32_t x = first; x < last; ++x) {
    const float s = (static_cast<float>(x) - dst_mid) / ratio + src_mid;
    const int32_t i = static_cast<int32_t>(s);
    ResampleTap& t = out[x - first];
    t.frac = static_cast<int32_t>((s - static_cast<float>(i)) * 256.0f) & 0xFF;
    int32_t i0 = std::max(i, lo);
    if (i0 >= hi) i0 = hi - 1;
    t.i0 = i0;
    t.i1 = i0 + 1 < hi ? i0 + 1 : i0;
  }
}

int32_t ResampleSetup(const ImageView& src, const ImageView& dst, const ProcessRect& src_rect,
                      const ProcessRect& strip, uint32_t format, ResampleJob* job) {
  job->src = Area{0, 0, 0, 0};
  job->row_begin = job->row_end = 0;
  if (src.data == nullptr || dst.data == nullptr) return VX_E_POINTER;
  if (src.width < 1 || src.height < 1 || dst.width < 1 || dst.height < 1) return VX_E_FAIL;
  if (src.format != format || dst.format != format) return VX_E_NOTIMPL;
  const Area r = Clip(AreaOf(src_rect), src);
  if (r.Empty()) return VX_E_INVALIDARG;
  job->src = Area{r.left - src.origin_x, r.top - src.origin_y, r.right - src.origin_x,
                  r.bottom - src.origin_y};
  const Area s = AreaOf(strip);
  if (s.Empty()) return 0;
  const int64_t top = std::max<int64_t>(s.top, dst.origin_y);
  const int64_t bottom = std::min<int64_t>(s.bottom, int64_t{dst.origin_y} + dst.height);
  if (top >= bottom) return 0;
  job->row_begin = static_cast<int32_t>(top - dst.origin_y);
  job->row_end = static_cast<int32_t>(bottom - dst.origin_y);
  return 0;
}

void ResampleRowsU8::Init(const ImageView& src, const Area& area, int32_t dst_w, int32_t dst_h,
                          int32_t x_begin, int32_t x_end) {
  src_ = src;
  area_ = area;
  dst_h_ = dst_h;
  count_ = std::max(x_end - x_begin, 0);
  const size_t n = static_cast<size_t>(count_);
  std::vector<ResampleTap> taps(n);
  BuildResampleTaps(dst_w, src.width, area.left, area.right, x_begin, x_end, taps.data());
  off0_.resize(n + 1);  // one spare column: the fast form reads columns in pairs
  off1_.resize(n + 1);
  frac2_.resize(4 * (n + 1));
  bool halving = true;
  for (size_t x = 0; x < n; ++x) {
    off0_[x] = taps[x].i0 * 4;
    off1_[x] = taps[x].i1 * 4;
    for (int k = 0; k < 4; ++k) frac2_[4 * x + size_t(k)] = static_cast<int16_t>(taps[x].frac * 2);
    halving = halving && taps[x].frac == 128 && taps[x].i1 == taps[x].i0 + 1 &&
              taps[x].i0 == taps[0].i0 + 2 * static_cast<int32_t>(x);
  }
  // Enlarging twice, columns 2k .. 2k + 3 read pixels (k - 1, k), (k, k + 1), (k, k + 1) and
  // (k + 1, k + 2) at fractions 192, 64, 192, 64: one load of the run k - 1 .. k + 2.
  doubling_.assign(n / 4, 0);
  for (size_t g = 0; g < n / 4; ++g) {
    const ResampleTap* t = &taps[4 * g];
    const int32_t k = t[0].i0 + 1;
    doubling_[g] = t[0].i0 == k - 1 && t[1].i0 == k && t[2].i0 == k && t[3].i0 == k + 1 &&
                   t[0].i1 == k && t[1].i1 == k + 1 && t[2].i1 == k + 1 && t[3].i1 == k + 2 &&
                   t[0].frac == 192 && t[1].frac == 64 && t[2].frac == 192 && t[3].frac == 64;
  }
  off0_[n] = off0_[n > 0 ? n - 1 : 0];
  off1_[n] = off1_[n > 0 ? n - 1 : 0];
  halving_from_ = halving && n > 0 ? taps[0].i0 : -1;
  for (auto& r : rows_) r.assign(4 * n + 16, 0);
  row_of_[0] = row_of_[1] = -1;
  next_slot_ = 0;
}

}  // namespace detail

namespace {

inline int32_t Lerp8(int32_t a, int32_t b, int32_t f) { return (((b - a) * f) >> 8) + a; }

}  // namespace

int32_t resample_bilinear_u8_plain(const ImageView& src, const ImageView& dst,
                                   const ProcessRect& src_rect, const ProcessRect& strip) {
  detail::ResampleJob job;
  const int32_t code = detail::ResampleSetup(src, dst, src_rect, strip, PIXEL_BGRA32, &job);
  if (code != 0 || job.row_begin == job.row_end) return code;
  std::vector<detail::ResampleTap> cols(static_cast<size_t>(dst.width));
  detail::BuildResampleTaps(dst.width, src.width, job.src.left, job.src.right, 0, dst.width,
                            cols.data());
  for (int32_t y = job.row_begin; y < job.row_end; ++y) {
    detail::ResampleTap ty;
    detail::BuildResampleTaps(dst.height, src.height, job.src.top, job.src.bottom, y, y + 1, &ty);
    const uint8_t* r0 = src.data + static_cast<ptrdiff_t>(ty.i0) * src.stride;
    const uint8_t* r1 = src.data + static_cast<ptrdiff_t>(ty.i1) * src.stride;
    uint8_t* d = dst.data + static_cast<ptrdiff_t>(y) * dst.stride;
    for (int32_t x = 0; x < dst.width; ++x, d += 4) {
      const detail::ResampleTap& tx = cols[static_cast<size_t>(x)];
      const uint8_t* a = r0 + 4 * static_cast<ptrdiff_t>(tx.i0);
      const uint8_t* b = r0 + 4 * static_cast<ptrdiff_t>(tx.i1);
      const uint8_t* c = r1 + 4 * static_cast<ptrdiff_t>(tx.i0);
      const uint8_t* e = r1 + 4 * static_cast<ptrdiff_t>(tx.i1);
      for (int k = 0; k < 4; ++k) {
        const int32_t top = Lerp8(a[k], b[k], tx.frac);
        const int32_t bottom = Lerp8(c[k], e[k], tx.frac);
        d[k] = static_cast<uint8_t>(Lerp8(top, bottom, ty.frac));
      }
    }
  }
  return 0;
}

int32_t resample_bilinear_f32(const ImageView& src, const ImageView& dst,
                              const ProcessRect& src_rect, const ProcessRect& strip) {
  detail::ResampleJob job;
  const int32_t code = detail::ResampleSetup(src, dst, src_rect, strip, PIXEL_FLOAT96, &job);
  if (code != 0 || job.row_begin == job.row_end) return code;
  std::vector<detail::ResampleTap> cols(static_cast<size_t>(dst.width));
  detail::BuildResampleTaps(dst.width, src.width, job.src.left, job.src.right, 0, dst.width,
                            cols.data());
  for (int32_t y = job.row_begin; y < job.row_end; ++y) {
    detail::ResampleTap ty;
    detail::BuildResampleTaps(dst.height, src.height, job.src.top, job.src.bottom, y, y + 1, &ty);
    const float wy = static_cast<float>(ty.frac) / 256.0f;
    const uint8_t* r0 = src.data + static_cast<ptrdiff_t>(ty.i0) * src.stride;
    const uint8_t* r1 = src.data + static_cast<ptrdiff_t>(ty.i1) * src.stride;
    uint8_t* d = dst.data + static_cast<ptrdiff_t>(y) * dst.stride;
    for (int32_t x = 0; x < dst.width; ++x, d += 12) {
      const detail::ResampleTap& tx = cols[static_cast<size_t>(x)];
      const float wx = static_cast<float>(tx.frac) / 256.0f;
      float a[3], b[3], c[3], e[3], out[3];
      std::memcpy(a, r0 + 12 * static_cast<ptrdiff_t>(tx.i0), sizeof(a));
      std::memcpy(b, r0 + 12 * static_cast<ptrdiff_t>(tx.i1), sizeof(b));
      std::memcpy(c, r1 + 12 * static_cast<ptrdiff_t>(tx.i0), sizeof(c));
      std::memcpy(e, r1 + 12 * static_cast<ptrdiff_t>(tx.i1), sizeof(e));
      for (int k = 0; k < 3; ++k) {
        const float top = a[k] + (b[k] - a[k]) * wx;
        const float bottom = c[k] + (e[k] - c[k]) * wx;
        out[k] = top + (bottom - top) * wy;
      }
      std::memcpy(d, out, sizeof(out));
    }
  }
  return 0;
}

namespace {

bool BothFloat(const ImageView& src, const ImageView& dst) {
  return src.format == PIXEL_FLOAT96 && dst.format == PIXEL_FLOAT96;
}

}  // namespace

int32_t resample_bilinear(const ImageView& src, const ImageView& dst, const ProcessRect& src_rect,
                          const ProcessRect& strip, int32_t simd_level) {
  if (BothFloat(src, dst)) return resample_bilinear_f32(src, dst, src_rect, strip);
  return simd_level >= SIMD_SSE41 ? resample_bilinear_u8_sse41(src, dst, src_rect, strip)
                                  : resample_bilinear_u8_plain(src, dst, src_rect, strip);
}

const char* resample_kernel_name(const ImageView& src, const ImageView& dst, int32_t simd_level) {
  return BothFloat(src, dst) || simd_level >= SIMD_SSE41 ? "resize buff SSE" : "resize buff";
}

}  // namespace Vantyx
