// The byte-table pass and the weighted sum: hand-computed pixels, checks, plain against fast.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <vector>

#include "harness.h"
#include "imageops/pixel_ops.h"

namespace Vantyx {
namespace {

using test::Image;
using test::Whole;

TEST(ApplyLut, InvertsColoursKeepsAlphaAndChecks) {
  std::vector<uint8_t> invert(256);
  for (int i = 0; i < 256; ++i) invert[i] = uint8_t(255 - i);
  Image img(5, 1);
  for (int x = 0; x < 5; ++x) {
    const uint8_t px[4] = {uint8_t(10 + x), uint8_t(20 + x), uint8_t(250 + x), uint8_t(40 + x)};
    std::copy(px, px + 4, img.Pixel(x, 0));
  }
  ASSERT_EQ(apply_lut_bgr(img.View(), invert.data(), Whole(img), SIMD_SSE41), 0);
  for (int x = 0; x < 5; ++x) {
    const uint8_t want[4] = {uint8_t(245 - x), uint8_t(235 - x), uint8_t(5 - x), uint8_t(40 + x)};
    EXPECT_TRUE(std::equal(want, want + 4, img.Pixel(x, 0))) << x;
  }
  ImageView none = img.View();
  none.data = nullptr;
  Image f(3, 3, PIXEL_FLOAT96);
  EXPECT_EQ(apply_lut_bgr_plain(none, invert.data(), Whole(img)), VX_E_POINTER);
  EXPECT_EQ(apply_lut_bgr_plain(img.View(), nullptr, Whole(img)), VX_E_POINTER);
  EXPECT_EQ(apply_lut_bgr_plain(f.View(), invert.data(), Whole(f)), VX_E_INVALIDARG);
}

TEST(WeightingSum, HandComputed) {
  // w1 = trunc(0.27 x 65536) = 17694, w2 = trunc(0.73 x 65536) = 47841:
  // 200 x 17694 + 100 x 47841 = 8322900 < 127 x 65536 = 8323072 -> 126.
  // 300 x 65536 >= 0xFF0000 -> 255; 255 x 65535 = 16711425 -> 254; a negative sum gives 0.
  const struct {
    uint8_t o, d;
    int32_t w1, w2;
    uint8_t want;
  } rows[] = {{200, 100, 17694, 47841, 126}, {200, 100, 65536, 65536, 255},
              {255, 0, 65535, 0, 254},       {255, 0, 65536, 0, 255},
              {200, 100, -65536, 65536, 0},  {1, 0, INT32_MAX, INT32_MIN, 255},
              {255, 255, INT32_MAX, INT32_MIN, 0}, {0, 7, 0, 65536, 7}};
  for (auto* fn : {&weighting_sum_plain, &weighting_sum_sse41}) {
    if (fn == &weighting_sum_sse41 && !test::HasSse41()) continue;
    for (const auto& r : rows) {
      Image other(6, 1), dst(6, 1);  // six pixels: the vector step and the tail
      for (int x = 0; x < 6; ++x) {
        std::fill(other.Pixel(x, 0), other.Pixel(x, 0) + 4, r.o);
        std::fill(dst.Pixel(x, 0), dst.Pixel(x, 0) + 3, r.d);
        dst.Pixel(x, 0)[3] = 33;
      }
      ASSERT_EQ(fn(other.View(), dst.View(), r.w1, r.w2, Whole(dst)), 0);
      for (int x = 0; x < 6; ++x) {
        const uint8_t want[4] = {r.want, r.want, r.want, 33};
        EXPECT_TRUE(std::equal(want, want + 4, dst.Pixel(x, 0)))
            << (fn == &weighting_sum_plain ? "plain " : "fast ") << r.w1 << "," << r.w2;
      }
    }
  }
}

TEST(WeightingSum, ChecksAndDestinationAtItsRectangle) {
  Image other(4, 4), dst(2, 2), f(4, 4, PIXEL_FLOAT96);
  ImageView none = other.View();
  none.data = nullptr;
  EXPECT_EQ(weighting_sum_plain(none, f.View(), 1, 1, Whole(other)), VX_E_POINTER);
  EXPECT_EQ(weighting_sum_plain(f.View(), dst.View(), 1, 1, Whole(other)), VX_E_INVALIDARG);
  EXPECT_EQ(weighting_sum_plain(other.View(), f.View(), 1, 1, Whole(other)), VX_E_INVALIDARG);
  // A destination holding (1,1)-(3,3) of the frame takes its pixels from there.
  other.FillRandom(5);
  ASSERT_EQ(weighting_sum(other.View(), dst.View(1, 1), 65536, 0, Whole(other), SIMD_NONE), 0);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 2; ++x) {
      EXPECT_EQ(dst.Pixel(x, y)[1], other.Pixel(x + 1, y + 1)[1]);
      EXPECT_EQ(dst.Pixel(x, y)[3], 0);
    }
}

// The effects' weights, negative ones, sums past both ends, and weights too large for the
// 32-bit vector step.
TEST(PixelOpsForms, FastMatchesPlain) {
  test::ExpectFormsAgree({test::KernelRow(
      "weighting_sum", {{PIXEL_BGRA32}, {PIXEL_BGRA32}}, [](test::Case& c) {
        const int32_t w1 = c.Pick({17694, 65536, -30000, 8421504, INT32_MAX, 0, c.Int(-1, 70000)});
        const int32_t w2 = c.Pick({47841, 65536, 90000, 0, -5, INT32_MIN, c.Int(-1, 70000)});
        return c.Form(weighting_sum_plain, weighting_sum_sse41)(c.View(0), c.View(1), w1, w2,
                                                                c.strip);
      })});
}

}  // namespace
}  // namespace Vantyx
