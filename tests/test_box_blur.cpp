// Box blur: hand-worked lines, a straightforward window mean as reference, the argument checks,
// and the plain form against the SSE4.1 form on random images of odd sizes and strips.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "imageops/box_blur.h"
#include "imageops/box_blur_internal.h"
#include "test_support.h"

namespace Vantyx {
namespace {

using test::Image;

constexpr int32_t kPointer = static_cast<int32_t>(0x80004003u);
constexpr int32_t kNotImpl = static_cast<int32_t>(0x80004001u);
constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057u);

using BlurFn = int32_t (*)(const ImageView&, const ImageView*, int32_t, const ProcessRect&);

ProcessRect Whole(const Image& img) {
  return ProcessRect{0, 0, uint32_t(img.width), uint32_t(img.height)};
}

// Finite floats in [0, 4) for the float formats (random bytes would give NaNs).
void FillFloats(Image& img, uint32_t seed) {
  img.FillRandom(seed);
  const int32_t lanes = int32_t(BytesPerPixel(img.format)) / 4;
  for (int32_t y = 0; y < img.height; ++y)
    for (int32_t x = 0; x < img.width; ++x)
      for (int32_t c = 0; c < lanes; ++c) {
        uint8_t* p = img.Pixel(x, y) + 4 * c;
        const float f = float(p[0] | (p[1] << 8)) / 16384.0f;
        std::memcpy(p, &f, 4);
      }
}

void Fill(Image& img, uint32_t seed) {
  if (img.format == PIXEL_FLOAT96 || img.format == PIXEL_GRAYF32)
    FillFloats(img, seed);
  else
    img.FillRandom(seed);
}

float GetF(Image& img, int32_t x, int32_t y, int32_t c = 0) {
  float f;
  std::memcpy(&f, img.Pixel(x, y) + 4 * c, 4);
  return f;
}
void SetF(Image& img, int32_t x, int32_t y, int32_t c, float f) {
  std::memcpy(img.Pixel(x, y) + 4 * c, &f, 4);
}

// --- Hand-worked values ---------------------------------------------------------------------
// r = 2 on 0, 3, 6, 9: windows [0,1], [0,2], [1,3], [2,3] -> 3/2, 9/3, 18/3, 15/2
// = 1.5, 3, 6, 7.5; bytes trunc(q + 0.5) = 2, 3, 6, 8.

TEST(BoxBlurHand, FloatLineBothDirections) {
  for (BlurFn fn : {box_blur_rows_plain, box_blur_rows_sse41, box_blur_cols_plain,
                    box_blur_cols_sse41}) {
    if ((fn == box_blur_rows_sse41 || fn == box_blur_cols_sse41) && !test::HasSse41()) continue;
    const bool rows = fn == box_blur_rows_plain || fn == box_blur_rows_sse41;
    Image row(rows ? 4 : 1, rows ? 1 : 4, PIXEL_GRAYF32);
    Image px(rows ? 4 : 1, rows ? 1 : 4, PIXEL_FLOAT96);
    for (int32_t i = 0; i < 4; ++i) {
      const int32_t x = rows ? i : 0, y = rows ? 0 : i;
      SetF(row, x, y, 0, 3.0f * i);
      for (int c = 0; c < 3; ++c) SetF(px, x, y, c, 3.0f * i * (c + 1));
    }
    ASSERT_EQ(fn(row.View(), nullptr, 2, Whole(row)), 0);
    ASSERT_EQ(fn(px.View(), nullptr, 2, Whole(px)), 0);
    const float want[4] = {1.5f, 3.0f, 6.0f, 7.5f};
    for (int32_t i = 0; i < 4; ++i) {
      const int32_t x = rows ? i : 0, y = rows ? 0 : i;
      EXPECT_EQ(GetF(row, x, y), want[i]) << i;
      for (int c = 0; c < 3; ++c) EXPECT_EQ(GetF(px, x, y, c), want[i] * (c + 1)) << i;
    }
  }
}

TEST(BoxBlurHand, BytesRoundHalfUpAndKeepAlpha) {
  for (BlurFn fn : {box_blur_rows_plain, box_blur_rows_sse41}) {
    if (fn == box_blur_rows_sse41 && !test::HasSse41()) continue;
    Image bgra(4, 1), gray(4, 1, PIXEL_GRAY8);
    const uint8_t alpha[4] = {9, 200, 0, 255};
    for (int32_t x = 0; x < 4; ++x) {
      uint8_t* p = bgra.Pixel(x, 0);
      p[0] = uint8_t(3 * x);        // 0 3 6 9 -> 2 3 6 8
      p[1] = uint8_t(255 - 3 * x);  // 255 252 249 246 -> 254 (253.5) 252 249 248 (247.5)
      p[2] = uint8_t(100 * (x & 1));  // 0 100 0 100 -> 50 33 (33.3) 67 (66.7) 50
      p[3] = alpha[x];
      gray.Pixel(x, 0)[0] = uint8_t(3 * x);
    }
    ASSERT_EQ(fn(bgra.View(), nullptr, 2, Whole(bgra)), 0);
    const uint8_t want[4][4] = {
        {2, 254, 50, 9}, {3, 252, 33, 200}, {6, 249, 67, 0}, {8, 248, 50, 255}};
    for (int32_t x = 0; x < 4; ++x)
      for (int c = 0; c < 4; ++c) EXPECT_EQ(bgra.Pixel(x, 0)[c], want[x][c]) << x << "," << c;
  }
  Image gray(4, 1, PIXEL_GRAY8);
  for (int32_t x = 0; x < 4; ++x) gray.Pixel(x, 0)[0] = uint8_t(3 * x);
  ASSERT_EQ(box_blur_rows_plain(gray.View(), nullptr, 2, Whole(gray)), 0);
  EXPECT_EQ(gray.bytes, (std::vector<uint8_t>{2, 3, 6, 8}));
}

// Weighted: weights (alpha of the second image) 255, 255, 0 over B = 10, 20, 200 with r = 2:
// pixel 0 and 1 see (10 + 20) / 2 = 15; pixel 2 sees only 20 (its own weight is 0).
// A window weighing 0 in all keeps the pixel.
TEST(BoxBlurHand, WeightedMeanUsesSecondImageAlpha) {
  Image img(3, 1), w(3, 1), g(3, 1, PIXEL_GRAY8);
  const uint8_t b[3] = {10, 20, 200}, a[3] = {255, 255, 0};
  for (int32_t x = 0; x < 3; ++x) {
    img.Pixel(x, 0)[0] = b[x];
    img.Pixel(x, 0)[3] = 77;
    w.Pixel(x, 0)[3] = a[x];
    g.Pixel(x, 0)[0] = a[x];
  }
  Image img2 = img;
  const ImageView wv = w.View(), gv = g.View();
  ASSERT_EQ(box_blur_rows_plain(img.View(), &wv, 2, Whole(img)), 0);
  ASSERT_EQ(box_blur_rows(img2.View(), &gv, 2, Whole(img2), test::HasSse41() ? 5 : 0), 0);
  for (Image* im : {&img, &img2}) {
    EXPECT_EQ(im->Pixel(0, 0)[0], 15);
    EXPECT_EQ(im->Pixel(1, 0)[0], 15);
    EXPECT_EQ(im->Pixel(2, 0)[0], 20);
    EXPECT_EQ(im->Pixel(2, 0)[3], 77);
  }
  Image zero(3, 1), img3(3, 1);
  img3.FillRandom(4);
  const Image before = img3;
  const ImageView zv = zero.View();
  ASSERT_EQ(box_blur_cols_plain(img3.View(), &zv, 1, Whole(img3)), 0);
  ASSERT_EQ(box_blur_rows_plain(img3.View(), &zv, 3, Whole(img3)), 0);
  EXPECT_EQ(img3, before);
}

// --- Reference: the plain window mean, computed directly --------------------------------------

// Expected values of one channel line from the exact integer sum over the cut window: a float
// quotient for bytes, a double one for GRAY32_ALT.
std::vector<uint32_t> RefLine(const std::vector<uint32_t>& x, int32_t r, bool wide) {
  const int32_t n = int32_t(x.size());
  std::vector<uint32_t> out(x.size());
  std::vector<uint64_t> before(x.size() + 1, 0);  // before[k] = x[0] + .. + x[k-1]
  for (size_t k = 0; k < x.size(); ++k) before[k + 1] = before[k] + x[k];
  for (int32_t i = 0; i < n; ++i) {
    const int32_t lo = std::max<int64_t>(0, int64_t(i) - (r - 1));
    const int32_t hi = std::min<int64_t>(n - 1, int64_t(i) + (r - 1));
    const uint64_t sum = before[size_t(hi) + 1] - before[size_t(lo)];
    const double q = wide ? double(sum) / double(hi - lo + 1)
                          : double(float(sum) / float(hi - lo + 1));
    const double d = q + 0.5;
    out[size_t(i)] = uint32_t(d);
  }
  return out;
}

// The whole image blurred by RefLine along rows or columns, every byte channel but alpha.
void RefBlur(Image& img, int32_t r, bool rows) {
  const int32_t chans = img.format == PIXEL_BGRA32 ? 3 : 1;
  const int32_t lines = rows ? img.height : img.width, n = rows ? img.width : img.height;
  for (int32_t l = 0; l < lines; ++l)
    for (int32_t c = 0; c < chans; ++c) {
      std::vector<uint32_t> x(size_t(n), 0);
      for (int32_t i = 0; i < n; ++i) {
        const uint8_t* p = rows ? img.Pixel(i, l) : img.Pixel(l, i);
        if (img.format == PIXEL_GRAY32_ALT)
          std::memcpy(&x[size_t(i)], p, 4);
        else
          x[size_t(i)] = p[c];
      }
      const std::vector<uint32_t> y = RefLine(x, r, img.format == PIXEL_GRAY32_ALT);
      for (int32_t i = 0; i < n; ++i) {
        uint8_t* p = rows ? img.Pixel(i, l) : img.Pixel(l, i);
        if (img.format == PIXEL_GRAY32_ALT)
          std::memcpy(p, &y[size_t(i)], 4);
        else
          p[c] = uint8_t(std::min<uint32_t>(y[size_t(i)], 255));
      }
    }
}

TEST(BoxBlurReference, RingAndLongRadiiMatchWindowMean) {
  // 7 x 5 lines: radii up to 4 use the ring; 5 and up (and far past the line) the long rule.
  for (uint32_t fmt : {PIXEL_BGRA32, PIXEL_GRAY8, PIXEL_GRAY32_ALT}) {
    for (int32_t r : {1, 2, 3, 4, 5, 6, 7, 9, 40, 1000000}) {
      for (bool rows : {true, false}) {
        SCOPED_TRACE(testing::Message() << "fmt " << fmt << " r " << r << " rows " << rows);
        Image img(7, 5, fmt);
        img.FillRandom(uint32_t(r * 7 + fmt));
        Image want = img;
        RefBlur(want, r, rows);
        const BlurFn fn = rows ? box_blur_rows_plain : box_blur_cols_plain;
        ASSERT_EQ(fn(img.View(), nullptr, r, Whole(img)), 0);
        EXPECT_EQ(img, want);
      }
    }
  }
}

// Wide and tall images: the vertical pass works on row segments (1024 BGRA or 4096 GRAY8
// columns at most, fewer when the ring of saved rows grows long), so these cross segments.
TEST(BoxBlurReference, SegmentsOfWideAndTallImages) {
  struct Case { int32_t w, h; uint32_t fmt; int32_t r; };
  const Case cases[] = {{1100, 9, PIXEL_BGRA32, 30},   {1100, 9, PIXEL_BGRA32, 5},
                        {4200, 4, PIXEL_GRAY8, 3},     {4100, 5, PIXEL_GRAY8, 1000000},
                        {70, 3000, PIXEL_GRAY8, 1000000}, {37, 3000, PIXEL_BGRA32, 700},
                        {9, 1100, PIXEL_BGRA32, 30}};
  for (const Case& c : cases)
    for (bool rows : {true, false})
      for (BlurFn fn : {box_blur_rows_plain, box_blur_cols_plain, box_blur_rows_sse41,
                        box_blur_cols_sse41}) {
        const bool fast = fn == box_blur_rows_sse41 || fn == box_blur_cols_sse41;
        if (fast && !test::HasSse41()) continue;
        if (rows != (fn == box_blur_rows_plain || fn == box_blur_rows_sse41)) continue;
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " fmt " << c.fmt << " r " << c.r
                                        << (rows ? " rows" : " cols") << (fast ? " fast" : ""));
        Image img(c.w, c.h, c.fmt, 3);
        img.FillRandom(uint32_t(c.w + c.h + c.r));
        Image want = img;
        RefBlur(want, c.r, rows);
        ASSERT_EQ(fn(img.View(), nullptr, c.r, Whole(img)), 0);
        EXPECT_TRUE(img == want);
      }
}

