#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "imageops/copy_convert.h"
#include "test_support.h"

namespace Vantyx {
namespace {

using test::Image;
constexpr int32_t kNull = int32_t(0x80004003u);
constexpr int32_t kBadArg = int32_t(0x80070057u);

ProcessRect Whole(const Image& img) { return {0, 0, uint32_t(img.width), uint32_t(img.height)}; }

float FloatAt(Image& img, int32_t x, int32_t y, int c) {
  float f;
  std::memcpy(&f, img.Pixel(x, y) + 4 * c, 4);
  return f;
}
void SetFloat(Image& img, int32_t x, int32_t y, int c, float f) {
  std::memcpy(img.Pixel(x, y) + 4 * c, &f, 4);
}

TEST(CopyBlock, ChecksInOrder) {
  Image a(4, 4), f(4, 4, PIXEL_FLOAT96);
  ImageView null_view = a.View();
  null_view.data = nullptr;
  // Null wins over a step mismatch; a step mismatch wins over an empty strip.
  EXPECT_EQ(copy_block(null_view, f.View(), Whole(a)), kNull);
  EXPECT_EQ(copy_block(a.View(), null_view, Whole(a)), kNull);
  EXPECT_EQ(copy_block(a.View(), f.View(), ProcessRect{0, 2, 4, 2}), kBadArg);
  Image b(4, 4);
  b.Fill(9);
  a.FillRandom(1);
  EXPECT_EQ(copy_block(a.View(), b.View(), ProcessRect{0, 2, 4, 2}), 0);
  EXPECT_EQ(copy_block(a.View(), b.View(), ProcessRect{3, 0, 1, 4}), 0);
  for (uint8_t v : b.bytes) EXPECT_EQ(v, 9);
}

TEST(CopyBlock, EqualStepsCopyBytesAcrossFormats) {
  Image src(5, 3), dst(5, 3, PIXEL_GRAYF32);  // both four bytes a pixel
  src.FillRandom(2);
  ASSERT_EQ(copy_block(src.View(), dst.View(), Whole(src)), 0);
  EXPECT_EQ(src.bytes, dst.bytes);
}

TEST(CopyBlock, ClipsToBothViews) {
  // A 3x2 destination that holds only the rectangle (2,1)-(5,3) of a 7x5 frame, with row padding.
  Image src(7, 5), dst(3, 2, PIXEL_BGRA32, 5);
  src.FillRandom(3);
  dst.Fill(0xEE);
  ASSERT_EQ(copy_block(src.View(), dst.View(2, 1), Whole(src)), 0);
  for (int y = 0; y < 2; ++y) {
    EXPECT_EQ(0, std::memcmp(dst.Pixel(0, y), src.Pixel(2, y + 1), 12)) << y;
    for (int p = 12; p < dst.stride; ++p) EXPECT_EQ(dst.bytes[size_t(y) * dst.stride + p], 0xEE);
  }
  // A strip that only grazes the destination copies only the overlap.
  dst.Fill(0);
  ASSERT_EQ(copy_block(src.View(), dst.View(2, 1), ProcessRect{4, 2, 7, 5}), 0);
  EXPECT_EQ(0, std::memcmp(dst.Pixel(2, 1), src.Pixel(4, 2), 4));
  EXPECT_EQ(dst.Pixel(1, 1)[0], 0);
  EXPECT_EQ(dst.Pixel(2, 0)[0], 0);
}

TEST(ConvertU8ToF32, HandValuesAndChecks) {
  Image src(2, 1), dst(2, 1, PIXEL_FLOAT96);
  const uint8_t px[8] = {2, 255, 0, 77, 10, 20, 30, 40};
  std::memcpy(src.bytes.data(), px, 8);
  // byte x 0.5 - 0.25: 0.75, 127.25, -0.25; alpha dropped.
  ASSERT_EQ(convert_u8_to_f32_plain(src.View(), dst.View(), 0.5f, -0.25f, Whole(src)), 0);
  EXPECT_EQ(FloatAt(dst, 0, 0, 0), 0.75f);
  EXPECT_EQ(FloatAt(dst, 0, 0, 1), 127.25f);
  EXPECT_EQ(FloatAt(dst, 0, 0, 2), -0.25f);
  EXPECT_EQ(FloatAt(dst, 1, 0, 2), 14.75f);
  // The effects' scale: 255 x f32(1/255) rounds back to exactly 1.
  ASSERT_EQ(convert_u8_to_f32_plain(src.View(), dst.View(), 1.0f / 255.0f, 0.0f, Whole(src)), 0);
  EXPECT_EQ(FloatAt(dst, 0, 0, 1), 1.0f);
  EXPECT_EQ(FloatAt(dst, 0, 0, 2), 0.0f);

  ImageView none = src.View();
  none.data = nullptr;
  Image other(2, 1);
  for (auto* fn : {&convert_u8_to_f32_plain, &convert_u8_to_f32_sse41}) {
    if (fn == &convert_u8_to_f32_sse41 && !test::HasSse41()) continue;
    EXPECT_EQ(fn(none, dst.View(2), 1.0f, 0.0f, Whole(src)), kNull);
    EXPECT_EQ(fn(src.View(), other.View(), 1.0f, 0.0f, Whole(src)), kBadArg);  // dst not float
    EXPECT_EQ(fn(dst.View(), dst.View(), 1.0f, 0.0f, Whole(src)), kBadArg);    // src not bytes
    EXPECT_EQ(fn(src.View(), dst.View(), 1.0f, 0.0f, ProcessRect{0, 1, 2, 1}), 0);
  }
}

TEST(ConvertF32ToU8, ClampsAndKeepsAlpha) {
  const float in[] = {0.5f,     1.0f / 256.0f, -0.3f, 1.0f,   1.5f,     1e30f,
                      -1e30f,   std::numeric_limits<float>::quiet_NaN(),
                      std::numeric_limits<float>::infinity(), 0.0f, 0.999f, 0.0039f};
  // 0.5 x 255 = 127.5 -> 127; 255/256 < 1 -> 0; negatives 0; 1.0 and above 255; NaN 0;
  // 0.999 x 255 = 254.7 -> 254; 0.0039 (below 1/255) -> 0.
  const uint8_t want[] = {127, 0, 0, 255, 255, 255, 0, 0, 255, 0, 254, 0};
  Image src(4, 1, PIXEL_FLOAT96), dst(4, 1);
  for (int i = 0; i < 12; ++i) SetFloat(src, i / 3, 0, i % 3, in[i]);
  for (auto* fn : {&convert_f32_to_u8_plain, &convert_f32_to_u8_sse41}) {
    if (fn == &convert_f32_to_u8_sse41 && !test::HasSse41()) continue;
    for (int x = 0; x < 4; ++x) dst.Pixel(x, 0)[3] = uint8_t(50 + x);
    ASSERT_EQ(fn(src.View(), dst.View(), 255.0f, 0.0f, Whole(src)), 0);
    for (int i = 0; i < 12; ++i) EXPECT_EQ(dst.Pixel(i / 3, 0)[i % 3], want[i]) << i;
    for (int x = 0; x < 4; ++x) EXPECT_EQ(dst.Pixel(x, 0)[3], 50 + x);
  }
  // Offset: 0.25 + 0.75 = 1 exactly -> 1; 255.99 -> 255; 256 -> 255.
  Image s2(1, 1, PIXEL_FLOAT96), d2(1, 1);
  SetFloat(s2, 0, 0, 0, 0.25f);
  SetFloat(s2, 0, 0, 1, 255.24f);
  SetFloat(s2, 0, 0, 2, 255.25f);
  ASSERT_EQ(convert_f32_to_u8_plain(s2.View(), d2.View(), 1.0f, 0.75f, Whole(s2)), 0);
  EXPECT_EQ(d2.Pixel(0, 0)[0], 1);
  EXPECT_EQ(d2.Pixel(0, 0)[1], 255);
  EXPECT_EQ(d2.Pixel(0, 0)[2], 255);

  EXPECT_EQ(convert_f32_to_u8_plain(d2.View(), d2.View(), 1.0f, 0.0f, Whole(d2)), kBadArg);
  EXPECT_EQ(convert_f32_to_u8_plain(s2.View(), s2.View(), 1.0f, 0.0f, Whole(d2)), kBadArg);
}

TEST(ConvertRoundTrip, ColoursBackAndAlphaUntouched) {
  Image src(16, 16), mid(16, 16, PIXEL_FLOAT96), back(16, 16);
  for (int i = 0; i < 256; ++i) {
    uint8_t* p = src.Pixel(i % 16, i / 16);
    p[0] = uint8_t(i);
    p[1] = uint8_t(255 - i);
    p[2] = uint8_t(i * 7);
    p[3] = uint8_t(i * 13);
  }
  back.FillRandom(4);
  Image before = back;
  ASSERT_EQ(convert_u8_to_f32_plain(src.View(), mid.View(), 1.0f / 255.0f, 0.0f, Whole(src)), 0);
  ASSERT_EQ(convert_f32_to_u8_plain(mid.View(), back.View(), 255.0f, 0.0f, Whole(src)), 0);
  for (int i = 0; i < 256; ++i) {
    const int x = i % 16, y = i / 16;
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(back.Pixel(x, y)[c], src.Pixel(x, y)[c], 1) << i;
    EXPECT_EQ(back.Pixel(x, y)[3], before.Pixel(x, y)[3]);
  }
}

// Random floats: half plain values around [0, 1], half raw bit patterns (NaN, inf, huge).
void FillFloats(Image& img, uint32_t seed) {
  img.FillRandom(seed);
  const size_t n = img.bytes.size() / 4;
  for (size_t i = 0; i < n; i += 2) {
    uint32_t bits;
    std::memcpy(&bits, img.bytes.data() + 4 * i, 4);
    const float f = float(bits % 4000u) / 2500.0f - 0.3f;
    std::memcpy(img.bytes.data() + 4 * i, &f, 4);
  }
}

// Plain against fast: whole images of odd sizes with odd strides and origins, and the same
// image cut into strips of every height from 1 to 9.
template <class Plain, class Fast>
void CompareForms(uint32_t src_fmt, uint32_t dst_fmt, Plain plain, Fast fast) {
  if (!test::HasSse41()) GTEST_SKIP() << "no SSE4.1";
  struct Size {
    int32_t w, h, pad;
  };
  std::vector<Size> sizes = {{1, 1, 0}, {3, 2, 4}, {5, 7, 12}, {1921, 1081, 0}};
  for (int32_t w = 1; w <= 67; ++w) sizes.push_back({w, 3, (w % 3) * 4 + 8});
  uint32_t seed = 10;
  for (const Size& s : sizes) {
    Image src(s.w, s.h, src_fmt, s.pad), a(s.w, s.h, dst_fmt, s.pad + 4);
    if (src_fmt == PIXEL_FLOAT96) FillFloats(src, ++seed); else src.FillRandom(++seed);
    a.FillRandom(++seed);
    Image b = a;
    const ProcessRect whole = Whole(src);
    ASSERT_EQ(plain(src.View(3, 2), a.View(3, 2), ProcessRect{0, 0, 5000, 5000}), 0);
    ASSERT_EQ(fast(src.View(3, 2), b.View(3, 2), ProcessRect{0, 0, 5000, 5000}), 0);
    ASSERT_TRUE(a == b) << s.w << "x" << s.h;
    if (s.w > 67) continue;
    for (uint32_t step = 1; step <= 9; ++step) {
      Image c = a, d = a;
      for (uint32_t top = 0; top < whole.bottom; top += step) {
        const ProcessRect strip{1, top, whole.right, std::min(top + step, whole.bottom)};
        ASSERT_EQ(plain(src.View(), c.View(), strip), 0);
        ASSERT_EQ(fast(src.View(), d.View(), strip), 0);
      }
      ASSERT_TRUE(c == d) << s.w << " step " << step;
    }
  }
}

TEST(ConvertU8ToF32, FastMatchesPlain) {
  for (float scale : {1.0f / 255.0f, 0.37f, -3.0f}) {
    CompareForms(
        PIXEL_BGRA32, PIXEL_FLOAT96,
        [&](ImageView s, ImageView d, ProcessRect r) { return convert_u8_to_f32_plain(s, d, scale, 0.1f, r); },
        [&](ImageView s, ImageView d, ProcessRect r) { return convert_u8_to_f32_sse41(s, d, scale, 0.1f, r); });
  }
}

TEST(ConvertF32ToU8, FastMatchesPlain) {
  for (float offset : {0.0f, 0.5f, -7.25f}) {
    CompareForms(
        PIXEL_FLOAT96, PIXEL_BGRA32,
        [&](ImageView s, ImageView d, ProcessRect r) { return convert_f32_to_u8_plain(s, d, 255.0f, offset, r); },
        [&](ImageView s, ImageView d, ProcessRect r) { return convert_f32_to_u8_sse41(s, d, 255.0f, offset, r); });
  }
}

TEST(ConvertChooser, PicksByLevel) {
  // Below level 5 the plain form runs, from 5 the fast one; both must give the same bytes.
  // Scale 0.5 and back by 2 is exact, so the round trip restores the colours.
  Image src(9, 2), a(9, 2, PIXEL_FLOAT96), b(9, 2, PIXEL_FLOAT96);
  src.FillRandom(77);
  ASSERT_EQ(convert_u8_to_f32(src.View(), a.View(), 0.5f, 0.0f, Whole(src), SIMD_SSSE3), 0);
  if (test::HasSse41())
    ASSERT_EQ(convert_u8_to_f32(src.View(), b.View(), 0.5f, 0.0f, Whole(src), SIMD_SSE41), 0);
  else
    b = a;
  EXPECT_TRUE(a == b);
  Image back(9, 2);
  ASSERT_EQ(convert_f32_to_u8(a.View(), back.View(), 2.0f, 0.0f, Whole(src), SIMD_NONE), 0);
  EXPECT_EQ(back.Pixel(4, 1)[2], src.Pixel(4, 1)[2]);
}

}  // namespace
}  // namespace Vantyx
