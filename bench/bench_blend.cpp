// Blend kernels: screen (index 6, the basic default) and normal (index 0), plain and fast,
// over whole frames through the strip dispatcher, beside OpenCV's addWeighted on the same
// frames and workers (a plain weighted sum: the nearest stock operation, not the same maths).
#include <cstdint>
#include <opencv2/core.hpp>

#include "imageops/blend.h"
#include "support.h"

namespace Vantyx {
namespace bench {
namespace {

void RunBlend(benchmark::State& state, int32_t index, const BlendKernel* table) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame base(w, h, PIXEL_BGRA32, 1), layer(w, h, PIXEL_BGRA32, 2), dst(w, h, PIXEL_BGRA32, 3);
  const ImageView bv = base.View(), lv = layer.View(), dv = dst.View();
  const ProcessRect rect{0, 0, uint32_t(w), uint32_t(h)};
  const BlendKernel kernel = table[index];
  for (auto _ : state) {
    const int32_t rc = Dispatcher::Get().Run(
        rect, true, [&](const ProcessRect& s) { return kernel(bv, lv, dv, 200, s); });
    if (rc != 0) state.SkipWithError("blend failed");
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

void BM_Blend_Screen_Plain(benchmark::State& state) { RunBlend(state, 6, kBlendKernelsPlain); }
void BM_Blend_Screen_Sse41(benchmark::State& state) { RunBlend(state, 6, kBlendKernelsSse41); }
void BM_Blend_Normal_Plain(benchmark::State& state) { RunBlend(state, 0, kBlendKernelsPlain); }
void BM_Blend_Normal_Sse41(benchmark::State& state) { RunBlend(state, 0, kBlendKernelsSse41); }

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
BENCHMARK(BM_Blend_OpenCV_AddWeighted)->Apply(FrameSizes);

}  // namespace
}  // namespace bench
}  // namespace Vantyx