// The float forms follow the ring form's order of float operations exactly; this is that
// order written out from its description, one float lane at a time.
std::vector<float> RefFloatLine(const std::vector<float>& x, int32_t r) {
  const int32_t n = int32_t(x.size()), m = std::min(r, n);
  std::vector<float> out(x.size());
  float s = x[0];
  for (int32_t k = 1; k < m; ++k) s += x[size_t(k)];
  out[0] = s / float(m);
  if (2 * int64_t(r) - 1 <= n) {
    for (int32_t i = 1; i < r; ++i) {
      s += x[size_t(i + r - 1)];
      out[size_t(i)] = s / float(r + i);
    }
    for (int32_t i = r; i <= n - r; ++i) {
      s = s - x[size_t(i - r)] + x[size_t(i + r - 1)];
      out[size_t(i)] = s / float(2 * r - 1);
    }
    for (int32_t i = n - r + 1; i < n; ++i) {
      s -= x[size_t(i - r)];
      out[size_t(i)] = s / float(n - 1 - i + r);
    }
    return out;
  }
  int32_t count = m;
  for (int32_t i = 1; i < n; ++i) {
    if (i <= n - r) {
      s += x[size_t(i + r - 1)];
      ++count;
    } else if (i >= r) {
      s -= x[size_t(i - r)];
      --count;
    }
    out[size_t(i)] = s / float(count);
  }
  return out;
}

