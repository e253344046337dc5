// Blend kernels: screen (index 6, the basic default) and normal (index 0), plain and fast,
// over whole frames through the strip dispatcher, beside OpenCV's addWeighted on the same
// frames and workers (a plain weighted sum: the nearest stock operation, not the same maths).
// Two kinds of frame: random bytes, alphas included (every pixel takes the general rule), and
// opaque frames at full opacity, as an effect's own frames usually are (the fast form's
// reduced rule for a base alpha of 255).
#include <cstdint>
#include <opencv2/core.hpp>

#include "imageops/blend.h"
#include "support.h"

namespace Vantyx {
namespace bench {
namespace {

void MakeOpaque(Frame& f) {
  for (size_t i = 3; i < f.bytes.size(); i += 4) f.bytes[i] = 255;
}

void RunBlend(benchmark::State& state, int32_t index, const BlendKernel* table, bool opaque) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame base(w, h, PIXEL_BGRA32, 1), layer(w, h, PIXEL_BGRA32, 2), dst(w, h, PIXEL_BGRA32, 3);
  if (opaque) MakeOpaque(base), MakeOpaque(layer);
  const uint32_t opacity = opaque ? 255 : 200;
  const ImageView bv = base.View(), lv = layer.View(), dv = dst.View();
  const ProcessRect rect{0, 0, uint32_t(w), uint32_t(h)};
  const BlendKernel kernel = table[index];
  for (auto _ : state) {
    const int32_t rc = Dispatcher::Get().Run(
        rect, true, [&](const ProcessRect& s) { return kernel(bv, lv, dv, opacity, s); });
    if (rc != 0) state.SkipWithError("blend failed");
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

void BM_Blend_Screen_Plain(benchmark::State& s) { RunBlend(s, 6, kBlendKernelsPlain, false); }
void BM_Blend_Screen_Sse41(benchmark::State& s) { RunBlend(s, 6, kBlendKernelsSse41, false); }
void BM_Blend_Normal_Plain(benchmark::State& s) { RunBlend(s, 0, kBlendKernelsPlain, false); }
void BM_Blend_Normal_Sse41(benchmark::State& s) { RunBlend(s, 0, kBlendKernelsSse41, false); }
void BM_Blend_ScreenOpaque_Plain(benchmark::State& s) { RunBlend(s, 6, kBlendKernelsPlain, true); }
void BM_Blend_ScreenOpaque_Sse41(benchmark::State& s) { RunBlend(s, 6, kBlendKernelsSse41, true); }
void BM_Blend_NormalOpaque_Plain(benchmark::State& s) { RunBlend(s, 0, kBlendKernelsPlain, true); }
void BM_Blend_NormalOpaque_Sse41(benchmark::State& s) { RunBlend(s, 0, kBlendKernelsSse41, true); }

void BM_Blend_OpenCV_AddWeighted(benchmark::State& state) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame base(w, h, PIXEL_BGRA32, 1), layer(w, h, PIXEL_BGRA32, 2), dst(w, h, PIXEL_BGRA32, 3);
  const cv::Mat bm(h, w, CV_8UC4, base.bytes.data(), size_t(base.stride));
  const cv::Mat lm(h, w, CV_8UC4, layer.bytes.data(), size_t(layer.stride));
  cv::Mat dm(h, w, CV_8UC4, dst.bytes.data(), size_t(dst.stride));
  const ProcessRect rect{0, 0, uint32_t(w), uint32_t(h)};
  for (auto _ : state) {
    Dispatcher::Get().Run(rect, true, [&](const ProcessRect& s) {
      const cv::Range rows(int(s.top), int(s.bottom));
      cv::Mat out = dm.rowRange(rows);
      cv::addWeighted(bm.rowRange(rows), 200.0 / 255.0, lm.rowRange(rows), 55.0 / 255.0, 0.0, out);
      return 0;
    });
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

BENCHMARK(BM_Blend_Screen_Plain)->Apply(FrameSizes);
BENCHMARK(BM_Blend_Screen_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_Blend_Normal_Plain)->Apply(FrameSizes);
BENCHMARK(BM_Blend_Normal_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_Blend_ScreenOpaque_Plain)->Apply(FrameSizes);
BENCHMARK(BM_Blend_ScreenOpaque_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_Blend_NormalOpaque_Plain)->Apply(FrameSizes);
BENCHMARK(BM_Blend_NormalOpaque_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_Blend_OpenCV_AddWeighted)->Apply(FrameSizes);

}  // namespace
}  // namespace bench
}  // namespace Vantyx
