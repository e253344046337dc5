// Halation per frame, basic and full call, plain and fast kernels, beside the same stages
// written with OpenCV the way a skilled user would (strip-parallel fused per-pixel loops,
// cv::resize, cv::sepFilter2D with the same kernel) and the frame copy (bench/support.cpp).
// The frames are the sample photo scaled to the frame size: the glow works on real
// highlights. HalationDense runs the same calls on random bytes, the worst case for the blur.
//
// Also the kernels alone: the gaussian blur (both passes, default radius) and the channel
// split and merge, each beside its nearest OpenCV operation, and the family's own per-pixel
// kernels, plain against SSE4.1.
#include <algorithm>
#include <cstring>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "core/platform.h"
#include "core/thread_pool.h"
#include "effects/halation/halation_effect.h"
#include "effects/halation/halation_kernels.h"
#include "imageops/channels.h"
#include "imageops/colour.h"
#include "imageops/gaussian_blur.h"
#include "support.h"

#ifndef VANTYX_BENCH_PHOTO
#define VANTYX_BENCH_PHOTO ""
#endif

namespace Vantyx {
namespace bench {
namespace {

constexpr int32_t kRadius = 36;  // the reset value: 29 taps each side once trimmed
constexpr uint32_t kHighlight = 203, kMidtone = 216, kShow = 203, kStrength = 50;

// The sample photo scaled to w x h as BGRA; random bytes when it cannot be read.
Frame Photo(int32_t w, int32_t h) {
  Frame f(w, h, PIXEL_BGRA32, 7);
  const cv::Mat photo = cv::imread(VANTYX_BENCH_PHOTO, cv::IMREAD_COLOR);
  if (photo.empty()) return f;
  cv::Mat bgra, sized(h, w, CV_8UC4, f.bytes.data(), size_t(f.stride));
  cv::cvtColor(photo, bgra, cv::COLOR_BGR2BGRA);
  cv::resize(bgra, sized, cv::Size(w, h), 0, 0, cv::INTER_LINEAR);
  return f;
}

ImageDesc Desc(Frame& f) {
  return ImageDesc{
      f.bytes.data(), uint32_t(f.width), uint32_t(f.height), uint32_t(f.stride), 4, 0, 0};
}

struct HalationRun {
  CThreadPool pool;
  std::unique_ptr<HalationEffect> effect;
  Frame src, dst;
  HalationRun(int32_t w, int32_t h, int32_t simd, bool dense)
      : src(dense ? Frame(w, h, PIXEL_BGRA32, 7) : Photo(w, h)), dst(w, h, PIXEL_BGRA32, 8) {
    pool.Create(ThreadCount());
    effect = std::make_unique<HalationEffect>(&pool);
    const CpuInfo info{platform::ProcessorCount(), simd, 0};
    effect->SetCpuInfo(&info);
    effect->SetImageSize(w, h);
  }
  HalationParams Basic() {
    HalationParams p{};
    p.src = Desc(src);
    p.dst = Desc(dst);
    p.opacity = 255;
    p.highlight_threshold = kHighlight;
    p.blur_radius = kRadius;
    p.midtone_threshold = kMidtone;
    p.curve_strength = kStrength;
    p.show_threshold = kShow;
    p.process_rect = {0, 0, uint32_t(src.width), uint32_t(src.height)};
    return p;
  }
  // A stronger red key and screen instead of lighten: other values, the same stages.
  HalationParamsEx Full() {
    const HalationParams b = Basic();
    HalationParamsEx p{};
    p.src = b.src;
    p.dst = b.dst;
    p.opacity = 230;
    p.highlight_threshold = kHighlight;
    p.blur_radius = kRadius;
    p.blur_radius_2 = kRadius;
    p.midtone_threshold = kMidtone;
    p.curve_strength = 80;
    p.show_threshold = kShow;
    p.process_rect = b.process_rect;
    p.keyer_gain = 1.5f;
    p.tone_mapping = 1;
    p.blend_mode = 5;
    p.debug_view = 9;
    return p;
  }
};

void HalationBasic(benchmark::State& state, int32_t simd, bool dense) {
  HalationRun run(int32_t(state.range(0)), int32_t(state.range(1)), simd, dense);
  const HalationParams p = run.Basic();
  for (auto _ : state) {
    if (run.effect->Process(&p) != 0) state.SkipWithError("Process failed");
    benchmark::DoNotOptimize(run.dst.bytes.data());
  }
  SetFrameBytes(state, state.range(0), state.range(1));
}

void HalationFull(benchmark::State& state, int32_t simd) {
  HalationRun run(int32_t(state.range(0)), int32_t(state.range(1)), simd, false);
  const HalationParamsEx p = run.Full();
  for (auto _ : state) {
    if (run.effect->ProcessFull(&p) != 0) state.SkipWithError("ProcessFull failed");
    benchmark::DoNotOptimize(run.dst.bytes.data());
  }
  SetFrameBytes(state, state.range(0), state.range(1));
}

void BM_HalationBasic_Plain(benchmark::State& s) { HalationBasic(s, SIMD_SSE3, false); }
void BM_HalationBasic_Sse41(benchmark::State& s) { HalationBasic(s, SIMD_SSE41, false); }
void BM_HalationFull_Plain(benchmark::State& s) { HalationFull(s, SIMD_SSE3); }
void BM_HalationFull_Sse41(benchmark::State& s) { HalationFull(s, SIMD_SSE41); }
void BM_HalationDense_Sse41(benchmark::State& s) { HalationBasic(s, SIMD_SSE41, true); }

// ---- The same stages with OpenCV ---------------------------------------------------------

inline int32_t Luma(const uint8_t* p) { return (19660 * p[2] + 38665 * p[1] + 7209 * p[0]) >> 16; }

inline uint8_t Faded(uint8_t c, float f) {
  const float v = float(c) * f;
  return v < 1.0f ? 0 : uint8_t(int32_t(v));
}

// What a skilled user keeps: the highlight as three channels, the midtone as the two it
// contributes (G and the tone-mapped R), and one fused loop at each end of the half-size work.
class OpenCvHalation {
 public:
  OpenCvHalation(int w, int h, const cv::Mat& src) : w_(w), h_(h), src_(src) {
    const GaussianKernel k = BuildGaussianKernel(kRadius);
    kernel_ = cv::Mat(2 * k.radius + 1, 1, CV_32F);
    for (int t = -k.radius; t <= k.radius; ++t)
      kernel_.at<float>(t + k.radius) = k.weights[size_t(std::abs(t))];
    const CurvePoint a[] = {{0, 0}, {72, 170}, {120, 200}, {255, 255}};
    const CurvePoint b[] = {{0, 0}, {150, 175}, {255, 255}};
    const CurvePoint c[] = {{0, 0}, {75, 88}, {160, 180}, {255, 255}};
    BuildToneCurve(a, 4, curve_a_, 256);
    BuildToneCurve(b, 3, curve_b_, 256);
    BuildToneCurve(c, 4, curve_c_, 256);
    cv::Mat lut(1, 256, CV_8UC3);
    for (int i = 0; i < 256; ++i)
      lut.at<cv::Vec3b>(i) = cv::Vec3b(uint8_t(i), curve_b_[i], curve_a_[i]);
    lut_ = lut;
    hl_.create(h, w, CV_8UC3);
    mid_.create(h, w, CV_8UC2);
    dst_.create(h, w, CV_8UC4);
  }

