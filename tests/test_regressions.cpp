// Inputs the frame fuzzer (fuzz/) found or circles around, kept as plain tests: each one once
// crashed, overflowed or needed a rule pinned down. Under the asan preset the sanitizers catch
// what a Release build would only get away with.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "test_support.h"
#include "vantyx.h"

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

// A full record over the whole of src into dst (both may be 0 x 0 descriptors).
BlackMistFullParam Record(const ImageDesc& src, const ImageDesc& dst) {
  BlackMistFullParam p{};
  p.src = src;
  p.dst = dst;
  p.light_intensity = 1.0f;
  p.hlr_threshold = 100;
  p.tint_brightness = 1.0f;
  p.blend_opacity = 255;
  p.weight_blur = p.weight_src = 0.5f;
  p.blend_mode = 5;
  p.output_mode = 2;
  p.strength = 1;
  p.process_rect = {0, 0, src.width, src.height};
  return p;
}

BlackMistParam Basic(const BlackMistFullParam& f) {
  return BlackMistParam{f.src,         f.mask,          f.dst,      f.light_intensity,
                        f.soft_radius, f.hlr_threshold, f.strength, f.process_rect};
}

// SetImageSize(INT32_MAX, 1) overflowed the signed sum n + n % 4 of the aligned width. The
// aligned width now wraps in unsigned arithmetic, its buffers are too large for 32-bit byte
// counts and the size is refused; the effect stays usable.
TEST(Regression, SideNearInt32MaxIsRefusedWithoutOverflow) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  for (const auto& size : std::vector<std::pair<int32_t, int32_t>>{
           {INT32_MAX, 1}, {1, INT32_MAX}, {INT32_MAX - 1, 2}, {INT32_MIN, 4}})
    EXPECT_EQ(h.effect->SetImageSize(size.first, size.second), VX_E_INVALIDARG) << size.first;
  ASSERT_EQ(h.effect->SetImageSize(9, 7), VX_OK);
  Image src(9, 7), dst(9, 7);
  src.FillRandom(3);
  const BlackMistParam p = Basic(Record(src.Desc(), dst.Desc()));
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
  const BlackMistParam p = Basic(Record(src.Desc(), dst.Desc()));
  EXPECT_EQ(h.effect->Process(&p), VX_E_INVALIDARG);
  uint8_t byte = 0x5A;
  const ImageDesc empty{&byte, 0, 0, 0, 4, PIXEL_BGRA32, 0};  // 0 x 0 but present
  const BlackMistParam e = Basic(Record(empty, empty));
  EXPECT_EQ(h.effect->Process(&e), VX_E_POINTER);
  EXPECT_EQ(byte, 0x5A);
  ASSERT_EQ(h.effect->SetImageSize(16, 16), VX_OK);  // a fresh size recovers
  EXPECT_EQ(h.effect->Process(&p), VX_OK);
}

// A 0 x 0 frame passes the record checks on an effect never sized (or Reset); the first stage
// that needs a working buffer meets none: 0x80004003, nothing written.
TEST(Regression, EmptyFrameOnAnUnsizedEffect) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  uint8_t src_byte = 1, dst_byte = 2;
  const BlackMistFullParam p = Record(ImageDesc{&src_byte, 0, 0, 0, 4, PIXEL_BGRA32, 0},
                                      ImageDesc{&dst_byte, 0, 0, 0, 4, PIXEL_BGRA32, 0});
  EXPECT_EQ(h.effect->ProcessFull(&p), VX_E_POINTER);
  ASSERT_EQ(h.effect->SetImageSize(8, 8), VX_OK);
  ASSERT_EQ(h.effect->Reset(), VX_OK);
  EXPECT_EQ(h.effect->ProcessFull(&p), VX_E_POINTER);
  EXPECT_EQ(src_byte, 1);
  EXPECT_EQ(dst_byte, 2);
}