void RefFloatBlur(Image& img, int32_t r, bool rows) {
  const int32_t lanes = int32_t(BytesPerPixel(img.format)) / 4;
  const int32_t lines = rows ? img.height : img.width, n = rows ? img.width : img.height;
  for (int32_t l = 0; l < lines; ++l)
    for (int32_t c = 0; c < lanes; ++c) {
      std::vector<float> x(size_t(n), 0.0f);
      for (int32_t i = 0; i < n; ++i) x[size_t(i)] = rows ? GetF(img, i, l, c) : GetF(img, l, i, c);
      const std::vector<float> y = RefFloatLine(x, r);
      for (int32_t i = 0; i < n; ++i) {
        if (rows)
          SetF(img, i, l, c, y[size_t(i)]);
        else
          SetF(img, l, i, c, y[size_t(i)]);
      }
    }
}

TEST(BoxBlurReference, FloatsKeepTheRingFormOrder) {
  struct Case { int32_t w, h; uint32_t fmt; };
  // FLOAT96 row segments hold 341 columns: 700 crosses two; 3000 rows with a long radius
  // shrink them to 16.
  const Case cases[] = {{700, 6, PIXEL_FLOAT96}, {6, 700, PIXEL_FLOAT96}, {1030, 5, PIXEL_GRAYF32},
                        {40, 3000, PIXEL_FLOAT96}, {7, 5, PIXEL_GRAYF32}};
  for (const Case& c : cases)
    for (int32_t r : {1, 2, 3, 60, 349, 351, 1000000}) {
      if (c.h == 3000 && r != 1000000 && r != 60) continue;
      for (bool rows : {true, false})
        for (bool fast : {false, true}) {
          if (fast && !test::HasSse41()) continue;
          SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " fmt " << c.fmt << " r " << r
                                          << (rows ? " rows" : " cols") << (fast ? " fast" : ""));
          Image img(c.w, c.h, c.fmt, 2);
          FillFloats(img, uint32_t(c.w * 3 + c.h + r));
          Image want = img;
          RefFloatBlur(want, r, rows);
          const BlurFn fn = rows ? (fast ? box_blur_rows_sse41 : box_blur_rows_plain)
                                 : (fast ? box_blur_cols_sse41 : box_blur_cols_plain);
          ASSERT_EQ(fn(img.View(), nullptr, r, Whole(img)), 0);
          EXPECT_TRUE(img == want);
        }
    }
}

