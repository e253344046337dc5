// BlackMist per frame, basic and full call, plain and fast kernels, beside the same stage
// sequence written with OpenCV and the frame copy (bench/support.cpp).
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <memory>

#include "core/platform.h"
#include "core/thread_pool.h"
#include "effects/blackmist/blackmist_effect.h"
#include "support.h"

namespace Vantyx {
namespace bench {
namespace {

constexpr float kIntensity = 1.0f;
constexpr uint32_t kThreshold = 180;

float SoftRadius(int32_t w, int32_t h) { return float(std::max(w, h) / 8) * 0.25f; }

struct MistRun {
  CThreadPool pool;
  std::unique_ptr<BlackMistEffect> effect;
  Frame src, dst;
  MistRun(int32_t w, int32_t h, int32_t simd) : src(w, h, PIXEL_BGRA32, 7), dst(w, h, PIXEL_BGRA32, 8) {
    pool.Create(ThreadCount());
    effect = std::make_unique<BlackMistEffect>(&pool);
    const CpuInfo info{platform::ProcessorCount(), simd, 0};
    effect->SetCpuInfo(&info);
    effect->SetImageSize(w, h);
  }
  ImageDesc Desc(Frame& f) {
    return ImageDesc{f.bytes.data(), uint32_t(f.width), uint32_t(f.height), uint32_t(f.stride), 4, 0, 0};
  }
  BlackMistParam Basic() {
    BlackMistParam p{};
    p.src = Desc(src);
    p.dst = Desc(dst);
    p.light_intensity = kIntensity;
    p.soft_radius = SoftRadius(src.width, src.height);
    p.hlr_threshold = kThreshold;
    p.strength = 1;
    p.process_rect = {0, 0, uint32_t(src.width), uint32_t(src.height)};
    return p;
  }
  BlackMistFullParam Full() {
    const BlackMistParam b = Basic();
    BlackMistFullParam p{};
    p.src = b.src;
    p.dst = b.dst;
    p.light_intensity = b.light_intensity;
    p.soft_radius = b.soft_radius;
    p.hlr_threshold = b.hlr_threshold;
    p.tint_amount = 0.3f;
    p.tint_hue = 0.08f;
    p.tint_brightness = 1.0f;
    p.blend_opacity = 255;
    p.weight_blur = 0.27f;
    p.weight_src = 0.73f;
    p.use_tone_mapping = 1;
    p.keep_saturation = 1;
    p.blur_blended = 1;
    p.blend_blur_radius = float(std::max(src.width, src.height) / 8) * 0.06f;
    p.blend_mode = 5;
    p.output_mode = 2;
    p.strength = 1;
    p.process_rect = b.process_rect;
    return p;
  }
};

void BlackMistBasic(benchmark::State& state, int32_t simd) {
  MistRun run(int32_t(state.range(0)), int32_t(state.range(1)), simd);
  const BlackMistParam p = run.Basic();
  for (auto _ : state) {
    if (run.effect->Process(&p) != 0) state.SkipWithError("Process failed");
    benchmark::DoNotOptimize(run.dst.bytes.data());
  }
  SetFrameBytes(state, state.range(0), state.range(1));
}

void BlackMistFull(benchmark::State& state, int32_t simd) {
  MistRun run(int32_t(state.range(0)), int32_t(state.range(1)), simd);
  const BlackMistFullParam p = run.Full();
  for (auto _ : state) {
    if (run.effect->ProcessFull(&p) != 0) state.SkipWithError("ProcessFull failed");
    benchmark::DoNotOptimize(run.dst.bytes.data());
  }
  SetFrameBytes(state, state.range(0), state.range(1));
}

void BM_BlackMistBasic_Plain(benchmark::State& s) { BlackMistBasic(s, SIMD_SSE3); }
void BM_BlackMistBasic_Sse41(benchmark::State& s) { BlackMistBasic(s, SIMD_SSE41); }
void BM_BlackMistFull_Plain(benchmark::State& s) { BlackMistFull(s, SIMD_SSE3); }
void BM_BlackMistFull_Sse41(benchmark::State& s) { BlackMistFull(s, SIMD_SSE41); }

// The same stages with OpenCV: half-size resize, luma key, float conversion, contrast curve,
// two horizontal and two vertical box blurs, resize up, screen blend, full-size blur of the
// blend, weighted sum.
void BM_BlackMist_OpenCV(benchmark::State& state) {
  const int w = int(state.range(0)), h = int(state.range(1));
  Dispatcher::Get();  // sets OpenCV's thread count
  Frame frame(w, h, PIXEL_BGRA32, 7);
  cv::Mat src(h, w, CV_8UC4, frame.bytes.data());
  cv::Mat small, gray, key, keyed, f, curved, up, up8, inv_src, inv_up, prod, screen, blurred, out;
  const int r = std::max(1, int(2.0f * SoftRadius(w, h) * 0.5f + 0.5f));
  const int r2 = std::max(1, int(2.0f * float(std::max(w, h) / 8) * 0.06f * 0.5f + 0.5f));
  const cv::Size kh(2 * r - 1, 1), kv(1, 2 * r - 1);
  const cv::Size k2h(2 * r2 - 1, 1), k2v(1, 2 * r2 - 1);
  for (auto _ : state) {
    cv::resize(src, small, cv::Size(w / 2, h / 2), 0, 0, cv::INTER_LINEAR);
    cv::cvtColor(small, gray, cv::COLOR_BGRA2GRAY);
    cv::threshold(gray, key, kThreshold, 255, cv::THRESH_BINARY);
    small.copyTo(keyed, key);
    keyed.convertTo(f, CV_32FC4, 1.0 / 255.0);
    // Contrast curve y -> 2y^2 style S-curve approximated with one multiply-add per value.
    cv::multiply(f, f, curved);
    cv::addWeighted(curved, 1.0, f, 0.5, 0.0, curved);
    for (int i = 0; i < 2; ++i) cv::blur(curved, curved, kh);
    for (int i = 0; i < 2; ++i) cv::blur(curved, curved, kv);
    curved.convertTo(keyed, CV_8UC4, 255.0);
    cv::resize(keyed, up8, cv::Size(w, h), 0, 0, cv::INTER_LINEAR);
    cv::bitwise_not(src, inv_src);
    cv::bitwise_not(up8, inv_up);
    cv::multiply(inv_src, inv_up, prod, 1.0 / 255.0);
    cv::bitwise_not(prod, screen);
    cv::blur(screen, blurred, k2h);
    cv::blur(blurred, blurred, k2h);
    for (int i = 0; i < 2; ++i) cv::blur(blurred, blurred, k2v);
    cv::addWeighted(blurred, 0.27, screen, 0.73, 0.0, out);
    benchmark::DoNotOptimize(out.data);
  }
  SetFrameBytes(state, w, h);
}

}  // namespace

BENCHMARK(BM_BlackMistBasic_Plain)->Apply(FrameSizes);
BENCHMARK(BM_BlackMistBasic_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_BlackMistFull_Plain)->Apply(FrameSizes);
BENCHMARK(BM_BlackMistFull_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_BlackMist_OpenCV)->Apply(FrameSizes);

}  // namespace bench
}  // namespace Vantyx