  void Run() {
    cv::parallel_for_(cv::Range(0, h_), [this](const cv::Range& r) { KeyRows(r.start, r.end); });
    cv::resize(hl_, small_, cv::Size(w_ / 2, h_ / 2), 0, 0, cv::INTER_LINEAR);
    cv::sepFilter2D(small_, small_, -1, kernel_, kernel_, cv::Point(-1, -1), 0,
                    cv::BORDER_REPLICATE);
    cv::LUT(small_, lut_, small_);
    cv::resize(small_, up_, cv::Size(w_, h_), 0, 0, cv::INTER_LINEAR);
    cv::parallel_for_(cv::Range(0, h_),
                      [this](const cv::Range& r) { CompositeRows(r.start, r.end); });
  }
  const cv::Mat& Result() const { return dst_; }

 private:
  // Luma keyer, midtone extraction and its tone curve, one pass, written branch-free so that
  // the compiler vectorises it.
  void KeyRows(int y0, int y1) {
    const int32_t t = int32_t(kHighlight), tm = int32_t(kMidtone);
    const float tf = float(t), mid_range = 20.0f;
    for (int y = y0; y < y1; ++y) {
      const uint8_t* s = src_.ptr<uint8_t>(y);
      uint8_t* hl = hl_.ptr<uint8_t>(y);
      uint8_t* mid = mid_.ptr<uint8_t>(y);
      for (int x = 0; x < w_; ++x) {
        const int32_t b = s[4 * x], g = s[4 * x + 1], r = s[4 * x + 2];
        const int32_t l = (19660 * r + 38665 * g + 7209 * b) >> 16;
        const float f = l >= t ? 1.0f : 1.0f - float(t - l) / 15.0f;
        const float red = l >= t ? std::min(255.0f, float(r - t) + tf) : float(r) * f;
        hl[3 * x] = uint8_t(std::max(0, int32_t(float(b) * f)));
        hl[3 * x + 1] = uint8_t(std::max(0, int32_t(float(g) * f)));
        hl[3 * x + 2] = uint8_t(std::max(0, int32_t(red)));
        const float fm = l < tm ? 1.0f - float(tm - l) / mid_range : 1.0f;
        mid[2 * x] = uint8_t(std::max(0, int32_t(float(g) * fm)));
        mid[2 * x + 1] = curve_c_[std::max(0, int32_t(float(r) * fm))];
      }
    }
  }