// A side of 1 has a half-size side of trunc(0.5) = 0: "downsampling src" answers 0x80004005,
// logged with the kernel's name (the engine's processor level picks it), the stage's and "total process". Copying the source (output
// mode 3) needs no half-size image and works.
TEST(Regression, OnePixelSideHasNoHalfSizeImage) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  for (const auto& size : std::vector<std::pair<int32_t, int32_t>>{{1, 9}, {1, 1}, {9, 1}}) {
    ASSERT_EQ(h.effect->SetImageSize(size.first, size.second), VX_OK);
    Image src(size.first, size.second), dst(size.first, size.second);
    src.FillRandom(7);
    BlackMistFullParam p = Record(src.Desc(), dst.Desc());
    test::LogCapture log;
    EXPECT_EQ(h.effect->ProcessFull(&p), VX_E_FAIL);
    const std::string kernel = test::HasSse41() ? "resize buff SSE" : "resize buff";
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                               "[VNTX] [Vantyx](" + kernel + ") - Return Code: 80004005\n",
                               "[VNTX] [Vantyx](downsampling src) - Return Code: 80004005\n",
                               "[VNTX] [Vantyx](total process) - Return Code: 80004005\n"}));
    p.output_mode = 3;
    EXPECT_EQ(h.effect->ProcessFull(&p), VX_OK);
    EXPECT_EQ(dst.bytes, src.bytes);
  }
}

// A null destination is not refused up front; the first stage that writes it is, and the
// failure is logged with that stage's name and then "total process".
TEST(Regression, NullDestinationFailsInTheFirstWritingStage) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  ASSERT_EQ(h.effect->SetImageSize(12, 10), VX_OK);
  Image src(12, 10), dst(12, 10);
  src.FillRandom(11);
  BlackMistParam p = Basic(Record(src.Desc(), dst.Desc()));
  p.dst.data = nullptr;
  test::LogCapture log;
  EXPECT_EQ(h.effect->Process(&p), VX_E_POINTER);
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                             "[VNTX] [Vantyx](blending hlr to result) - Return Code: 80004003\n",
                             "[VNTX] [Vantyx](total process) - Return Code: 80004003\n"}));
  // An empty rectangle writes nothing, so nothing needs to fail.
  p.process_rect = {4, 4, 4, 4};
  p.dst.width = p.dst.height = 0;
  const int32_t rc = h.effect->Process(&p);
  EXPECT_TRUE(rc == VX_OK || rc == VX_E_POINTER) << std::hex << rc;
}

// The blend-blur radius has no range. Far too large, it saturates (2 x radius x 0.5 + 0.5 is
// taken to int32 with saturation) and the blur treats it as "longer than the line": every
// window is the whole line, so the blurred blend (output mode 1) holds one value per channel.
// Below -0.5 it truncates to a negative radius, which the first "BoxBlurH" refuses.
TEST(Regression, UnrangedBlendBlurRadius) {
  Host h;
  ASSERT_NE(h.effect, nullptr);
  ASSERT_EQ(h.effect->SetImageSize(11, 9), VX_OK);
  Image src(11, 9), dst(11, 9);
  src.FillRandom(19);
  BlackMistFullParam p = Record(src.Desc(), dst.Desc());
  p.blur_blended = 1;
  for (float radius : {1e9f, 1e30f, 3.4e38f, 2147483520.0f, 40.0f}) {
    p.blend_blur_radius = radius;
    p.output_mode = 2;
    EXPECT_EQ(h.effect->ProcessFull(&p), VX_OK) << radius;
    p.output_mode = 1;
    EXPECT_EQ(h.effect->ProcessFull(&p), VX_OK) << radius;
    for (int32_t y = 0; y < 9; ++y)
      for (int32_t x = 0; x < 11; ++x)
        for (int c = 0; c < 3; ++c) ASSERT_EQ(dst.Pixel(x, y)[c], dst.Pixel(0, 0)[c]) << radius;
  }
  p.blend_blur_radius = -2.0f;
  EXPECT_EQ(h.effect->ProcessFull(&p), VX_E_INVALIDARG);
}

}  // namespace
}  // namespace Vantyx
