// Private to the resampling kernels: the argument checks and the index tables that the plain,
// fast and float kernels share, so all three map pixels the same way.
#pragma once

#include <cstdint>
#include <vector>

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

// Byte resampling one destination row at a time, for a fixed source and destination column
// range: the fast kernel's rows and the fused passes that enlarge the glow row by row. Each
// source row's horizontal pass is kept, so that the two destination rows which share a source
// row when enlarging interpolate it once; the taps and arithmetic are the byte kernels'.
class ResampleRowsU8 {
 public:
  // `area`: the source rectangle, clipped, in source indices; destination dst_w x dst_h, of
  // which columns [x_begin, x_end) are produced.
  void Init(const ImageView& src, const Area& area, int32_t dst_w, int32_t dst_h,
            int32_t x_begin, int32_t x_end);
  // Destination row y (0 <= y < dst_h) into out, 4 x (x_end - x_begin) bytes. Needs SSE4.1.
  void RowSse41(int32_t y, uint8_t* out);

 private:
  const uint8_t* HorizontalSse41(int32_t src_row);

  ImageView src_;
  Area area_{0, 0, 0, 0};
  int32_t dst_h_ = 0;
  int32_t count_ = 0;                 // destination columns produced
  std::vector<int32_t> off0_, off1_;  // byte offsets of each column's two source pixels
  std::vector<int16_t> frac2_;        // 2 x fraction, once per channel
  int32_t halving_from_ = -1;         // first source pixel when every column halves a pair
  std::vector<uint8_t> doubling_;     // per group of four columns: they enlarge a run twice
  std::vector<uint8_t> rows_[2];      // horizontal passes of two source rows
  int32_t row_of_[2] = {-1, -1};
  int32_t next_slot_ = 0;
};

}  // namespace detail
}  // namespace Vantyx
