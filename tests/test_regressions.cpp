// Inputs the frame fuzzer (fuzz/) found or circles around, kept as plain tests: each one once
// crashed, overflowed or needed a rule pinned down. Under the asan preset the sanitizers catch
// what a Release build would only get away with.
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "vantyx.h"
#include "test_support.h"

namespace Vantyx {
namespace {

using test::Image;

// An engine and one BlackMist effect through the public entry points.
class Host {
 public:
  Host() {
    CreateVantyxEngine(&engine);
    if (engine) engine->CreateEffect(&handle, EFFECT_BLACKMIST);
    effect = handle ? AsBlackMistFull(handle) : nullptr;
  }
  ~Host() { DeleteVantyxEngine(&engine); }
  VantyxEngine* engine = nullptr;
  void* handle = nullptr;
  BlackMistFull* effect = nullptr;
};

BlackMistParam Record(Image& src, Image& dst) {
  BlackMistParam p{};
  p.src = src.Desc();
  p.dst = dst.Desc();
  p.light_intensity = 1.0f;
  p.soft_radius = 0.0f;
  p.hlr_threshold = 100;
  p.strength = 1;
  p.process_rect = {0, 0, uint32_t(src.width), uint32_t(src.height)};
  return p;
}

// SetImageSize(INT32_MAX, 1) overflowed the signed sum n + n % 4 of the aligned width. The
// aligned width now wraps in unsigned arithmetic, its buffers are too large for 32-bit byte
// counts and the size is refused; the effect stays usable.
TEST(Regression, SideNearInt32MaxIsRefusedWithoutOverflow) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  EXPECT_EQ(h.effect->SetImageSize(INT32_MAX, 1), VX_E_INVALIDARG);
  EXPECT_EQ(h.effect->SetImageSize(1, INT32_MAX), VX_E_INVALIDARG);
  EXPECT_EQ(h.effect->SetImageSize(INT32_MAX - 1, 2), VX_E_INVALIDARG);
  EXPECT_EQ(h.effect->SetImageSize(INT32_MIN, 4), VX_E_INVALIDARG);

  ASSERT_EQ(h.effect->SetImageSize(9, 7), VX_OK);
  Image src(9, 7), dst(9, 7);
  src.FillRandom(3);
  const BlackMistParam p = Record(src, dst);
  EXPECT_EQ(h.effect->Process(&p), VX_OK);
}

// A refused size forgets the frame size and gives back the buffers made for it; a later frame
// of the old size is refused, and one of 0 x 0 meets no working buffer.
TEST(Regression, FramesAfterARefusedSize) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  ASSERT_EQ(h.effect->SetImageSize(16, 16), VX_OK);
  EXPECT_EQ(h.effect->SetImageSize(1 << 30, 2), VX_E_INVALIDARG);

  Image src(16, 16), dst(16, 16);
  BlackMistParam p = Record(src, dst);
  EXPECT_EQ(h.effect->Process(&p), VX_E_INVALIDARG);

  uint8_t byte = 0x5A;
  BlackMistParam empty{};
  empty.src.data = &byte;  // 0 x 0 but present
  empty.src.channels = 4;
  empty.dst.data = &byte;
  empty.dst.channels = 4;
  EXPECT_EQ(h.effect->Process(&empty), VX_E_POINTER);
  EXPECT_EQ(byte, 0x5A);

  // And the effect recovers with a fresh size.
  ASSERT_EQ(h.effect->SetImageSize(16, 16), VX_OK);
  EXPECT_EQ(h.effect->Process(&p), VX_OK);
}

// A 0 x 0 frame passes the record checks on an effect that was never sized (or was Reset); the
// first stage that needs a working buffer then meets none: 0x80004003, nothing written.
TEST(Regression, EmptyFrameOnAnUnsizedEffect) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  uint8_t src_byte = 1, dst_byte = 2;
  BlackMistFullParam p{};
  p.src.data = &src_byte;
  p.src.channels = 4;
  p.dst.data = &dst_byte;
  p.dst.channels = 4;
  p.tint_brightness = 1.0f;
  p.blend_mode = 5;
  p.output_mode = 2;
  EXPECT_EQ(h.effect->ProcessFull(&p), VX_E_POINTER);
  ASSERT_EQ(h.effect->SetImageSize(8, 8), VX_OK);
  ASSERT_EQ(h.effect->Reset(), VX_OK);
  EXPECT_EQ(h.effect->ProcessFull(&p), VX_E_POINTER);
  EXPECT_EQ(src_byte, 1);
  EXPECT_EQ(dst_byte, 2);
}