TEST(BoxBlurReference, LongRadiusFloatsAreWindowMeans) {
  Image img(6, 1, PIXEL_GRAYF32);
  for (int32_t x = 0; x < 6; ++x) SetF(img, x, 0, 0, float(1 << x));  // 1 2 4 8 16 32
  ASSERT_EQ(box_blur_rows_plain(img.View(), nullptr, 5, Whole(img)), 0);
  // r = 5 spans 4 either side: [0,4] [0,5] [0,5] [0,5] [0,5] [1,5].
  const float want[6] = {31.0f / 5, 63.0f / 6, 63.0f / 6, 63.0f / 6, 63.0f / 6, 62.0f / 5};
  for (int32_t x = 0; x < 6; ++x) EXPECT_FLOAT_EQ(GetF(img, x, 0), want[x]) << x;
}

// --- Properties and checks ------------------------------------------------------------------

TEST(BoxBlurProperties, RadiusOneIsIdentityAndConstantStaysConstant) {
  for (uint32_t fmt : {PIXEL_BGRA32, PIXEL_GRAY8, PIXEL_GRAYF32, PIXEL_FLOAT96, PIXEL_GRAY32_ALT}) {
    Image img(13, 9, fmt, 5);
    Fill(img, 11);
    const Image before = img;
    for (BlurFn fn : {box_blur_rows_plain, box_blur_cols_plain, box_blur_rows_sse41,
                      box_blur_cols_sse41}) {
      if ((fn == box_blur_rows_sse41 || fn == box_blur_cols_sse41) && !test::HasSse41()) continue;
      ASSERT_EQ(fn(img.View(), nullptr, 1, Whole(img)), 0);
      EXPECT_EQ(img, before) << "format " << fmt;
    }
  }
  Image flat(29, 17, PIXEL_BGRA32, 3);
  for (int32_t y = 0; y < 17; ++y)
    for (int32_t x = 0; x < 29; ++x) {
      uint8_t* p = flat.Pixel(x, y);
      p[0] = 77, p[1] = 0, p[2] = 255, p[3] = uint8_t(x * 9 + y);
    }
  const Image before = flat;
  for (int32_t r : {2, 8, 9, 15, 100})
    for (int32_t level : {0, 5}) {
      if (level == 5 && !test::HasSse41()) continue;
      ASSERT_EQ(box_blur_rows(flat.View(), nullptr, r, Whole(flat), level), 0);
      ASSERT_EQ(box_blur_cols(flat.View(), nullptr, r, Whole(flat), level), 0);
      EXPECT_EQ(flat, before) << r;
    }
}

