// The plain blend kernels, the kernel tables' plain half, the mode list and the block job.
// The per-mode arithmetic lives in blend_internal.h; here it runs one pixel at a time.
#include "imageops/blend.h"

#include "imageops/blend_internal.h"

namespace Vantyx {

namespace blend_detail {

int32_t PrepareBlend(const ImageView& base, const ImageView& layer, const ImageView& dst,
                     const ProcessRect& strip, Area* area) {
  *area = Area{0, 0, 0, 0};
  if (base.data == nullptr || layer.data == nullptr || dst.data == nullptr)
    return static_cast<int32_t>(0x80004003);
  if (base.format != PIXEL_BGRA32 || layer.format != PIXEL_BGRA32 || dst.format != PIXEL_BGRA32)
    return static_cast<int32_t>(0x80070057);
  *area = Clip(Clip(Clip(AreaOf(strip), dst), base), layer);
  return 0;
}

namespace {

template <class Op>
int32_t BlendPlain(const ImageView& base, const ImageView& layer, const ImageView& dst,
                   uint32_t opacity, const ProcessRect& strip) {
  Area area;
  const int32_t rc = PrepareBlend(base, layer, dst, strip, &area);
  if (rc != 0 || area.Empty()) return rc;
  const int32_t op = ClampOpacity(opacity);
  for (int32_t y = area.top; y < area.bottom; ++y) {
    const uint8_t* pb = base.At(area.left, y);
    const uint8_t* pl = layer.At(area.left, y);
    uint8_t* pd = dst.At(area.left, y);
    for (int32_t x = area.left; x < area.right; ++x, pb += 4, pl += 4, pd += 4) {
      const int32_t a = (pl[3] * op) >> 8;
      if (a <= 0) continue;  // not written at all
      const int32_t b[4] = {pb[0], pb[1], pb[2], pb[3]};
      const int32_t l[4] = {pl[0], pl[1], pl[2], pl[3]};
      int32_t out[4];
      Composite<Op>(b, l, a, out);
      if (!Op::kAlphaOnly) {
        pd[0] = static_cast<uint8_t>(out[0]);
        pd[1] = static_cast<uint8_t>(out[1]);
        pd[2] = static_cast<uint8_t>(out[2]);
      }
      pd[3] = static_cast<uint8_t>(out[3]);
    }
  }
  return 0;
}

}  // namespace
}  // namespace blend_detail

// The mode names of the table list are blend_detail's.
using namespace blend_detail;  // NOLINT(build/namespaces)
#define VANTYX_BLEND_PLAIN(Op) &BlendPlain<Op>
const BlendKernel kBlendKernelsPlain[kBlendKernelCount] = {VANTYX_BLEND_OPS(VANTYX_BLEND_PLAIN)};
#undef VANTYX_BLEND_PLAIN

const int32_t kBlendModeToIndex[kBlendModeCount] = {
    0,  1,  2,  4,  5,  6,  8,  9,  11, 12, 13, 14, 15, 16, 17,  // codes 0..14
    18, 19, 21, 23, 25, 26, 27, 28, 30, 32, 34, 35, 36, 37       // codes 15..28
};

int32_t BlendIndexForMode(int32_t mode) {
  if (mode < 0 || mode >= kBlendModeCount) return -1;
  return kBlendModeToIndex[mode];
}

int32_t blend_block(int32_t index, const ImageView& base, const ImageView& layer,
                    const ImageView& dst, uint32_t opacity, const ProcessRect& strip,
                    int32_t simd_level) {
  if (index < 0 || index >= kBlendKernelCount) return static_cast<int32_t>(0x80070057);
  const BlendKernel* table = simd_level >= SIMD_SSE41 ? kBlendKernelsSse41 : kBlendKernelsPlain;
  return table[index](base, layer, dst, opacity, strip);
}

}  // namespace Vantyx