// A side of 1 has a half-size side of trunc(0.5) = 0: "downsampling src" answers 0x80004005.
// Copying the source (output mode 3) needs no half-size image and works.
TEST(Regression, OnePixelSideHasNoHalfSizeImage) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  for (const auto& size : std::vector<std::pair<int32_t, int32_t>>{{1, 1}, {1, 9}, {9, 1}}) {
    ASSERT_EQ(h.effect->SetImageSize(size.first, size.second), VX_OK);
    Image src(size.first, size.second), dst(size.first, size.second);
    src.FillRandom(7);
    const BlackMistParam p = Record(src, dst);
    EXPECT_EQ(h.effect->Process(&p), VX_E_FAIL);

    BlackMistFullParam full{};
    full.src = p.src;
    full.dst = p.dst;
    full.tint_brightness = 1.0f;
    full.output_mode = 3;
    full.process_rect = p.process_rect;
    EXPECT_EQ(h.effect->ProcessFull(&full), VX_OK);
    EXPECT_EQ(dst.bytes, src.bytes);
  }
}

// A null destination is not refused up front; the first stage that writes it is.
TEST(Regression, NullDestinationFailsInTheFirstWritingStage) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  ASSERT_EQ(h.effect->SetImageSize(12, 10), VX_OK);
  Image src(12, 10), dst(12, 10);
  src.FillRandom(11);
  BlackMistParam p = Record(src, dst);
  p.dst.data = nullptr;
  EXPECT_EQ(h.effect->Process(&p), VX_E_POINTER);
  // An empty rectangle writes nothing, so nothing fails.
  p.process_rect = {4, 4, 4, 4};
  p.dst.width = p.dst.height = 0;
  const int32_t rc = h.effect->Process(&p);
  EXPECT_TRUE(rc == VX_OK || rc == VX_E_POINTER) << std::hex << rc;
}

// Rectangle edges beyond INT32_MAX that wrap to a matching destination size are refused by the
// rectangle check, not met by a kernel.
TEST(Regression, WrappedRectangleEdges) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  ASSERT_EQ(h.effect->SetImageSize(8, 8), VX_OK);
  Image src(8, 8), dst(8, 8);
  BlackMistParam p = Record(src, dst);
  p.process_rect = {0xFFFFFFF8u, 0, 0, 8};  // right - left wraps to 8
  EXPECT_EQ(h.effect->Process(&p), VX_E_INVALIDARG);
  p.process_rect = {0, 0x80000000u, 8, 0x80000008u};
  EXPECT_EQ(h.effect->Process(&p), VX_E_INVALIDARG);
}

// The blend-blur radius has no range. Far too large, it saturates (2 x radius x 0.5 + 0.5 is
// taken to int32 with saturation) and the blur must treat it as "longer than the line"; below
// -0.5 it truncates to a negative radius, which the first "BoxBlurH" refuses.
TEST(Regression, UnrangedBlendBlurRadius) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  ASSERT_EQ(h.effect->SetImageSize(11, 9), VX_OK);
  Image src(11, 9);
  src.FillRandom(19);
  for (float radius : {1e9f, 1e30f, 3.4e38f, 2147483520.0f, 40.0f}) {
    Image dst(11, 9);
    BlackMistFullParam p{};
    p.src = src.Desc();
    p.dst = dst.Desc();
    p.light_intensity = 1.0f;
    p.tint_brightness = 1.0f;
    p.blend_opacity = 255;
    p.weight_blur = 0.5f;
    p.weight_src = 0.5f;
    p.blur_blended = 1;
    p.blend_blur_radius = radius;
    p.blend_mode = 5;
    p.output_mode = 2;
    p.process_rect = {0, 0, 11, 9};
    EXPECT_EQ(h.effect->ProcessFull(&p), VX_OK) << radius;
    // Every window is the whole line: for output mode 1 (the blurred blend) each row, and
    // then each column, holds one value per channel.
    p.output_mode = 1;
    EXPECT_EQ(h.effect->ProcessFull(&p), VX_OK) << radius;
    for (int32_t y = 0; y < 9; ++y)
      for (int32_t x = 0; x < 11; ++x)
        for (int c = 0; c < 3; ++c) ASSERT_EQ(dst.Pixel(x, y)[c], dst.Pixel(0, 0)[c]) << radius;
  }
  Image dst(11, 9);
  BlackMistFullParam p{};
  p.src = src.Desc();
  p.dst = dst.Desc();
  p.tint_brightness = 1.0f;
  p.blend_opacity = 255;
  p.blur_blended = 1;
  p.blend_blur_radius = -2.0f;
  p.blend_mode = 5;
  p.output_mode = 2;
  p.process_rect = {0, 0, 11, 9};
  EXPECT_EQ(h.effect->ProcessFull(&p), VX_E_INVALIDARG);
}

}  // namespace
}  // namespace Vantyx