TEST(BoxBlurChecks, CodesInOrderAndImageUntouched) {
  Image img(8, 8);
  img.FillRandom(3);
  const Image before = img;
  ImageView v = img.View();
  ImageView null_view = v;
  null_view.data = nullptr;
  ImageView gray16 = v;
  gray16.format = PIXEL_GRAY16;
  ImageView bgr = v;
  bgr.format = PIXEL_BGR24;
  const ProcessRect all = Whole(img);
  for (int32_t level : {0, 5}) {
    if (level == 5 && !test::HasSse41()) continue;
    for (bool rows : {true, false}) {
      auto run = [&](const ImageView& im, const ImageView* w, int32_t r, const ProcessRect& s) {
        return rows ? box_blur_rows(im, w, r, s, level) : box_blur_cols(im, w, r, s, level);
      };
      EXPECT_EQ(run(null_view, nullptr, -1, all), kPointer);
      EXPECT_EQ(run(v, &null_view, 2, all), kPointer);
      EXPECT_EQ(run(gray16, nullptr, -1, all), kNotImpl);
      EXPECT_EQ(run(bgr, nullptr, 2, all), kNotImpl);
      EXPECT_EQ(run(gray16, &v, 2, all), kNotImpl);  // weighted needs BGRA
      EXPECT_EQ(run(v, &gray16, 2, all), kNotImpl);  // and a BGRA or GRAY8 weight
      EXPECT_EQ(run(v, nullptr, -1, all), kInvalidArg);
      EXPECT_EQ(run(v, nullptr, 0, all), 0);
      EXPECT_EQ(run(v, nullptr, 3, ProcessRect{4, 4, 4, 8}), 0);    // empty
      EXPECT_EQ(run(v, nullptr, 3, ProcessRect{8, 0, 20, 8}), 0);   // outside
      EXPECT_EQ(run(v, nullptr, 3, ProcessRect{5, 9, 2, 20}), 0);   // inverted
      EXPECT_EQ(img, before);
    }
  }
}

