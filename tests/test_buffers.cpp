// Working buffers: strides, sizes and formats, refusals, shared storage, rectangle copies,
// and the aligned and scaled working-size rules.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "core/effect_base.h"
#include "core/smart_buffer.h"
#include "test_support.h"

namespace Vantyx {
namespace {

constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057u);
constexpr int32_t kNotImpl = static_cast<int32_t>(0x80004001u);

TEST(SmartBuffer, EmptyBuffer) {
  SmartBuffer b;
  EXPECT_EQ(b.data, nullptr);
  EXPECT_EQ(b.width, 0u);
  EXPECT_EQ(b.height, 0);
  EXPECT_EQ(b.stride, 0u);
  EXPECT_EQ(b.channels, 4u);
}

TEST(SmartBuffer, StridesAndChannelsOfEveryFormat) {
  struct Case {
    uint32_t format, channels, bytes_per_pixel;
  } cases[] = {{PIXEL_BGRA32, 4, 4}, {PIXEL_BGR24, 3, 3},  {PIXEL_GRAY8, 1, 1},
               {PIXEL_GRAY16, 1, 2}, {PIXEL_GRAYF32, 1, 4}, {PIXEL_FLOAT96, 3, 12},
               {PIXEL_GRAY32_ALT, 1, 4}};
  for (const Case& c : cases) {
    SmartBuffer b;
    ASSERT_EQ(CreateSmartBufferData(&b, 10, 3, c.format), 0) << c.format;
    EXPECT_EQ(b.width, 10u);
    EXPECT_EQ(b.height, 3);
    EXPECT_EQ(b.format, c.format);
    EXPECT_EQ(b.channels, c.channels) << c.format;
    EXPECT_EQ(b.stride, 10u * c.bytes_per_pixel) << c.format;
    ASSERT_NE(b.data, nullptr);
    // Every byte of stride x height is ours (ASan checks the last one).
    std::memset(b.data.get(), 0x5A, size_t(b.stride) * 3);
    EXPECT_EQ(b.data.get()[b.stride * 3 - 1], 0x5A);
  }
  // The two examples worked by hand: 10 x 4 = 40 bytes a row, 120 in all; 10 x 12 = 120 a row.
  SmartBuffer bgra, f96;
  CreateSmartBufferData(&bgra, 10, 3, PIXEL_BGRA32);
  CreateSmartBufferData(&f96, 10, 1, PIXEL_FLOAT96);
  EXPECT_EQ(bgra.stride * uint32_t(bgra.height), 120u);
  EXPECT_EQ(f96.stride, 120u);
  EXPECT_EQ(f96.channels, 3u);
}

TEST(SmartBuffer, UnknownFormatKeepsSizesAndStorage) {
  SmartBuffer b;
  ASSERT_EQ(CreateSmartBufferData(&b, 4, 4, PIXEL_BGRA32), 0);
  const uint8_t* old = b.data.get();
  EXPECT_EQ(CreateSmartBufferData(&b, 7, 9, 7), kNotImpl);
  EXPECT_EQ(b.width, 7u);
  EXPECT_EQ(b.height, 9);
  EXPECT_EQ(b.format, 7u);
  EXPECT_EQ(b.data.get(), old);
  EXPECT_EQ(b.stride, 16u);  // untouched
}

TEST(SmartBuffer, ByteCountBeyond32BitsRefused) {
  SmartBuffer b;
  ASSERT_EQ(CreateSmartBufferData(&b, 2, 2, PIXEL_BGRA32), 0);
  // 65536 x 4 = 262144 bytes a row; 16384 rows make exactly 2^32 bytes: one byte too many.
  EXPECT_EQ(CreateSmartBufferData(&b, 65536, 16384, PIXEL_BGRA32), kInvalidArg);
  EXPECT_EQ(b.data, nullptr);  // never a short array behind a large size
  EXPECT_EQ(b.stride, 0u);
  // A stride that itself wraps 32 bits: 0x20000000 x 12.
  EXPECT_EQ(CreateSmartBufferData(&b, 0x20000000u, 1, PIXEL_FLOAT96), kInvalidArg);
  EXPECT_EQ(CreateSmartBufferData(&b, 4, -1, PIXEL_BGRA32), kInvalidArg);
  // The largest count that fits is accepted by the arithmetic (not allocated here: 1 row x 0).
  EXPECT_EQ(CreateSmartBufferData(&b, 0xFFFFFFFFu, 0, PIXEL_GRAY8), 0);
  EXPECT_EQ(b.stride, 0xFFFFFFFFu);
}

TEST(SmartBuffer, RecreateLeavesSharedOwnerIntact) {
  SmartBuffer b;
  ASSERT_EQ(CreateSmartBufferData(&b, 3, 2, PIXEL_BGRA32), 0);
  std::memset(b.data.get(), 0xC3, 24);
  std::shared_ptr<uint8_t> other = b.data;  // a second owner of the same pixels
  ASSERT_EQ(CreateSmartBufferData(&b, 5, 5, PIXEL_GRAY8), 0);
  EXPECT_NE(b.data.get(), other.get());
  EXPECT_EQ(other.use_count(), 1);
  for (int i = 0; i < 24; ++i) EXPECT_EQ(other.get()[i], 0xC3);
  EXPECT_EQ(b.stride, 5u);
}

TEST(SmartBuffer, AttachUsesCallerMemory) {
  test::Image img(6, 2);
  img.FillRandom(3);
  SmartBuffer b;
  ASSERT_EQ(AttachSmartBufferData(&b, 6, 2, PIXEL_BGRA32, img.bytes.data()), 0);
  EXPECT_EQ(b.data.get(), img.bytes.data());
  EXPECT_EQ(b.stride, 24u);
  b.data.reset();  // releasing the handle frees nothing (ASan would catch a free)
  EXPECT_EQ(AttachSmartBufferData(&b, 6, 2, PIXEL_FLOAT96, img.bytes.data()), kNotImpl);
  EXPECT_EQ(b.format, uint32_t(PIXEL_FLOAT96));
  EXPECT_EQ(b.data, nullptr);
  EXPECT_EQ(AttachSmartBufferData(&b, 6, 2, 9, img.bytes.data()), kNotImpl);
}

TEST(SmartBuffer, CopyRectChecksAndCopies) {
  SmartBuffer src;
  ASSERT_EQ(CreateSmartBufferData(&src, 5, 4, PIXEL_BGRA32), 0);
  test::FillRandomBytes(src.data.get(), 80, 11);
  test::Image dst(2, 3, PIXEL_BGRA32, 4);  // a padded stride: 12 bytes a row
  dst.Fill(0xEE);
  const ProcessRect r{1, 1, 3, 4};
  ASSERT_EQ(CopyRectToDesc(src, r, dst.Desc()), 0);
  for (int y = 0; y < 3; ++y) {
    EXPECT_EQ(std::memcmp(dst.Pixel(0, y), src.data.get() + (y + 1) * 20 + 4, 8), 0);
    EXPECT_EQ(dst.bytes[y * 12 + 8], 0xEE);  // padding untouched
  }
  // From a descriptor as well.
  test::Image again(2, 3);
  ImageDesc sd{src.data.get(), 5, 4, 20, 4, PIXEL_BGRA32, 0};
  ASSERT_EQ(CopyRectToDesc(sd, r, again.Desc()), 0);
  for (int y = 0; y < 3; ++y) EXPECT_EQ(std::memcmp(again.Pixel(0, y), dst.Pixel(0, y), 8), 0);

  // Refusals: outside the source, a size mismatch, a reversed or "negative" edge, a format
  // whose pixel size differs.
  EXPECT_EQ(CopyRectToDesc(src, ProcessRect{4, 1, 6, 4}, dst.Desc()), kInvalidArg);
  EXPECT_EQ(CopyRectToDesc(src, ProcessRect{1, 2, 3, 5}, dst.Desc()), kInvalidArg);
  EXPECT_EQ(CopyRectToDesc(src, ProcessRect{0, 1, 3, 4}, dst.Desc()), kInvalidArg);
  EXPECT_EQ(CopyRectToDesc(src, ProcessRect{3, 1, 1, 4}, dst.Desc()), kInvalidArg);
  EXPECT_EQ(CopyRectToDesc(src, ProcessRect{0xFFFFFFFFu, 1, 1, 4}, dst.Desc()), kInvalidArg);
  test::Image gray(2, 3, PIXEL_GRAY8);
  EXPECT_EQ(CopyRectToDesc(src, r, gray.Desc()), kInvalidArg);
  // A destination stride too short for the row is refused rather than overrun.
  ImageDesc narrow = dst.Desc();
  narrow.stride = 7;
  EXPECT_EQ(CopyRectToDesc(src, r, narrow), kInvalidArg);
  // Height 0 copies nothing and succeeds.
  test::Image none(2, 0);
  EXPECT_EQ(CopyRectToDesc(src, ProcessRect{1, 2, 3, 2}, none.Desc()), 0);
}

TEST(WorkingSizes, AlignedRule) {
  // n + (n mod 4), kept as designed: not a round-up to a multiple of four.
  EXPECT_EQ(AlignedSize(1), 2);
  EXPECT_EQ(AlignedSize(3), 6);
  EXPECT_EQ(AlignedSize(5), 6);
  EXPECT_EQ(AlignedSize(6), 8);
  EXPECT_EQ(AlignedSize(7), 10);
  EXPECT_EQ(AlignedSize(8), 8);
  EXPECT_EQ(AlignedSize(1920), 1920);
  EXPECT_EQ(AlignedSize(1081), 1082);
}

TEST(WorkingSizes, ScaledRule) {
  // t = trunc(n x 0.5) in float, then aligned: 1 -> 0 -> 0; 7 -> 3 -> 6; 1081 -> 540 -> 540;
  // 1921 -> 960 -> 960; 1083 -> 541 -> 542; 14 -> 7 -> 10.
  EXPECT_EQ(ScaledSize(1, 0.5f), 0);
  EXPECT_EQ(ScaledSize(7, 0.5f), 6);
  EXPECT_EQ(ScaledSize(1920, 0.5f), 960);
  EXPECT_EQ(ScaledSize(1081, 0.5f), 540);
  EXPECT_EQ(ScaledSize(1921, 0.5f), 960);
  EXPECT_EQ(ScaledSize(1083, 0.5f), 542);
  EXPECT_EQ(ScaledSize(14, 0.5f), 10);
  // Single precision matters: 0.7f is 0.69999998807907..., and 10 x 0.7f rounds to exactly 7.0f
  // in float (7 -> 10), where a double product 6.9999998... would truncate to 6 (-> 8).
  EXPECT_EQ(ScaledSize(10, 0.7f), 10);
  EXPECT_EQ(ScaledSize(100, std::numeric_limits<float>::quiet_NaN()), 0);
}

TEST(WorkingSizes, AllFinite) {
  EXPECT_TRUE(AllFinite({0.0f, -1.5f, 3e38f}));
  EXPECT_TRUE(AllFinite({}));
  EXPECT_FALSE(AllFinite({1.0f, std::numeric_limits<float>::infinity()}));
  EXPECT_FALSE(AllFinite({std::numeric_limits<float>::quiet_NaN()}));
}

}  // namespace
}  // namespace Vantyx
