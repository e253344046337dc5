// Copy and byte/float conversion: the checks, hand-computed values, plain against fast.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

#include "harness.h"
#include "imageops/copy_convert.h"

namespace Vantyx {
namespace {

using test::Image;
using test::Whole;

float FloatAt(Image& img, int32_t x, int c) {
  float f;
  std::memcpy(&f, img.Pixel(x, 0) + 4 * c, 4);
  return f;
}

TEST(CopyBlock, ChecksThenCopiesTheOverlap) {
  Image a(4, 4), f(4, 4, PIXEL_FLOAT96), b(4, 4);
  ImageView null_view = a.View();
  null_view.data = nullptr;
  // Null before a step mismatch; a step mismatch before an empty strip.
  EXPECT_EQ(copy_block(null_view, f.View(), Whole(a)), VX_E_POINTER);
  EXPECT_EQ(copy_block(a.View(), null_view, Whole(a)), VX_E_POINTER);
  EXPECT_EQ(copy_block(a.View(), f.View(), ProcessRect{0, 2, 4, 2}), VX_E_INVALIDARG);
  Image g(4, 4, PIXEL_GRAYF32);  // four bytes a pixel too: copied byte for byte
  a.FillRandom(1);
  ASSERT_EQ(copy_block(a.View(), g.View(), Whole(a)), 0);
  EXPECT_EQ(a.bytes, g.bytes);
  // A 3x2 destination with row padding holds (2,1)-(5,3) of a 7x5 frame; a strip that grazes
  // it copies only the overlap.
  Image src(7, 5), dst(3, 2, PIXEL_BGRA32, 5);
  src.FillRandom(3);
  dst.Fill(0xEE);
  Image want = dst;
  std::memcpy(want.Pixel(2, 1), src.Pixel(4, 2), 4);
  ASSERT_EQ(copy_block(src.View(), dst.View(2, 1), ProcessRect{4, 2, 7, 5}), 0);
  EXPECT_EQ(dst, want);
  ASSERT_EQ(copy_block(src.View(), dst.View(2, 1), Whole(src)), 0);
  for (int y = 0; y < 2; ++y) {
    std::memcpy(want.Pixel(0, y), src.Pixel(2, y + 1), 12);
  }
  EXPECT_EQ(dst, want);  // padding untouched
}

TEST(Convert, HandComputedValuesBothForms) {
  // byte x 0.5 - 0.25: 2 -> 0.75, 255 -> 127.25, 0 -> -0.25, 30 -> 14.75; alpha dropped.
  Image src(2, 1), f(2, 1, PIXEL_FLOAT96);
  const uint8_t px[8] = {2, 255, 0, 77, 10, 20, 30, 40};
  std::memcpy(src.bytes.data(), px, 8);
  // 0.5 x 255 = 127.5 -> 127; 1/256 x 255 < 1 -> 0; negatives 0; 1.0 and up 255; NaN 0;
  // infinity 255; 0.999 x 255 = 254.7 -> 254; 0.0039 x 255 < 1 -> 0.
  const float in[12] = {0.5f, 1.0f / 256, -0.3f, 1.0f, 1.5f, 1e30f, -1e30f,
                        std::numeric_limits<float>::quiet_NaN(),
                        std::numeric_limits<float>::infinity(), 0.0f, 0.999f, 0.0039f};
  const uint8_t want[16] = {127, 0, 0, 50, 255, 255, 255, 51, 0, 0, 255, 52, 0, 254, 0, 53};
  Image fs(4, 1, PIXEL_FLOAT96);
  std::memcpy(fs.bytes.data(), in, sizeof(in));
  for (bool fast : {false, true}) {
    if (fast && !test::HasSse41()) continue;
    ASSERT_EQ((fast ? convert_u8_to_f32_sse41 : convert_u8_to_f32_plain)(src.View(), f.View(), 0.5f,
                                                                        -0.25f, Whole(src)),
              0);
    EXPECT_EQ(FloatAt(f, 0, 0), 0.75f);
    EXPECT_EQ(FloatAt(f, 0, 1), 127.25f);
    EXPECT_EQ(FloatAt(f, 0, 2), -0.25f);
    EXPECT_EQ(FloatAt(f, 1, 2), 14.75f);
    Image dst(4, 1);
    for (int x = 0; x < 4; ++x) dst.Pixel(x, 0)[3] = uint8_t(50 + x);
    ASSERT_EQ((fast ? convert_f32_to_u8_sse41 : convert_f32_to_u8_plain)(fs.View(), dst.View(),
                                                                        255.0f, 0.0f, Whole(fs)),
              0);
    EXPECT_TRUE(std::equal(want, want + 16, dst.bytes.begin())) << (fast ? "fast" : "plain");
    // With offset 0.75: 0.25 -> exactly 1 -> 1; 255.24 -> 255.99 -> 255; 255.25 -> 256 -> 255;
    // in the vector step (pixel 0) and in the tail (pixel 4).
    Image es(5, 1, PIXEL_FLOAT96), ed(5, 1);
    const float edges[3] = {0.25f, 255.24f, 255.25f};
    for (int x : {0, 4}) std::memcpy(es.Pixel(x, 0), edges, sizeof(edges));
    ASSERT_EQ(convert_f32_to_u8(es.View(), ed.View(), 1.0f, 0.75f, Whole(es), fast ? 5 : 0), 0);
    for (int x : {0, 4}) EXPECT_EQ(std::vector<uint8_t>(ed.Pixel(x, 0), ed.Pixel(x, 0) + 3),
                                   (std::vector<uint8_t>{1, 255, 255})) << x;
    // Each direction refuses the other's formats.
    EXPECT_EQ(convert_u8_to_f32(f.View(), f.View(), 1.0f, 0.0f, Whole(f), fast ? 5 : 0),
              VX_E_INVALIDARG);
    EXPECT_EQ(convert_f32_to_u8(src.View(), src.View(), 1.0f, 0.0f, Whole(src), fast ? 5 : 0),
              VX_E_INVALIDARG);
  }
}

// Random floats in the back conversion include NaN, infinities and huge values.
TEST(ConvertForms, FastMatchesPlain) {
  test::ExpectFormsAgree({
      test::KernelRow("convert_u8_to_f32", {{PIXEL_BGRA32}, {PIXEL_FLOAT96}},
                      [](test::Case& c) {
                        const float scale = c.Pick({0, 1}) ? c.Float(-3, 3) : 1.0f / 255.0f;
                        return c.Form(convert_u8_to_f32_plain, convert_u8_to_f32_sse41)(
                            c.View(0), c.View(1), scale, c.Float(-1, 1), c.strip);
                      }),
      test::KernelRow("convert_f32_to_u8", {{PIXEL_FLOAT96}, {PIXEL_BGRA32}},
                      [](test::Case& c) {
                        const float scale = c.Pick({0, 1}) ? c.Float(0, 300) : 255.0f;
                        const float offset = c.Pick({0, 1}) ? c.Float(-8, 8) : 0.0f;
                        return c.Form(convert_f32_to_u8_plain, convert_f32_to_u8_sse41)(
                            c.View(0), c.View(1), scale, offset, c.strip);
                      })
          .AnyFloatBits(),
  });
}

}  // namespace
}  // namespace Vantyx