// A strip's line is only its own extent; pixels outside it stay; origins place the view.
TEST(BoxBlurStrips, LineIsTheStripExtentInStageCoordinates) {
  Image img(20, 12);
  img.FillRandom(5);
  Image want = img;
  // Rows 3..8 between columns 4..15, as its own 11 x 5 image.
  Image part(11, 5);
  for (int32_t y = 0; y < 5; ++y) std::memcpy(part.Pixel(0, y), img.Pixel(4, y + 3), 44);
  RefBlur(part, 3, true);
  for (int32_t y = 0; y < 5; ++y) std::memcpy(want.Pixel(4, y + 3), part.Pixel(0, y), 44);
  // The view sits at stage (100, 50).
  const ProcessRect strip{104, 53, 115, 58};
  Image fast = img;
  ASSERT_EQ(box_blur_rows_plain(img.View(100, 50), nullptr, 3, strip), 0);
  EXPECT_EQ(img, want);
  // A strip reaching past every edge is cut to the image: the same as the whole image.
  Image big = img, whole = img;
  ASSERT_EQ(box_blur_cols_plain(big.View(100, 50), nullptr, 4, ProcessRect{90, 0, 400, 300}), 0);
  ASSERT_EQ(box_blur_cols_plain(whole.View(), nullptr, 4, Whole(whole)), 0);
  EXPECT_EQ(big, whole);
  if (!test::HasSse41()) return;
  ASSERT_EQ(box_blur_rows_sse41(fast.View(100, 50), nullptr, 3, strip), 0);
  EXPECT_EQ(fast, want);
  Image big_fast = fast;
  ASSERT_EQ(box_blur_cols_sse41(big_fast.View(100, 50), nullptr, 4, ProcessRect{90, 0, 400, 300}),
            0);
  EXPECT_EQ(big_fast, whole);
}

// --- Plain against SSE4.1 -------------------------------------------------------------------

void ExpectFormsAgree(const Image& src, int32_t r, bool rows, const ProcessRect& strip,
                      const ImageView* weight = nullptr) {
  Image a = src, b = src;
  const int32_t ca = rows ? box_blur_rows_plain(a.View(), weight, r, strip)
                          : box_blur_cols_plain(a.View(), weight, r, strip);
  const int32_t cb = rows ? box_blur_rows_sse41(b.View(), weight, r, strip)
                          : box_blur_cols_sse41(b.View(), weight, r, strip);
  ASSERT_EQ(ca, cb);
  ASSERT_TRUE(a == b) << "format " << src.format << " " << src.width << "x" << src.height
                      << " stride " << src.stride << " r " << r << (rows ? " rows" : " cols");
}

