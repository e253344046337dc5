// Bilinear resampling of BGRA frames: down to half size and up to double size, plain and fast
// through the dispatcher (bands of destination rows), beside cv::resize INTER_LINEAR. The
// frame size given is the larger image of each pair.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "imageops/resample.h"
#include "support.h"

namespace Vantyx {
namespace bench {
namespace {

using ResampleFn = int32_t (*)(const ImageView&, const ImageView&, const ProcessRect&,
                               const ProcessRect&);

void Resize(benchmark::State& state, ResampleFn fn, bool down) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame big(w, h, PIXEL_BGRA32, 4), small(w / 2, h / 2, PIXEL_BGRA32, 5);
  Frame& src = down ? big : small;
  Frame& dst = down ? small : big;
  const ImageView s = src.View(), d = dst.View();
  const ProcessRect src_rect{0, 0, uint32_t(src.width), uint32_t(src.height)};
  const ProcessRect rect{0, 0, uint32_t(dst.width), uint32_t(dst.height)};
  for (auto _ : state) {
    const int32_t code = Dispatcher::Get().Run(rect, true, [&](const ProcessRect& strip) {
      return fn(s, d, src_rect, strip);
    });
    if (code != 0) state.SkipWithError("resample failed");
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  SetFrameBytes(state, dst.width, dst.height);
}

void ResizeOpenCV(benchmark::State& state, bool down) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame big(w, h, PIXEL_BGRA32, 4), small(w / 2, h / 2, PIXEL_BGRA32, 5);
  cv::Mat mb(big.height, big.width, CV_8UC4, big.bytes.data(), size_t(big.stride));
  cv::Mat ms(small.height, small.width, CV_8UC4, small.bytes.data(), size_t(small.stride));
  cv::Mat& src = down ? mb : ms;
  cv::Mat& dst = down ? ms : mb;
  for (auto _ : state) {
    cv::resize(src, dst, dst.size(), 0, 0, cv::INTER_LINEAR);
    benchmark::DoNotOptimize(dst.data);
  }
  SetFrameBytes(state, dst.cols, dst.rows);
}

void BM_ResizeDown_Plain(benchmark::State& s) { Resize(s, resample_bilinear_u8_plain, true); }
void BM_ResizeDown_Sse41(benchmark::State& s) { Resize(s, resample_bilinear_u8_sse41, true); }
void BM_ResizeDown_OpenCV(benchmark::State& s) { ResizeOpenCV(s, true); }
void BM_ResizeUp_Plain(benchmark::State& s) { Resize(s, resample_bilinear_u8_plain, false); }
void BM_ResizeUp_Sse41(benchmark::State& s) { Resize(s, resample_bilinear_u8_sse41, false); }
void BM_ResizeUp_OpenCV(benchmark::State& s) { ResizeOpenCV(s, false); }

BENCHMARK(BM_ResizeDown_Plain)->Apply(FrameSizes);
BENCHMARK(BM_ResizeDown_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_ResizeDown_OpenCV)->Apply(FrameSizes);
BENCHMARK(BM_ResizeUp_Plain)->Apply(FrameSizes);
BENCHMARK(BM_ResizeUp_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_ResizeUp_OpenCV)->Apply(FrameSizes);

}  // namespace
}  // namespace bench
}  // namespace Vantyx
