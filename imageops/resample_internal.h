// Private to the resampling kernels: the argument checks and the index tables that the plain,
// fast and float kernels share, so all three map pixels the same way.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {
namespace detail {

// One destination column (or row): the two source indices it reads and the fraction byte.
struct ResampleTap {
  int32_t i0;
  int32_t i1;
  int32_t frac;  // 0..255
};

// Taps for destination indices [first, last) of a side dst_len long, from a source side
// src_len long, source indices kept inside [lo, hi) (lo < hi).
void BuildResampleTaps(int32_t dst_len, int32_t src_len, int32_t lo, int32_t hi, int32_t first,
                       int32_t last, ResampleTap* out);

// What one call works on, in indices from each view's first pixel.
struct ResampleJob {
  Area src;             // the source rectangle, clipped to the source
  int32_t row_begin;    // destination rows [row_begin, row_end) of this strip
  int32_t row_end;
};

// Checks in order: null image 0x80004003; a side below 1 0x80004005; a format other than
// `format` on either side 0x80004001; a source rectangle with nothing inside the source
// 0x80070057. Returns 0 with *job set; job->row_begin == job->row_end when the strip is empty.
int32_t ResampleSetup(const ImageView& src, const ImageView& dst, const ProcessRect& src_rect,
                      const ProcessRect& strip, uint32_t format, ResampleJob* job);

}  // namespace detail
}  // namespace Vantyx
