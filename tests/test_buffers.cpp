// Working buffers: sizes and formats, refusals, shared storage, rectangle copies, and the
// aligned and scaled working-size rules.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "core/effect_base.h"
#include "core/smart_buffer.h"
#include "test_support.h"

namespace Vantyx {
namespace {

TEST(SmartBuffer, EveryFormatsStrideAndChannels) {
  const struct {
    uint32_t format, channels, bytes_per_pixel;
  } rows[] = {{PIXEL_BGRA32, 4, 4}, {PIXEL_BGR24, 3, 3},   {PIXEL_GRAY8, 1, 1},
              {PIXEL_GRAY16, 1, 2}, {PIXEL_GRAYF32, 1, 4}, {PIXEL_FLOAT96, 3, 12},
              {PIXEL_GRAY32_ALT, 1, 4}};
  for (const auto& r : rows) {
    SmartBuffer b;
    ASSERT_EQ(CreateSmartBufferData(&b, 10, 3, r.format), 0) << r.format;
    EXPECT_EQ(b.width, 10u);
    EXPECT_EQ(b.height, 3);
    EXPECT_EQ(b.format, r.format);
    EXPECT_EQ(b.channels, r.channels) << r.format;
    EXPECT_EQ(b.stride, 10u * r.bytes_per_pixel) << r.format;
    std::memset(b.data.get(), 0x5A, size_t(b.stride) * 3);  // every byte is ours (ASan)
  }
  // An unknown format: sizes and format stored, storage and stride kept.
  SmartBuffer b;
  ASSERT_EQ(CreateSmartBufferData(&b, 4, 4, PIXEL_BGRA32), 0);
  const uint8_t* old = b.data.get();
  EXPECT_EQ(CreateSmartBufferData(&b, 7, 9, 7), VX_E_NOTIMPL);
  EXPECT_EQ(b.width, 7u);
  EXPECT_EQ(b.height, 9);
  EXPECT_EQ(b.format, 7u);
  EXPECT_EQ(b.data.get(), old);
  EXPECT_EQ(b.stride, 16u);
}

TEST(SmartBuffer, ByteCountBeyond32BitsRefused) {
  SmartBuffer b;
  ASSERT_EQ(CreateSmartBufferData(&b, 2, 2, PIXEL_BGRA32), 0);
  // 65536 x 4 bytes a row; 16384 rows make exactly 2^32 bytes: one byte too many.
  EXPECT_EQ(CreateSmartBufferData(&b, 65536, 16384, PIXEL_BGRA32), VX_E_INVALIDARG);
  EXPECT_EQ(b.data, nullptr);  // never a short array behind a large size
  EXPECT_EQ(b.stride, 0u);
  EXPECT_EQ(CreateSmartBufferData(&b, 0x20000000u, 1, PIXEL_FLOAT96), VX_E_INVALIDARG);  // stride wraps
  EXPECT_EQ(CreateSmartBufferData(&b, 4, -1, PIXEL_BGRA32), VX_E_INVALIDARG);
  // The largest count that fits is accepted by the arithmetic (0 rows: nothing allocated).
  EXPECT_EQ(CreateSmartBufferData(&b, 0xFFFFFFFFu, 0, PIXEL_GRAY8), 0);
  EXPECT_EQ(b.stride, 0xFFFFFFFFu);
}

// Caller memory is used, never freed (ASan would see the free), and never FLOAT96.
TEST(SmartBuffer, AttachedStorage) {
  SmartBuffer b;
  test::Image img(6, 2);
  ASSERT_EQ(AttachSmartBufferData(&b, 6, 2, PIXEL_BGRA32, img.bytes.data()), 0);
  EXPECT_EQ(b.data.get(), img.bytes.data());
  EXPECT_EQ(b.stride, 24u);
  b.data.reset();
  EXPECT_EQ(AttachSmartBufferData(&b, 6, 2, PIXEL_FLOAT96, img.bytes.data()), VX_E_NOTIMPL);
  EXPECT_EQ(b.data, nullptr);
  EXPECT_EQ(AttachSmartBufferData(&b, 6, 2, 9, img.bytes.data()), VX_E_NOTIMPL);
}

TEST(SmartBuffer, CopyRectChecksAndCopies) {
  SmartBuffer src;
  ASSERT_EQ(CreateSmartBufferData(&src, 5, 4, PIXEL_BGRA32), 0);
  test::FillRandomBytes(src.data.get(), 80, 11);
  test::Image dst(2, 3, PIXEL_BGRA32, 4);  // a padded stride: 12 bytes a row
  dst.Fill(0xEE);
  const ProcessRect r{1, 1, 3, 4};
  ASSERT_EQ(CopyRectToDesc(src, r, dst.Desc()), 0);
  test::Image again(2, 3);
  const ImageDesc from_desc{src.data.get(), 5, 4, 20, 4, PIXEL_BGRA32, 0};
  ASSERT_EQ(CopyRectToDesc(from_desc, r, again.Desc()), 0);
  for (int y = 0; y < 3; ++y) {
    EXPECT_EQ(std::memcmp(dst.Pixel(0, y), src.data.get() + (y + 1) * 20 + 4, 8), 0);
    EXPECT_EQ(std::memcmp(again.Pixel(0, y), dst.Pixel(0, y), 8), 0);
    EXPECT_EQ(dst.bytes[y * 12 + 8], 0xEE);  // padding untouched
  }
  test::Image gray(2, 3, PIXEL_GRAY8), none(2, 0);
  ImageDesc narrow = dst.Desc();
  narrow.stride = 7;  // too short for the row: refused rather than overrun
  const struct {
    const char* what;
    ProcessRect rect;
    ImageDesc dst;
    int32_t want;
  } rows[] = {
      {"outside the source", {4, 1, 6, 4}, dst.Desc(), VX_E_INVALIDARG},
      {"taller than the destination", {1, 2, 3, 5}, dst.Desc(), VX_E_INVALIDARG},
      {"wider than the destination", {0, 1, 3, 4}, dst.Desc(), VX_E_INVALIDARG},
      {"reversed", {3, 1, 1, 4}, dst.Desc(), VX_E_INVALIDARG},
      {"negative edge", {0xFFFFFFFFu, 1, 1, 4}, dst.Desc(), VX_E_INVALIDARG},
      {"other pixel size", r, gray.Desc(), VX_E_INVALIDARG},
      {"short destination stride", r, narrow, VX_E_INVALIDARG},
      {"no rows", {1, 2, 3, 2}, none.Desc(), 0},
  };
  for (const auto& row : rows) EXPECT_EQ(CopyRectToDesc(src, row.rect, row.dst), row.want) << row.what;
}

TEST(WorkingSizes, AlignedAndScaledRules) {
  // n + (n mod 4), kept as designed: not a round-up to a multiple of four.
  const int32_t aligned[][2] = {{1, 2}, {3, 6}, {5, 6}, {6, 8}, {7, 10}, {8, 8}, {1920, 1920}, {1081, 1082}};
  for (const auto& a : aligned) EXPECT_EQ(AlignedSize(a[0]), a[1]) << a[0];
  // t = trunc(n x scale) in float, then aligned: 1 -> 0; 7 -> 3 -> 6; 1081 -> 540; 1921 -> 960;
  // 1083 -> 541 -> 542; 14 -> 7 -> 10. 0.7f is 0.69999998..., and 10 x 0.7f rounds to exactly
  // 7.0f in float (7 -> 10), where a double product would truncate to 6 (-> 8).
  const struct {
    int32_t n;
    float scale;
    int32_t want;
  } scaled[] = {{1, 0.5f, 0},      {7, 0.5f, 6},      {1920, 0.5f, 960}, {1081, 0.5f, 540},
                {1921, 0.5f, 960}, {1083, 0.5f, 542}, {14, 0.5f, 10},    {10, 0.7f, 10},
                {100, std::numeric_limits<float>::quiet_NaN(), 0}};
  for (const auto& s : scaled) EXPECT_EQ(ScaledSize(s.n, s.scale), s.want) << s.n << " x " << s.scale;
}

}  // namespace
}  // namespace Vantyx