TEST(BoxBlurFast, EveryWidthFormatAndRadius) {
  if (!test::HasSse41()) GTEST_SKIP() << "no SSE4.1";
  for (uint32_t fmt : {PIXEL_BGRA32, PIXEL_FLOAT96, PIXEL_GRAYF32, PIXEL_GRAY8, PIXEL_GRAY32_ALT}) {
    for (int32_t w = 1; w <= 67; ++w) {
      Image img(w, 5, fmt, w % 3);  // odd strides too
      Fill(img, uint32_t(w * 31 + fmt));
      for (int32_t r : {1, 2, 3, 5, 8, (w + 1) / 2, w / 2 + 1, w, 40}) {
        if (r < 1) continue;
        ExpectFormsAgree(img, r, true, Whole(img));
        Image tall(5, w, fmt, 7);  // the same lengths down columns
        Fill(tall, uint32_t(w * 17 + fmt));
        ExpectFormsAgree(tall, r, false, Whole(tall));
        ExpectFormsAgree(img, r, false, Whole(img));
      }
    }
  }
}

TEST(BoxBlurFast, OddSizesRadiiAndWeighted) {
  if (!test::HasSse41()) GTEST_SKIP() << "no SSE4.1";
  const int32_t sizes[][2] = {{1, 1}, {3, 2}, {5, 7}, {31, 29}, {64, 3}};
  for (const auto& s : sizes)
    for (uint32_t fmt : {PIXEL_BGRA32, PIXEL_FLOAT96, PIXEL_GRAY8})
      for (int32_t r = 1; r <= 40; ++r) {
        Image img(s[0], s[1], fmt, 1);
        Fill(img, uint32_t(r + 100 * fmt));
        ExpectFormsAgree(img, r, true, Whole(img));
        ExpectFormsAgree(img, r, false, Whole(img));
      }
  Image img(37, 23), w(37, 23, PIXEL_GRAY8);
  img.FillRandom(8);
  w.FillRandom(9);
  const ImageView wv = w.View();
  for (int32_t r : {1, 4, 12, 30}) {
    ExpectFormsAgree(img, r, true, Whole(img), &wv);
    ExpectFormsAgree(img, r, false, Whole(img), &wv);
  }
}

TEST(BoxBlurFast, FullHdFrameRadius30) {
  if (!test::HasSse41()) GTEST_SKIP() << "no SSE4.1";
  Image img(1921, 1081);
  img.FillRandom(21);
  ExpectFormsAgree(img, 30, true, Whole(img));
  ExpectFormsAgree(img, 30, false, Whole(img));
  Image f(481, 271, PIXEL_FLOAT96, 4);
  FillFloats(f, 22);
  ExpectFormsAgree(f, 17, true, Whole(f));
  ExpectFormsAgree(f, 17, false, Whole(f));
}

// The fast form rounds bytes as trunc(q + 0.5f) in float. The plain form's
// trunc(double(q) + 0.5) differs from it at one float only, q = 0.5 - 2^-25, which no quotient
// of an integer sum by a count below 11 million can be.
TEST(BoxBlurFastRounding, OnlyTheFloatBelowOneHalfDiffers) {
  if (!test::HasSse41()) GTEST_SKIP() << "no SSE4.1";
  const float below_half = 0.5f - 1.0f / 33554432.0f;  // 0.5 - 2^-25: float 1, double 0
  auto bits = [](float f) {
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
  };
  // Every float in [0.25, 2) (the binades where adding 0.5 can round), then the thousand
  // floats either side of every k + 0.5 up to 255.5, in chunks.
  std::vector<uint32_t> ranges{bits(0.25f), bits(2.0f)};
  for (int32_t k = 2; k <= 255; ++k)
    ranges.insert(ranges.end(), {bits(k + 0.5f) - 1000, bits(k + 0.5f) + 1000});
  std::vector<float> q;
  std::vector<int32_t> got;
  int64_t others = 0, checked = 0;
  for (size_t g = 0; g < ranges.size(); g += 2)
    for (uint32_t u = ranges[g]; u < ranges[g + 1];) {
      q.clear();
      for (; u < ranges[g + 1] && q.size() < 65536; ++u) {
        float f;
        std::memcpy(&f, &u, 4);
        q.push_back(f);
      }
      got.resize(q.size());
      detail::BoxBlurRoundBytesSse41(q.data(), got.data(), q.size());
      for (size_t k = 0; k < q.size(); ++k) {
        const int32_t plain = int32_t(double(q[k]) + 0.5);
        if (q[k] == below_half)
          EXPECT_EQ(got[k] - plain, 1);
        else
          others += got[k] != plain;
      }
      checked += int64_t(q.size());
    }
  EXPECT_EQ(others, 0);
  EXPECT_GT(checked, 14000000);
}