  // Compare the two masks, fade over bright pixels, lighten-composite onto the source: one
  // pass, branch-free, one reciprocal per pixel instead of three divisions.
  void CompositeRows(int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      const uint8_t* s = src_.ptr<uint8_t>(y);
      const uint8_t* up = up_.ptr<uint8_t>(y);
      const uint8_t* mid = mid_.ptr<uint8_t>(y);
      uint8_t* d = dst_.ptr<uint8_t>(y);
      for (int x = 0; x < w_; ++x) {
        const int32_t sb = s[4 * x], sg = s[4 * x + 1], sr = s[4 * x + 2], ab = s[4 * x + 3];
        const int32_t l = (19660 * sr + 38665 * sg + 7209 * sb) >> 16;
        const int32_t fade = std::max(0, int32_t(kShow) - l + 100);
        const float w = l <= int32_t(kShow) ? 1.0f : float(fade) / 100.0f;
        const int32_t a = (int32_t(255.0f * w) * 255) >> 8;
        const int32_t lb = up[3 * x], lg = std::max<int32_t>(up[3 * x + 1], mid[2 * x]),
                      lr = std::max<int32_t>(up[3 * x + 2], mid[2 * x + 1]);
        const int32_t k1 = (255 - a) * ab / 255, k2 = (255 - ab) * a / 255, k3 = a * ab / 255;
        const int32_t ao = a + k1;
        const float inv = 1.0f / float(std::max(ao, 1));
        const int32_t ob = int32_t(float(k3 * std::max(sb, lb) + k2 * lb + k1 * sb) * inv);
        const int32_t og = int32_t(float(k3 * std::max(sg, lg) + k2 * lg + k1 * sg) * inv);
        const int32_t orr = int32_t(float(k3 * std::max(sr, lr) + k2 * lr + k1 * sr) * inv);
        const bool keep = a <= 0;
        d[4 * x] = keep ? d[4 * x] : uint8_t(std::min(255, ob));
        d[4 * x + 1] = keep ? d[4 * x + 1] : uint8_t(std::min(255, og));
        d[4 * x + 2] = keep ? d[4 * x + 2] : uint8_t(std::min(255, orr));
        d[4 * x + 3] = keep ? d[4 * x + 3] : uint8_t(ao);
      }
    }
  }

