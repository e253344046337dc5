// Box blur: lines worked by hand, the window mean and the float running sum as references over
// ring and long radii and wide and tall images, the checks, the fast form's rounding and
// its exact-sum limit, and plain against fast.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "harness.h"
#include "imageops/box_blur.h"
#include "imageops/box_blur_internal.h"

namespace Vantyx {
namespace {

using test::Image;
using test::Whole;
using BlurFn = int32_t (*)(const ImageView&, const ImageView*, int32_t, const ProcessRect&);

struct Form {
  const char* name;
  BlurFn fn;
  bool rows, fast;
};
// The forms this processor runs.
std::vector<Form> Forms() {
  std::vector<Form> f{{"rows plain", box_blur_rows_plain, true, false},
                      {"cols plain", box_blur_cols_plain, false, false}};
  if (test::HasSse41()) {
    f.push_back({"rows fast", box_blur_rows_sse41, true, true});
    f.push_back({"cols fast", box_blur_cols_sse41, false, true});
  }
  return f;
}

// Finite floats in [0, 4) (random bits would give NaNs).
void FillFloats(Image& img, uint32_t seed) {
  img.FillRandom(seed);
  for (int32_t y = 0; y < img.height; ++y)
    for (int32_t k = 0; k < img.width * int32_t(BytesPerPixel(img.format)) / 4; ++k) {
      uint8_t* p = img.Pixel(0, y) + 4 * k;
      const float f = float(p[0] | (p[1] << 8)) / 16384.0f;
      std::memcpy(p, &f, 4);
    }
}

// Sample i of a line laid along a row (rows) or down a column.
uint8_t* At(Image& img, bool rows, int32_t i) { return rows ? img.Pixel(i, 0) : img.Pixel(0, i); }

// ---- Lines worked by hand ---------------------------------------------------------------------

// r = 2 on 0, 3, 6, 9: windows [0,1], [0,2], [1,3], [2,3] give 1.5, 3, 6, 7.5; as bytes,
// trunc(q + 0.5) = 2, 3, 6, 8. Alpha stays. r = 5 on 1, 2, 4, 8, 16, 32 spans four either
// side: [0,4] [0,5] [0,5] [0,5] [0,5] [1,5]. Both float lines lie in one image: a strip's
// lines end at the strip's edges.
TEST(BoxBlurHand, LinesInEveryFormAndDirection) {
  const float want[10] = {1.5f, 3, 6, 7.5f, 31.0f / 5, 63.0f / 6, 63.0f / 6, 63.0f / 6, 63.0f / 6, 62.0f / 5};
  // B 0 3 6 9; G 255 252 249 246 (means 253.5 .. 247.5); R 0 100 0 100 (50, 33.3, 66.7).
  const uint8_t in[4][4] = {{0, 255, 0, 9}, {3, 252, 100, 200}, {6, 249, 0, 0}, {9, 246, 100, 255}};
  const uint8_t out[4][4] = {{2, 254, 50, 9}, {3, 252, 33, 200}, {6, 249, 67, 0}, {8, 248, 50, 255}};
  for (const Form& f : Forms()) {
    Image gray(f.rows ? 10 : 1, f.rows ? 1 : 10, PIXEL_GRAYF32), bgra(f.rows ? 4 : 1, f.rows ? 1 : 4);
    for (int32_t i = 0; i < 10; ++i) {
      const float v = i < 4 ? 3.0f * i : float(1 << (i - 4));
      std::memcpy(At(gray, f.rows, i), &v, 4);
      if (i < 4) std::memcpy(At(bgra, f.rows, i), in[i], 4);
    }
    ASSERT_EQ(f.fn(bgra.View(), nullptr, 2, Whole(bgra)), 0);
    ASSERT_EQ(f.fn(gray.View(), nullptr, 2, f.rows ? ProcessRect{0, 0, 4, 1} : ProcessRect{0, 0, 1, 4}), 0);
    ASSERT_EQ(f.fn(gray.View(), nullptr, 5, f.rows ? ProcessRect{4, 0, 10, 1} : ProcessRect{0, 4, 1, 10}), 0);
    for (int32_t i = 0; i < 10; ++i) {
      float g;
      std::memcpy(&g, At(gray, f.rows, i), 4);
      EXPECT_FLOAT_EQ(g, want[i]) << f.name << " " << i;
      EXPECT_TRUE(i >= 4 || std::equal(out[i], out[i] + 4, At(bgra, f.rows, i))) << f.name << " " << i;
    }
  }
}

// Weights (second image's alpha or byte) 255, 255, 0 over B = 10, 20, 200 with r = 2: pixels
// 0 and 1 see (10 + 20) / 2 = 15, pixel 2 only 20. A window weighing 0 keeps its pixel.
TEST(BoxBlurHand, WeightedMeanUsesTheSecondImage) {
  for (const Form& f : Forms()) {
    Image img(f.rows ? 3 : 1, f.rows ? 1 : 3), w = img, g(img.width, img.height, PIXEL_GRAY8);
    const uint8_t b[3] = {10, 20, 200}, a[3] = {255, 255, 0};
    for (int32_t i = 0; i < 3; ++i) {
      At(img, f.rows, i)[0] = b[i], At(img, f.rows, i)[3] = 77;
      At(w, f.rows, i)[3] = a[i], At(g, f.rows, i)[0] = a[i];
    }
    for (const ImageView& weight : {w.View(), g.View()}) {
      Image out = img;
      ASSERT_EQ(f.fn(out.View(), &weight, 2, Whole(out)), 0);
      for (int32_t i = 0; i < 3; ++i) EXPECT_EQ(At(out, f.rows, i)[0], i < 2 ? 15 : 20) << f.name;
      EXPECT_EQ(At(out, f.rows, 2)[3], 77) << f.name;
    }
    Image zero(img.width, img.height);
    const ImageView none = zero.View();
    Image out = img;
    ASSERT_EQ(f.fn(out.View(), &none, 3, Whole(out)), 0);
    EXPECT_EQ(out, img) << f.name;
  }
}

// ---- References -------------------------------------------------------------------------------

// Bytes: the exact integer sum over the cut window, quotient in float (GRAY32_ALT: in double),
// rounded half up.
std::vector<uint32_t> MeanLine(const std::vector<uint32_t>& x, int32_t r, bool wide) {
  const int32_t n = int32_t(x.size());
  std::vector<uint32_t> out(x.size());
  std::vector<uint64_t> before(x.size() + 1, 0);  // before[k] = x[0] + .. + x[k - 1]
  for (size_t k = 0; k < x.size(); ++k) before[k + 1] = before[k] + x[k];
  for (int32_t i = 0; i < n; ++i) {
    const int32_t lo = int32_t(std::max<int64_t>(0, int64_t(i) - (r - 1)));
    const int32_t hi = int32_t(std::min<int64_t>(n - 1, int64_t(i) + (r - 1)));
    const uint64_t sum = before[size_t(hi) + 1] - before[size_t(lo)];
    const double q = wide ? double(sum) / (hi - lo + 1) : double(float(sum) / float(hi - lo + 1));
    out[size_t(i)] = uint32_t(q + 0.5);
  }
  return out;
}

// Floats: the ring form's order of float operations, written out from its description.
std::vector<float> RingLine(const std::vector<float>& x, int32_t r) {
  const int32_t n = int32_t(x.size()), m = std::min(r, n);
  std::vector<float> out(x.size());
  float s = x[0];
  for (int32_t k = 1; k < m; ++k) s += x[size_t(k)];
  out[0] = s / float(m);
  const bool ring = 2 * int64_t(r) - 1 <= n;
  for (int32_t i = 1, count = m; i < n; ++i) {
    if (ring && i >= r && i <= n - r) {
      s = s - x[size_t(i - r)] + x[size_t(i + r - 1)];
    } else if (i <= n - r) {
      s += x[size_t(i + r - 1)], ++count;
    } else if (i >= r) {
      s -= x[size_t(i - r)], --count;
    }
    out[size_t(i)] = s / float(ring ? std::min({r + i, 2 * r - 1, n - 1 - i + r}) : count);
  }
  return out;
}

// img blurred along rows or columns by the reference of its format (alpha of BGRA32 kept).
void Reference(Image& img, int32_t r, bool rows) {
  const bool floats = img.format == PIXEL_GRAYF32 || img.format == PIXEL_FLOAT96;
  const int32_t lanes = img.format == PIXEL_FLOAT96 || img.format == PIXEL_BGRA32 ? 3 : 1;
  const int32_t lines = rows ? img.height : img.width, n = rows ? img.width : img.height;
  for (int32_t l = 0; l < lines; ++l)
    for (int32_t c = 0; c < lanes; ++c) {
      std::vector<uint32_t> x(size_t(n), 0);
      std::vector<float> xf(size_t(n), 0.0f);
      for (int32_t i = 0; i < n; ++i) {
        const uint8_t* p = rows ? img.Pixel(i, l) : img.Pixel(l, i);
        if (floats) std::memcpy(&xf[size_t(i)], p + 4 * c, 4);
        else if (img.format == PIXEL_GRAY32_ALT) std::memcpy(&x[size_t(i)], p, 4);
        else x[size_t(i)] = p[c];
      }
      const std::vector<uint32_t> y = MeanLine(x, r, img.format == PIXEL_GRAY32_ALT);
      const std::vector<float> yf = floats ? RingLine(xf, r) : xf;
      for (int32_t i = 0; i < n; ++i) {
        uint8_t* p = rows ? img.Pixel(i, l) : img.Pixel(l, i);
        if (floats) std::memcpy(p + 4 * c, &yf[size_t(i)], 4);
        else if (img.format == PIXEL_GRAY32_ALT) std::memcpy(p, &y[size_t(i)], 4);
        else p[c] = uint8_t(std::min<uint32_t>(y[size_t(i)], 255));
      }
    }
}

// Radii up to 4 take the ring on 7-sample lines, 5 and up the long rule. The vertical pass
// works on row segments (1024 BGRA, 4096 GRAY8 or 341 FLOAT96 columns at most, fewer when the
// ring of saved rows grows long), so the wide and tall cases cross segments.
TEST(BoxBlurReference, EveryFormMatchesTheReference) {
  const struct {
    int32_t w, h;
    uint32_t fmt;
    std::vector<int32_t> radii;
  } cases[] = {
      {7, 5, PIXEL_BGRA32, {1, 2, 3, 4, 5, 6, 7, 9, 40, 1000000}},
      {7, 5, PIXEL_GRAY8, {1, 2, 4, 5, 9, 1000000}},
      {7, 5, PIXEL_GRAY32_ALT, {1, 3, 4, 5, 1000000}},
      {7, 5, PIXEL_GRAYF32, {1, 2, 3, 4, 5, 7, 60, 1000000}},
      {1100, 9, PIXEL_BGRA32, {5, 30}},
      {9, 1100, PIXEL_BGRA32, {30}},
      {4200, 4, PIXEL_GRAY8, {3}},
      {4100, 5, PIXEL_GRAY8, {1000000}},
      {70, 3000, PIXEL_GRAY8, {1000000}},
      {37, 3000, PIXEL_BGRA32, {700}},
      {700, 6, PIXEL_FLOAT96, {2, 60, 349, 351}},
      {6, 700, PIXEL_FLOAT96, {3, 351, 1000000}},
      {1030, 5, PIXEL_GRAYF32, {60, 1000000}},
      {40, 3000, PIXEL_FLOAT96, {60, 1000000}},
  };
  for (const auto& c : cases)
    for (int32_t r : c.radii) {
      const bool floats = c.fmt == PIXEL_GRAYF32 || c.fmt == PIXEL_FLOAT96;
      Image src(c.w, c.h, c.fmt, floats ? 8 : 3);
      if (floats) FillFloats(src, uint32_t(c.w + r));
      else src.FillRandom(uint32_t(c.w * 7 + c.h + r));
      for (const Form& f : Forms()) {
        Image got = src, want = src;
        Reference(want, r, f.rows);
        ASSERT_EQ(f.fn(got.View(), nullptr, r, Whole(got)), 0);
        EXPECT_TRUE(got == want) << f.name << ", format " << c.fmt << ", " << c.w << "x" << c.h
                                 << ", r " << r;
      }
    }
}

TEST(BoxBlurChecks, CodesInOrderImageUntouched) {
  Image img(8, 8);
  img.FillRandom(3);
  const Image before = img;
  ImageView v = img.View(), null_view = v, gray16 = v, bgr = v;
  null_view.data = nullptr;
  gray16.format = PIXEL_GRAY16;
  bgr.format = PIXEL_BGR24;
  const struct {
    const char* what;
    ImageView img;
    const ImageView* weight;
    int32_t radius;
    ProcessRect strip;
    int32_t want;
  } rows[] = {
      {"null before a negative radius", null_view, nullptr, -1, Whole(img), VX_E_POINTER},
      {"null weight", v, &null_view, 2, Whole(img), VX_E_POINTER},
      {"format before radius", gray16, nullptr, -1, Whole(img), VX_E_NOTIMPL},
      {"BGR24", bgr, nullptr, 2, Whole(img), VX_E_NOTIMPL},
      {"weighted needs BGRA32", gray16, &v, 2, Whole(img), VX_E_NOTIMPL},
      {"weight BGRA32 or GRAY8", v, &gray16, 2, Whole(img), VX_E_NOTIMPL},
      {"negative radius", v, nullptr, -1, Whole(img), VX_E_INVALIDARG},
      {"radius 0 does nothing", v, nullptr, 0, Whole(img), 0},
      {"empty strip", v, nullptr, 3, ProcessRect{4, 4, 4, 8}, 0},
      {"strip outside", v, nullptr, 3, ProcessRect{8, 0, 20, 8}, 0},
      {"inverted strip", v, nullptr, 3, ProcessRect{5, 9, 2, 20}, 0},
  };
  for (const Form& f : Forms())
    for (const auto& row : rows) {
      EXPECT_EQ(f.fn(row.img, row.weight, row.radius, row.strip), row.want) << f.name << ": " << row.what;
      EXPECT_EQ(img, before) << f.name << ": " << row.what;
    }
}

// ---- The fast form ----------------------------------------------------------------------------

// The fast form rounds bytes as trunc(q + 0.5f) in float: the same as the plain form's
// trunc(double(q) + 0.5) for every quotient S / count of byte sums, windows up to 257 bytes
// and the largest it takes, 65793.
TEST(BoxBlurFast, RoundsEveryQuotientOfByteSumsAsThePlainForm) {
  if (!test::HasSse41()) GTEST_SKIP() << "no SSE4.1";
  std::vector<float> q;
  std::vector<int32_t> got;
  for (int32_t count = 1; count <= 258; ++count) {
    const int32_t n = count == 258 ? 65793 : count;
    q.resize(size_t(255 * n) + 1);
    for (size_t s = 0; s < q.size(); ++s) q[s] = float(s) / float(n);
    got.resize(q.size());
    detail::BoxBlurRoundBytesSse41(q.data(), got.data(), q.size());
    for (size_t s = 0; s < q.size(); ++s)
      ASSERT_EQ(got[s], int32_t(double(q[s]) + 0.5)) << s << " / " << n;
  }
}

// Byte sums stay exact in float up to 2^24, a window of 65793 bytes of 255; the fast form
// takes windows up to that size and leaves longer ones, whose float running sums drift, to the
// plain code.
TEST(BoxBlurFast, WindowsPastTheExactSumLimitRunThePlainCode) {
  if (!test::HasSse41()) GTEST_SKIP() << "no SSE4.1";
  for (int32_t n : {65793, 200000})
    for (bool rows : {true, false}) {
      Image line(rows ? n : 1, rows ? 1 : n, rows ? PIXEL_BGRA32 : PIXEL_GRAY8);
      for (bool white : {false, true}) {
        if (white) {
          line.Fill(255);
        } else {
          line.FillRandom(uint32_t(n));
        }
        Image plain = line, fast = line;
        const int32_t r = n / 2;
        ASSERT_EQ((rows ? box_blur_rows_plain : box_blur_cols_plain)(plain.View(), nullptr, r, Whole(line)), 0);
        ASSERT_EQ((rows ? box_blur_rows_sse41 : box_blur_cols_sse41)(fast.View(), nullptr, r, Whole(line)), 0);
        EXPECT_TRUE(plain == fast) << n << (rows ? " rows" : " cols") << (white ? " white" : "");
      }
    }
}

// Radii around the line's length: the ring exactly fitting (2r - 1 = n), one past it, the
// whole line and beyond.
TEST(BoxBlurForms, FastMatchesPlain) {
  auto row = [](const char* name, bool rows, std::vector<std::vector<uint32_t>> formats) {
    test::KernelRow r(name, std::move(formats), [rows](test::Case& c) {
      const ProcessRect a = c.Area(0);
      const int32_t n = int32_t(rows ? a.right - a.left : a.bottom - a.top);
      const int32_t radius = c.Pick({1, 2, 3, 5, 8, (n + 1) / 2, n / 2 + 1, n, 40, c.Int(1, 3 * n)});
      const ImageView weight = c.Count() > 1 ? c.View(1) : ImageView{};
      const ImageView* w = c.Count() > 1 ? &weight : nullptr;
      return rows ? c.Form(box_blur_rows_plain, box_blur_rows_sse41)(c.View(0), w, radius, c.strip)
                  : c.Form(box_blur_cols_plain, box_blur_cols_sse41)(c.View(0), w, radius, c.strip);
    });
    return rows ? r : r.Columns();
  };
  const std::vector<uint32_t> all = {PIXEL_BGRA32, PIXEL_GRAY8, PIXEL_GRAYF32, PIXEL_FLOAT96,
                                     PIXEL_GRAY32_ALT};
  test::ExpectFormsAgree({row("box_blur_rows", true, {all}), row("box_blur_cols", false, {all}),
                          row("box_blur_rows weighted", true, {{PIXEL_BGRA32}, {PIXEL_BGRA32, PIXEL_GRAY8}}),
                          row("box_blur_cols weighted", false, {{PIXEL_BGRA32}, {PIXEL_BGRA32, PIXEL_GRAY8}})});
}

}  // namespace
}  // namespace Vantyx