// Every quotient S / count that a window of up to 257 bytes gives (S = 0 .. 255 x count), and
// those of the largest window the fast form takes, 65793 samples.
TEST(BoxBlurFastRounding, EveryQuotientOfByteSumsRoundsAsThePlainForm) {
  if (!test::HasSse41()) GTEST_SKIP() << "no SSE4.1";
  std::vector<float> q;
  std::vector<int32_t> got;
  auto check = [&](int32_t count) {
    const int32_t top = 255 * count;
    q.resize(size_t(top) + 1);
    for (int32_t s = 0; s <= top; ++s) q[size_t(s)] = float(s) / float(count);
    got.resize(q.size());
    detail::BoxBlurRoundBytesSse41(q.data(), got.data(), q.size());
    for (int32_t s = 0; s <= top; ++s)
      if (got[size_t(s)] != int32_t(double(q[size_t(s)]) + 0.5))
        return ::testing::AssertionFailure() << s << " / " << count;
    return ::testing::AssertionSuccess();
  };
  for (int32_t count = 1; count <= 257; ++count) ASSERT_TRUE(check(count));
  ASSERT_TRUE(check(65793));
}

// Byte sums stay exact in float up to 2^24, a window of 65793 bytes of 255; the fast form
// takes windows up to that size and leaves longer ones to the plain code.
TEST(BoxBlurFast, ExactByteSumLimit) {
  if (!test::HasSse41()) GTEST_SKIP() << "no SSE4.1";
  for (int32_t n : {65793, 65794}) {
    Image col(1, n, PIXEL_GRAY8), row(n, 1, PIXEL_BGRA32);
    col.FillRandom(uint32_t(n));
    row.FillRandom(uint32_t(n + 1));
    ExpectFormsAgree(col, 40000, false, Whole(col));
    ExpectFormsAgree(row, 40000, true, Whole(row));
    // All 255: the largest sums, and a constant line stays constant.
    col.Fill(255);
    const Image before = col;
    ASSERT_EQ(box_blur_cols_sse41(col.View(), nullptr, 40000, Whole(col)), 0);
    EXPECT_TRUE(col == before);
  }
}

// Strips of many heights (rows) or widths (columns), each form on its own, against one call.
TEST(BoxBlurFast, StripsMatchAWholeImageCall) {
  for (uint32_t fmt : {PIXEL_BGRA32, PIXEL_FLOAT96, PIXEL_GRAY8}) {
    Image src(53, 41, fmt, 2);
    Fill(src, 30 + fmt);
    for (BlurFn fn : {box_blur_rows_plain, box_blur_rows_sse41, box_blur_cols_plain,
                      box_blur_cols_sse41}) {
      if ((fn == box_blur_rows_sse41 || fn == box_blur_cols_sse41) && !test::HasSse41()) continue;
      const bool rows = fn == box_blur_rows_plain || fn == box_blur_rows_sse41;
      for (int32_t r : {3, 19, 30}) {
        Image whole = src, cut = src;
        ASSERT_EQ(fn(whole.View(), nullptr, r, Whole(whole)), 0);
        const int32_t extent = rows ? src.height : src.width;
        for (int32_t at = 0, size = 1; at < extent; at += size, size = size % 7 + 1) {
          const uint32_t lo = uint32_t(at), hi = uint32_t(std::min(extent, at + size));
          const ProcessRect s = rows ? ProcessRect{0, lo, uint32_t(src.width), hi}
                                     : ProcessRect{lo, 0, hi, uint32_t(src.height)};
          ASSERT_EQ(fn(cut.View(), nullptr, r, s), 0);
        }
        EXPECT_TRUE(whole == cut) << "fmt " << fmt << " r " << r << (rows ? " rows" : " cols");
      }
    }
  }
}

}  // namespace
}  // namespace Vantyx
