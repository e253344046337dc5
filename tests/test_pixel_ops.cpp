#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "imageops/pixel_ops.h"
#include "test_support.h"

namespace Vantyx {
namespace {

using test::Image;
constexpr int32_t kNull = int32_t(0x80004003u);
constexpr int32_t kBadArg = int32_t(0x80070057u);

ProcessRect Whole(const Image& img) { return {0, 0, uint32_t(img.width), uint32_t(img.height)}; }

std::vector<uint8_t> RandomLut(uint32_t seed) {
  std::vector<uint8_t> lut(256);
  test::FillRandomBytes(lut.data(), lut.size(), seed);
  return lut;
}

TEST(ApplyLut, HandValues) {
  std::vector<uint8_t> invert(256);
  for (int i = 0; i < 256; ++i) invert[i] = uint8_t(255 - i);
  for (auto* fn : {&apply_lut_bgr_plain}) {
    Image img(5, 1);
    for (int x = 0; x < 5; ++x) {
      uint8_t* p = img.Pixel(x, 0);
      p[0] = uint8_t(10 + x);
      p[1] = uint8_t(20 + x);
      p[2] = uint8_t(250 + x);
      p[3] = uint8_t(40 + x);
    }
    ASSERT_EQ(fn(img.View(), invert.data(), Whole(img)), 0);
    for (int x = 0; x < 5; ++x) {
      const uint8_t* p = img.Pixel(x, 0);
      EXPECT_EQ(p[0], 245 - x);
      EXPECT_EQ(p[1], 235 - x);
      EXPECT_EQ(p[2], 5 - x);
      EXPECT_EQ(p[3], 40 + x);  // alpha is not a colour
    }
  }
}

TEST(ApplyLut, Checks) {
  std::vector<uint8_t> lut = RandomLut(1);
  Image img(3, 3), f(3, 3, PIXEL_FLOAT96);
  ImageView none = img.View();
  none.data = nullptr;
  EXPECT_EQ(apply_lut_bgr_plain(none, lut.data(), Whole(img)), kNull);
  EXPECT_EQ(apply_lut_bgr_plain(img.View(), nullptr, Whole(img)), kNull);
  EXPECT_EQ(apply_lut_bgr_plain(f.View(), lut.data(), Whole(img)), kBadArg);
  EXPECT_EQ(apply_lut_bgr(f.View(), lut.data(), Whole(img), SIMD_NONE), kBadArg);
}

TEST(WeightingSum, HandValues) {
  // w1 = trunc(0.27 x 65536) = 17694, w2 = trunc(0.73 x 65536) = 47841:
  // 200 x 17694 + 100 x 47841 = 8322900 < 127 x 65536 = 8323072 -> 126.
  // Equal full weights: 300 x 65536 >= 0xFF0000 -> 255. 255 x 65535 = 16711425 -> 254.
  // A negative sum gives 0.
  struct Case {
    uint8_t o, d;
    int32_t w1, w2;
    uint8_t want;
  } cases[] = {{200, 100, 17694, 47841, 126}, {200, 100, 65536, 65536, 255},
               {255, 0, 65535, 0, 254},       {255, 0, 65536, 0, 255},
               {200, 100, -65536, 65536, 0},  {1, 0, INT32_MAX, INT32_MIN, 255},
               {255, 255, INT32_MAX, INT32_MIN, 0}, {0, 7, 0, 65536, 7}};
  for (auto* fn : {&weighting_sum_plain, &weighting_sum_sse41}) {
    if (fn == &weighting_sum_sse41 && !test::HasSse41()) continue;
    for (const Case& c : cases) {
      // Six equal pixels: the vector step and the tail see the same case.
      Image other(6, 1), dst(6, 1);
      for (int x = 0; x < 6; ++x) {
        std::fill(other.Pixel(x, 0), other.Pixel(x, 0) + 4, c.o);
        std::fill(dst.Pixel(x, 0), dst.Pixel(x, 0) + 3, c.d);
        dst.Pixel(x, 0)[3] = 33;
      }
      ASSERT_EQ(fn(other.View(), dst.View(), c.w1, c.w2, Whole(dst)), 0);
      for (int x = 0; x < 6; ++x) {
        for (int i = 0; i < 3; ++i) EXPECT_EQ(dst.Pixel(x, 0)[i], c.want) << c.w1 << " " << int(c.o);
        EXPECT_EQ(dst.Pixel(x, 0)[3], 33);
      }
    }
  }
}

TEST(WeightingSum, ChecksAndClipping) {
  Image other(4, 4), dst(2, 2), f(4, 4, PIXEL_FLOAT96);
  ImageView none = other.View();
  none.data = nullptr;
  EXPECT_EQ(weighting_sum_plain(none, f.View(), 1, 1, Whole(other)), kNull);
  EXPECT_EQ(weighting_sum_plain(f.View(), dst.View(), 1, 1, Whole(other)), kBadArg);
  EXPECT_EQ(weighting_sum_plain(other.View(), f.View(), 1, 1, Whole(other)), kBadArg);
  // A destination holding (1,1)-(3,3) of the frame takes its pixels from there.
  other.FillRandom(5);
  dst.Fill(0);
  ASSERT_EQ(weighting_sum(other.View(), dst.View(1, 1), 65536, 0, Whole(other), SIMD_NONE), 0);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 2; ++x) {
      EXPECT_EQ(dst.Pixel(x, y)[1], other.Pixel(x + 1, y + 1)[1]);
      EXPECT_EQ(dst.Pixel(x, y)[3], 0);
    }
}

// Plain against fast on whole images of odd sizes (with origins and row padding) and on the
// same images cut into strips of every height from 1 to 9.
template <class Plain, class Fast>
void CompareForms(Plain plain, Fast fast) {
  if (!test::HasSse41()) GTEST_SKIP() << "no SSE4.1";
  struct Size {
    int32_t w, h, pad;
  };
  std::vector<Size> sizes = {{1, 1, 0}, {3, 2, 4}, {5, 7, 12}, {1921, 1081, 0}};
  for (int32_t w = 1; w <= 67; ++w) sizes.push_back({w, 3, (w % 3) * 4 + 8});
  uint32_t seed = 20;
  for (const Size& s : sizes) {
    Image other(s.w, s.h, PIXEL_BGRA32, s.pad + 8), a(s.w, s.h, PIXEL_BGRA32, s.pad);
    other.FillRandom(++seed);
    a.FillRandom(++seed);
    Image b = a;
    ASSERT_EQ(plain(other.View(5, 1), a.View(5, 1), ProcessRect{0, 0, 9000, 9000}), 0);
    ASSERT_EQ(fast(other.View(5, 1), b.View(5, 1), ProcessRect{0, 0, 9000, 9000}), 0);
    ASSERT_TRUE(a == b) << s.w << "x" << s.h;
    if (s.w > 67) continue;
    for (uint32_t step = 1; step <= 9; ++step) {
      Image c = a, d = a;
      for (uint32_t top = 0; top < uint32_t(s.h); top += step) {
        const ProcessRect strip{1, top, uint32_t(s.w), std::min(top + step, uint32_t(s.h))};
        ASSERT_EQ(plain(other.View(), c.View(), strip), 0);
        ASSERT_EQ(fast(other.View(), d.View(), strip), 0);
      }
      ASSERT_TRUE(c == d) << s.w << " step " << step;
    }
  }
}

TEST(WeightingSum, FastMatchesPlain) {
  // The effects' weights, negative ones, sums past both ends, and weights too large for the
  // 32-bit vector step.
  const int32_t pairs[][2] = {{17694, 47841}, {65536, 65536}, {-30000, 90000},
                              {8421504, 0},   {INT32_MAX, -5}, {0, 0}};
  for (const auto& w : pairs) {
    CompareForms(
        [&](ImageView o, ImageView d, ProcessRect r) { return weighting_sum_plain(o, d, w[0], w[1], r); },
        [&](ImageView o, ImageView d, ProcessRect r) { return weighting_sum_sse41(o, d, w[0], w[1], r); });
  }
}

}  // namespace
}  // namespace Vantyx
