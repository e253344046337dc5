// Box blur, BGRA, radius 30: one horizontal pass (strips of rows), one vertical pass (strips
// of columns) and one of each, plain and fast through the dispatcher, beside cv::blur with the
// same (2r - 1)-tap box on the same frame.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "imageops/box_blur.h"
#include "support.h"

namespace Vantyx {
namespace bench {
namespace {

constexpr int32_t kRadius = 30;
constexpr int32_t kTaps = 2 * kRadius - 1;

using BlurFn = int32_t (*)(const ImageView&, const ImageView*, int32_t, const ProcessRect&);

int32_t Pass(Frame& f, BlurFn fn, bool rows) {
  const ImageView v = f.View();
  const ProcessRect rect{0, 0, uint32_t(f.width), uint32_t(f.height)};
  return Dispatcher::Get().Run(rect, rows, [&](const ProcessRect& s) {
    return fn(v, nullptr, kRadius, s);
  });
}

void BoxBlur(benchmark::State& state, BlurFn h, BlurFn v) {
  Frame f(int32_t(state.range(0)), int32_t(state.range(1)), PIXEL_BGRA32, 3);
  for (auto _ : state) {
    if ((h != nullptr && Pass(f, h, true) != 0) || (v != nullptr && Pass(f, v, false) != 0))
      state.SkipWithError("box blur failed");
    benchmark::DoNotOptimize(f.bytes.data());
  }
  SetFrameBytes(state, f.width, f.height);
}

void BoxBlurOpenCV(benchmark::State& state, cv::Size ksize) {
  Frame f(int32_t(state.range(0)), int32_t(state.range(1)), PIXEL_BGRA32, 3);
  cv::Mat m(f.height, f.width, CV_8UC4, f.bytes.data(), size_t(f.stride));
  for (auto _ : state) {
    cv::blur(m, m, ksize, cv::Point(-1, -1), cv::BORDER_REPLICATE);
    benchmark::DoNotOptimize(f.bytes.data());
  }
  SetFrameBytes(state, f.width, f.height);
}

void BM_BoxBlurH_Plain(benchmark::State& s) { BoxBlur(s, box_blur_rows_plain, nullptr); }
void BM_BoxBlurH_Sse41(benchmark::State& s) { BoxBlur(s, box_blur_rows_sse41, nullptr); }
void BM_BoxBlurH_OpenCV(benchmark::State& s) { BoxBlurOpenCV(s, cv::Size(kTaps, 1)); }
void BM_BoxBlurV_Plain(benchmark::State& s) { BoxBlur(s, nullptr, box_blur_cols_plain); }
void BM_BoxBlurV_Sse41(benchmark::State& s) { BoxBlur(s, nullptr, box_blur_cols_sse41); }
void BM_BoxBlurV_OpenCV(benchmark::State& s) { BoxBlurOpenCV(s, cv::Size(1, kTaps)); }
// Both directions: the (2r - 1) x (2r - 1) box.
void BM_BoxBlur_Plain(benchmark::State& s) { BoxBlur(s, box_blur_rows_plain, box_blur_cols_plain); }
void BM_BoxBlur_Sse41(benchmark::State& s) { BoxBlur(s, box_blur_rows_sse41, box_blur_cols_sse41); }
void BM_BoxBlur_OpenCV(benchmark::State& s) { BoxBlurOpenCV(s, cv::Size(kTaps, kTaps)); }

BENCHMARK(BM_BoxBlurH_Plain)->Apply(FrameSizes);
BENCHMARK(BM_BoxBlurH_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_BoxBlurH_OpenCV)->Apply(FrameSizes);
BENCHMARK(BM_BoxBlurV_Plain)->Apply(FrameSizes);
BENCHMARK(BM_BoxBlurV_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_BoxBlurV_OpenCV)->Apply(FrameSizes);
BENCHMARK(BM_BoxBlur_Plain)->Apply(FrameSizes);
BENCHMARK(BM_BoxBlur_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_BoxBlur_OpenCV)->Apply(FrameSizes);

}  // namespace
}  // namespace bench
}  // namespace Vantyx
