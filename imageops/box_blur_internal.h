// Private to the box blur kernels: the argument checks and strip clipping that the plain and
// fast forms share, so both answer every bad call with the same code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/image_view.h"

namespace Vantyx {
namespace detail {

// Checks in order: null image (or null weight image) 0x80004003; unsupported format
// 0x80004001; negative radius 0x80070057. On success returns 0 and sets *area to the strip
// clipped to the image (and the weight image); the area is empty when there is nothing to do
// (radius 0 included).
int32_t BoxBlurSetup(const ImageView& img, const ImageView* weight, int32_t radius,
                     const ProcessRect& strip, Area* area);

// True when a line of n samples takes the ring-buffer form (2r - 1 <= n).
inline bool BoxBlurRingFits(int32_t n, int32_t r) {
  return 2 * static_cast<int64_t>(r) - 1 <= n;
}

// The fast form's byte rounding, trunc(q + 0.5f) in float, over `count` quotients; for the
// tests that hold it to the plain form's trunc(double(q) + 0.5). Needs SSE4.1.
void BoxBlurRoundBytesSse41(const float* q, int32_t* out, size_t count);

// Samples in the window of sample i of a line of n: [i - (r - 1), i + (r - 1)] cut at the ends.
int32_t BoxBlurWindowCount(int64_t i, int64_t n, int64_t r);

// The byte of a window of c bytes summing to S (0 <= S <= 255 c): the plain form's
// trunc(double(float(S) / c) + 0.5) is (S + c / 2) / c in integers for every such S (checked
// for every c up to 255 by test_box_blur), which 16-bit lanes divide with a multiplier: for most
// counts q = mulhi(n, multiplier) >> shift exactly; otherwise (shift < 0) mulhi(n, multiplier)
// with multiplier = min(65536 / c, 65535) is q or q - 1 and the remainder corrects it.
struct ByteDivisor {
  int32_t count = 1;
  uint16_t half = 0;
  uint16_t multiplier = 65535;
  int32_t shift = -1;
};
ByteDivisor MakeByteDivisor(int32_t count);  // count 1..255
// q[k] = n[k] / d.count for n[k] <= 255 count + count / 2, as the fast passes divide.
void BoxBlurDivideSse41(const uint16_t* n, uint16_t* q, size_t count, const ByteDivisor& d);

// One horizontal pass over a BGRA row of n pixels from x into out (another row), B, G, R
// filtered, alpha copied; 255 x min(n, 2r - 1) <= 2^24. Needs SSE4.1.
void BoxBlurBgraRowSse41(const uint8_t* x, uint8_t* out, int32_t n, int32_t r);
// One horizontal pass over `rows` (1 or 4) FLOAT96 rows of n pixels: x[k] the unfiltered row
// padded by one float, out[k] where it goes; the plain form's sums in its order. Needs SSE4.1.
void BoxBlurF96RowsSse41(uint8_t* const* out, const float* const* x, int32_t rows, int32_t n,
                         int32_t r);

// The vertical pass streamed one row at a time, for fused passes that make their input rows
// as they go: input rows [FirstInput(), EndInput()) are pushed in order, and output rows
// [out_begin, out_end) come out in order as soon as their windows are complete. A pushed row
// must stay unchanged until Capacity() more rows have been pushed.
//   BGRA bytes: sums in 16-bit lanes, any start row (window sums of bytes are exact), needs
//     255 x min(n, 2r - 1) <= 65535; alpha comes from the output row's own input row.
//   FLOAT96: the plain form's float sums in its order, so out_begin must be 0.
class ColumnBoxStream {
 public:
  void Init(bool floats, int32_t n, int32_t r, int32_t out_begin, int32_t out_end,
            int32_t row_bytes);
  int32_t FirstInput() const { return first_in_; }
  int32_t EndInput() const { return end_in_; }
  int32_t Capacity() const { return capacity_; }
  void Push(int32_t i, const uint8_t* row);
  // The next output row if the rows pushed so far complete its window, else -1.
  int32_t Ready() const;
  void EmitSse41(uint8_t* out);  // writes output row Ready() and moves on; needs SSE4.1

 private:
  const uint8_t* Row(int32_t i) const { return rows_[size_t((i - first_in_) % capacity_)]; }
  bool floats_ = false;
  int32_t n_ = 0, r_ = 1, out_end_ = 0, row_bytes_ = 0;
  int32_t first_in_ = 0, end_in_ = 0, capacity_ = 1;
  int32_t next_ = 0, pushed_ = -1;
  bool started_ = false;
  std::vector<const uint8_t*> rows_;
  std::vector<uint8_t> sums_;  // 16-bit or float lanes, 16-byte aligned inside
  ByteDivisor divisor_;        // of the last count
};

}  // namespace detail
}  // namespace Vantyx