  int w_, h_;
  cv::Mat src_, hl_, mid_, small_, up_, dst_, kernel_, lut_;
  uint8_t curve_a_[256], curve_b_[256], curve_c_[256];
};

void HalationOpenCV(benchmark::State& state, bool dense) {
  const int w = int(state.range(0)), h = int(state.range(1));
  Dispatcher::Get();  // sets OpenCV's thread count
  Frame frame = dense ? Frame(w, h, PIXEL_BGRA32, 7) : Photo(w, h);
  OpenCvHalation pipeline(w, h, cv::Mat(h, w, CV_8UC4, frame.bytes.data(), size_t(frame.stride)));
  for (auto _ : state) {
    pipeline.Run();
    benchmark::DoNotOptimize(pipeline.Result().data);
  }
  SetFrameBytes(state, w, h);
}

void BM_Halation_OpenCV(benchmark::State& s) { HalationOpenCV(s, false); }
void BM_HalationDense_OpenCV(benchmark::State& s) { HalationOpenCV(s, true); }

// ---- Kernels -------------------------------------------------------------------------------

using BlurFn = int32_t (*)(const ImageView&, const float*, int32_t, const ProcessRect&);

void GaussianBlur(benchmark::State& state, BlurFn rows, BlurFn cols) {
  Frame f(int32_t(state.range(0)), int32_t(state.range(1)), PIXEL_BGRA32, 3);
  const GaussianKernel k = BuildGaussianKernel(kRadius);
  const ImageView v = f.View();
  const ProcessRect rect{0, 0, uint32_t(f.width), uint32_t(f.height)};
  for (auto _ : state) {
    const int32_t rc = Dispatcher::Get().Run(rect, true, [&](const ProcessRect& s) {
      return rows(v, k.weights.data(), k.radius, s);
    }) | Dispatcher::Get().Run(rect, false, [&](const ProcessRect& s) {
      return cols(v, k.weights.data(), k.radius, s);
    });
    if (rc != 0) state.SkipWithError("gaussian blur failed");
    benchmark::DoNotOptimize(f.bytes.data());
  }
  SetFrameBytes(state, f.width, f.height);
}

void BM_GaussianBlur_Plain(benchmark::State& s) {
  GaussianBlur(s, gaussian_blur_rows_plain, gaussian_blur_cols_plain);
}
void BM_GaussianBlur_Sse41(benchmark::State& s) {
  GaussianBlur(s, gaussian_blur_rows_sse41, gaussian_blur_cols_sse41);
}
void BM_GaussianBlur_OpenCV(benchmark::State& state) {
  Dispatcher::Get();
  Frame f(int32_t(state.range(0)), int32_t(state.range(1)), PIXEL_BGRA32, 3);
  cv::Mat m(f.height, f.width, CV_8UC4, f.bytes.data(), size_t(f.stride));
  const GaussianKernel k = BuildGaussianKernel(kRadius);
  cv::Mat kernel(2 * k.radius + 1, 1, CV_32F);
  for (int t = -k.radius; t <= k.radius; ++t)
    kernel.at<float>(t + k.radius) = k.weights[size_t(std::abs(t))];
  for (auto _ : state) {
    cv::sepFilter2D(m, m, -1, kernel, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
    benchmark::DoNotOptimize(f.bytes.data());
  }
  SetFrameBytes(state, f.width, f.height);
}

using SplitFn = int32_t (*)(const ImageView&, const ImageView&, const ImageView&, const ImageView&,
                            const ProcessRect&);

// Split: one picture into three; merge: three into the third (the midtone's combine).
void Channels(benchmark::State& state, SplitFn fn, bool split) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame a(w, h, PIXEL_BGRA32, 1), b(w, h, PIXEL_BGRA32, 2), c(w, h, PIXEL_BGRA32, 3),
      d(w, h, PIXEL_BGRA32, 4);
  const ImageView va = a.View(), vb = b.View(), vc = c.View(), vd = d.View();
  const ProcessRect rect{0, 0, uint32_t(w), uint32_t(h)};
  for (auto _ : state) {
    const int32_t rc = Dispatcher::Get().Run(rect, true, [&](const ProcessRect& s) {
      return split ? fn(va, vb, vc, vd, s) : fn(va, vb, vc, vc, s);
    });
    if (rc != 0) state.SkipWithError("channel kernel failed");
    benchmark::DoNotOptimize(d.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

void BM_SplitChannels_Plain(benchmark::State& s) { Channels(s, split_channels_plain, true); }
void BM_SplitChannels_Sse41(benchmark::State& s) { Channels(s, split_channels_sse41, true); }
void BM_MergeChannels_Plain(benchmark::State& s) { Channels(s, merge_channels_plain, false); }
void BM_MergeChannels_Sse41(benchmark::State& s) { Channels(s, merge_channels_sse41, false); }

// cv::mixChannels moving the same bytes (it cannot set alpha to 255 on the way).
void ChannelsOpenCV(benchmark::State& state, bool split) {
  Dispatcher::Get();
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame a(w, h, PIXEL_BGRA32, 1), b(w, h, PIXEL_BGRA32, 2), c(w, h, PIXEL_BGRA32, 3),
      d(w, h, PIXEL_BGRA32, 4);
  cv::Mat ma(h, w, CV_8UC4, a.bytes.data()), mb(h, w, CV_8UC4, b.bytes.data());
  cv::Mat mc(h, w, CV_8UC4, c.bytes.data()), md(h, w, CV_8UC4, d.bytes.data());
  for (auto _ : state) {
    if (split) {
      const cv::Mat from[] = {ma};
      cv::Mat to[] = {mb, mc, md};
      const int pairs[] = {0, 0, 1, 5, 2, 10};
      cv::mixChannels(from, 1, to, 3, pairs, 3);
    } else {
      const cv::Mat from[] = {ma, mb};
      cv::Mat to[] = {mc};
      const int pairs[] = {0, 0, 3, 3, 5, 1};
      cv::mixChannels(from, 2, to, 1, pairs, 3);
    }
    benchmark::DoNotOptimize(d.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

void BM_SplitChannels_OpenCV(benchmark::State& s) { ChannelsOpenCV(s, true); }
void BM_MergeChannels_OpenCV(benchmark::State& s) { ChannelsOpenCV(s, false); }

// The family's per-pixel kernels on the photo's pixels, frame-sized images as in the effect.
enum class Pixel { kKey, kMidtone, kCompare, kDecide };

void PixelKernel(benchmark::State& state, Pixel which, bool fast) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame src = Photo(w, h), other = Photo(w, h), out(w, h, PIXEL_BGRA32, 4);
  const ImageView s = src.View(), o = other.View(), d = out.View();
  const ProcessRect rect{0, 0, uint32_t(w), uint32_t(h)};
  for (auto _ : state) {
    const int32_t rc = Dispatcher::Get().Run(rect, true, [&](const ProcessRect& strip) {
      switch (which) {
        case Pixel::kKey:
          return fast ? halation::key_luma_sse41(s, d, kHighlight, 1.0f, strip)
                      : halation::key_luma_plain(s, d, kHighlight, 1.0f, strip);
        case Pixel::kMidtone:
          return fast ? halation::extract_midtone_sse41(s, d, kMidtone, strip)
                      : halation::extract_midtone_plain(s, d, kMidtone, strip);
        case Pixel::kCompare:
          return fast ? halation::compare_masks_sse41(s, o, d, strip)
                      : halation::compare_masks_plain(s, o, d, strip);
        default:
          return fast ? halation::decide_visible_sse41(s, o, d, kShow, strip)
                      : halation::decide_visible_plain(s, o, d, kShow, strip);
      }
    });
    if (rc != 0) state.SkipWithError("kernel failed");
    benchmark::DoNotOptimize(out.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

void BM_KeyLuma_Plain(benchmark::State& s) { PixelKernel(s, Pixel::kKey, false); }
void BM_KeyLuma_Sse41(benchmark::State& s) { PixelKernel(s, Pixel::kKey, true); }
void BM_ExtractMidtone_Plain(benchmark::State& s) { PixelKernel(s, Pixel::kMidtone, false); }
void BM_ExtractMidtone_Sse41(benchmark::State& s) { PixelKernel(s, Pixel::kMidtone, true); }
void BM_CompareMasks_Plain(benchmark::State& s) { PixelKernel(s, Pixel::kCompare, false); }
void BM_CompareMasks_Sse41(benchmark::State& s) { PixelKernel(s, Pixel::kCompare, true); }
void BM_DecideVisible_Plain(benchmark::State& s) { PixelKernel(s, Pixel::kDecide, false); }
void BM_DecideVisible_Sse41(benchmark::State& s) { PixelKernel(s, Pixel::kDecide, true); }

}  // namespace

BENCHMARK(BM_KeyLuma_Plain)->Apply(FrameSizes);
BENCHMARK(BM_KeyLuma_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_ExtractMidtone_Plain)->Apply(FrameSizes);
BENCHMARK(BM_ExtractMidtone_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_CompareMasks_Plain)->Apply(FrameSizes);
BENCHMARK(BM_CompareMasks_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_DecideVisible_Plain)->Apply(FrameSizes);
BENCHMARK(BM_DecideVisible_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_HalationBasic_Plain)->Apply(FrameSizes);
BENCHMARK(BM_HalationBasic_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_HalationFull_Plain)->Apply(FrameSizes);
BENCHMARK(BM_HalationFull_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_Halation_OpenCV)->Apply(FrameSizes);
BENCHMARK(BM_HalationDense_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_HalationDense_OpenCV)->Apply(FrameSizes);
BENCHMARK(BM_GaussianBlur_Plain)->Apply(FrameSizes);
BENCHMARK(BM_GaussianBlur_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_GaussianBlur_OpenCV)->Apply(FrameSizes);
BENCHMARK(BM_SplitChannels_Plain)->Apply(FrameSizes);
BENCHMARK(BM_SplitChannels_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_SplitChannels_OpenCV)->Apply(FrameSizes);
BENCHMARK(BM_MergeChannels_Plain)->Apply(FrameSizes);
BENCHMARK(BM_MergeChannels_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_MergeChannels_OpenCV)->Apply(FrameSizes);

}  // namespace bench
}  // namespace Vantyx
