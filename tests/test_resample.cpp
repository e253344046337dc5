// Bilinear resampling: a row worked by hand, halving and doubling against their closed forms,
// the checks and the kernel choice, and plain against fast.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "imageops/resample.h"
#include "harness.h"

namespace Vantyx {
namespace {

using test::Image;
using test::Whole;

using ResampleFn = int32_t (*)(const ImageView&, const ImageView&, const ProcessRect&,
                               const ProcessRect&);

std::vector<ResampleFn> ByteForms() {
  std::vector<ResampleFn> f{resample_bilinear_u8_plain};
  if (test::HasSse41()) f.push_back(resample_bilinear_u8_sse41);
  return f;
}

int32_t Resize(ResampleFn fn, Image& src, Image& dst) {
  return fn(src.View(), dst.View(), Whole(src), Whole(dst));
}

// (((b - a) * f) >> 8) + a with a floor division, independent of the shift.
int32_t LerpFloor(int32_t a, int32_t b, int32_t f) {
  const int32_t p = (b - a) * f;
  return (p >= 0 ? p / 256 : -((-p + 255) / 256)) + a;
}

// --- Worked by hand and closed forms --------------------------------------------------------

// Doubling 2 -> 4: s = (x - 1.5) / 2 + 0.5 = -0.25, 0.25, 0.75, 1.25, so i = 0, 0, 0, 1 and
// the fraction bytes are 192 (from -64, kept as its low byte), 64, 192 and 64 (x0 = x1 = 1).
// With a = 10, b = 0: (-10 x 192) >> 8 = -7.5 -> -8 gives 2; (-10 x 64) >> 8 = -2.5 -> -3
// gives 7. The float kernel takes the same taps.
TEST(ResampleHand, DoublingARowKeepsTheNegativeFraction) {
  for (ResampleFn fn : ByteForms()) {
    Image src(2, 1), dst(4, 1);
    const uint8_t a[4] = {0, 10, 100, 255}, b[4] = {100, 0, 0, 254};
    std::memcpy(src.Pixel(0, 0), a, 4);
    std::memcpy(src.Pixel(1, 0), b, 4);
    ASSERT_EQ(Resize(fn, src, dst), 0);
    // 0 -> 100: 75 25 75 100; 10 -> 0: 2 7 2 0; 100 -> 0: 25 75 25 0; 255 -> 254: -1 >> 8 = -1.
    EXPECT_EQ(dst.bytes, (std::vector<uint8_t>{75, 2, 25, 254, 25, 7, 75, 254,
                                               75, 2, 25, 254, 100, 0, 0, 254}));
  }
  Image src(2, 1, PIXEL_FLOAT96), dst(4, 1, PIXEL_FLOAT96);
  const float a[3] = {0.0f, 1.0f, 0.5f}, b[3] = {100.0f, 0.0f, 0.5f};
  std::memcpy(src.Pixel(0, 0), a, 12);
  std::memcpy(src.Pixel(1, 0), b, 12);
  ASSERT_EQ(resample_bilinear(src.View(), dst.View(), Whole(src), Whole(dst), 0), 0);
  const float want[12] = {75, 0.25f, 0.5f, 25, 0.75f, 0.5f, 75, 0.25f, 0.5f, 100, 0, 0.5f};
  EXPECT_EQ(std::memcmp(dst.bytes.data(), want, sizeof(want)), 0);
}

// Exactly double size: s = x / 2 - 0.25. Even x = 2k reads (k - 1, k) at 192, or (0, 1) at 192
// for k = 0; odd x = 2k + 1 reads (k, k + 1) at 64, the last one (k, k).
void DoubleTap(int32_t x, int32_t n, int32_t* i0, int32_t* i1, int32_t* f) {
  *i0 = x % 2 ? x / 2 : std::max(x / 2 - 1, 0);
  *f = x % 2 ? 64 : 192;
  *i1 = std::min(*i0 + 1, n - 1);
}

// Random images at exactly half size (s = 2x + 0.5, fraction 128: floor of floor-means), double
// size and the same size (a copy).
TEST(ResampleClosedForm, HalfDoubleAndEqualSizes) {
  Image src(66, 38, PIXEL_BGRA32, 3);
  src.FillRandom(7);
  for (ResampleFn fn : ByteForms()) {
    Image half(33, 19, PIXEL_BGRA32, 1), twice(132, 76), same(66, 38, PIXEL_BGRA32, 2);
    ASSERT_EQ(Resize(fn, src, half), 0);
    ASSERT_EQ(Resize(fn, src, twice), 0);
    ASSERT_EQ(Resize(fn, src, same), 0);
    for (int32_t y = 0; y < 76; ++y)
      for (int32_t x = 0; x < 132; ++x)
        for (int c = 0; c < 4; ++c) {
          int32_t x0, x1, fx, y0, y1, fy;
          DoubleTap(x, 66, &x0, &x1, &fx);
          DoubleTap(y, 38, &y0, &y1, &fy);
          const int32_t t = LerpFloor(src.Pixel(x0, y0)[c], src.Pixel(x1, y0)[c], fx);
          const int32_t b = LerpFloor(src.Pixel(x0, y1)[c], src.Pixel(x1, y1)[c], fx);
          ASSERT_EQ(twice.Pixel(x, y)[c], LerpFloor(t, b, fy)) << "double " << x << "," << y;
          if (x >= 66 || y >= 38) continue;
          ASSERT_EQ(same.Pixel(x, y)[c], src.Pixel(x, y)[c]) << "same " << x << "," << y;
          if (x >= 33 || y >= 19) continue;
          const int32_t top = (src.Pixel(2 * x, 2 * y)[c] + src.Pixel(2 * x + 1, 2 * y)[c]) / 2;
          const int32_t bottom = (src.Pixel(2 * x, 2 * y + 1)[c] + src.Pixel(2 * x + 1, 2 * y + 1)[c]) / 2;
          ASSERT_EQ(half.Pixel(x, y)[c], (top + bottom) / 2) << "half " << x << "," << y;
        }
  }
  Image fs(9, 5, PIXEL_FLOAT96), fd(9, 5, PIXEL_FLOAT96);
  for (size_t i = 0; i < fs.bytes.size(); i += 4) {
    const float v = float(i) * 0.37f;
    std::memcpy(&fs.bytes[i], &v, 4);
  }
  ASSERT_EQ(resample_bilinear_f32(fs.View(), fd.View(), Whole(fs), Whole(fd)), 0);
  EXPECT_EQ(fs, fd);
}

// --- Checks and the choice of kernel --------------------------------------------------------

TEST(ResampleChecks, CodesInOrderDestinationUntouched) {
  Image src(8, 8), dst(4, 4);
  src.FillRandom(1);
  const Image before = dst;
  const ImageView s = src.View(), d = dst.View();
  ImageView null_s = s, null_d = d, flat = s, f96 = d;
  null_s.data = nullptr, null_d.data = nullptr, flat.height = 0, f96.format = PIXEL_FLOAT96;
  const ProcessRect all{0, 0, 8, 8}, rows{0, 0, 4, 4};
  const struct {
    const char* what;
    ImageView src, dst;
    ProcessRect src_rect, strip;
    int32_t want_u8, want_f32;  // the byte kernels; the float kernel (no FLOAT96 pair here)
  } cases[] = {
      {"null source", null_s, d, all, rows, VX_E_POINTER, VX_E_POINTER},
      {"null destination", s, null_d, all, rows, VX_E_POINTER, VX_E_POINTER},
      {"null before an empty side", flat, null_d, all, rows, VX_E_POINTER, VX_E_POINTER},
      {"empty side", flat, d, all, rows, VX_E_FAIL, VX_E_FAIL},
      {"one FLOAT96 side", s, f96, all, rows, VX_E_NOTIMPL, VX_E_NOTIMPL},
      {"empty source rectangle", s, d, {3, 3, 3, 8}, rows, VX_E_INVALIDARG, VX_E_NOTIMPL},
      {"source rectangle outside", s, d, {9, 0, 20, 8}, rows, VX_E_INVALIDARG, VX_E_NOTIMPL},
      {"empty strip", s, d, all, {0, 2, 4, 2}, 0, VX_E_NOTIMPL},
      {"strip below the destination", s, d, all, {0, 4, 4, 9}, 0, VX_E_NOTIMPL},
  };
  std::vector<ResampleFn> forms = ByteForms();
  forms.push_back(resample_bilinear_f32);
  for (ResampleFn fn : forms)
    for (const auto& c : cases) {
      const int32_t want = fn == resample_bilinear_f32 ? c.want_f32 : c.want_u8;
      EXPECT_EQ(fn(c.src, c.dst, c.src_rect, c.strip), want) << c.what;
      EXPECT_EQ(dst, before) << c.what;
    }
}

TEST(ResampleChecks, KernelChoiceAndNames) {
  Image b(4, 4), f(4, 4, PIXEL_FLOAT96);
  const struct {
    ImageView src, dst;
    int32_t level;
    const char* name;
  } cases[] = {{b.View(), b.View(), 0, "resize buff"},     {b.View(), b.View(), 4, "resize buff"},
               {b.View(), b.View(), 5, "resize buff SSE"}, {f.View(), f.View(), 0, "resize buff SSE"},
               {b.View(), f.View(), 0, "resize buff"}};
  for (const auto& c : cases)
    EXPECT_STREQ(resample_kernel_name(c.src, c.dst, c.level), c.name) << c.level;
  // FLOAT96 pairs take the float kernel at any level: a flat 1.0 stays 1.0.
  Image fs(3, 3, PIXEL_FLOAT96), fd(6, 6, PIXEL_FLOAT96);
  const float one = 1.0f;
  for (size_t i = 0; i < fs.bytes.size(); i += 4) std::memcpy(&fs.bytes[i], &one, 4);
  ASSERT_EQ(resample_bilinear(fs.View(), fd.View(), Whole(fs), Whole(fd), 0), 0);
  float got;
  std::memcpy(&got, fd.Pixel(5, 5) + 8, 4);
  EXPECT_EQ(got, 1.0f);
}

// The float kernel has no fast form: its row checks bands against one call.
TEST(ResampleForms, FastMatchesPlain) {
  test::ExpectFormsAgree({
      test::KernelRow("resample_bilinear_u8", {{PIXEL_BGRA32}, {PIXEL_BGRA32}},
                      [](test::Case& c) {
                        return c.Form(resample_bilinear_u8_plain, resample_bilinear_u8_sse41)(
                            c.View(0), c.View(1), c.Area(0), c.strip);
                      })
          .SourceSizedApart(),
      test::KernelRow("resample_bilinear_f32", {{PIXEL_FLOAT96}, {PIXEL_FLOAT96}},
                      [](test::Case& c) {
                        return resample_bilinear_f32(c.View(0), c.View(1), c.Area(0), c.strip);
                      })
          .SourceSizedApart(),
  });
}

}  // namespace
}  // namespace Vantyx
