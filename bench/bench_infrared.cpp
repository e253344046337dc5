// Infrared per frame, basic and full call, plain and fast kernels, beside the same stages
// written with OpenCV the way a skilled user would (cv::resize, one strip-parallel pass at half
// size around cv::cvtColor's HSV, cv::blur, cv::add, and one fused composite loop) and the frame
// copy (bench/support.cpp). The frames are the sample photo scaled to the frame size.
//
// Also the family's own kernels at half size, plain against SSE4.1.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "core/platform.h"
#include "core/thread_pool.h"
#include "effects/infrared/infrared_effect.h"
#include "effects/infrared/infrared_kernels.h"
#include "support.h"

#ifndef VANTYX_BENCH_PHOTO
#define VANTYX_BENCH_PHOTO ""
#endif

namespace Vantyx {
namespace bench {
namespace {

// The basic call's defaults: preset 0's band and threshold.
constexpr float kStart = 0.11388889f, kRange = 0.35f, kThreshold = 0.1f, kShift = 0.9f;
constexpr uint32_t kTolerance = 20;

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

struct InfraredRun {
  CThreadPool pool;
  std::unique_ptr<InfraredEffect> effect;
  Frame src, dst;
  InfraredRun(int32_t w, int32_t h, int32_t simd) : src(Photo(w, h)), dst(w, h, PIXEL_BGRA32, 8) {
    pool.Create(ThreadCount());
    effect = std::make_unique<InfraredEffect>(&pool);
    const CpuInfo info{platform::ProcessorCount(), simd, 0};
    effect->SetCpuInfo(&info);
    effect->SetImageSize(w, h);
  }
  InfraredParams Basic() {
    InfraredParams p{};
    p.src = Desc(src);
    p.dst = Desc(dst);
    p.opacity = 255;
    p.hue_shift = kShift;
    p.hue_tolerance = kTolerance;
    p.process_rect = {0, 0, uint32_t(src.width), uint32_t(src.height)};
    return p;
  }
  // A wider tolerance, a brighter recolouring and the tone-mapped background of preset 1.
  InfraredParamsEx Full() {
    const InfraredParams b = Basic();
    InfraredParamsEx p{};
    p.src = b.src;
    p.dst = b.dst;
    p.opacity = 230;
    p.process_rect = b.process_rect;
    p.hue_range = 0.3f;
    p.hue_start = 0.12f;
    p.hue_shift = 0.6f;
    p.saturation = 0.2f;
    p.luminance = 0.1f;
    p.saturation_threshold = 0.2f;
    p.hue_tolerance = 60;
    p.flag = 1;
    p.preset = 1;
    p.blend_mode = 22;
    p.debug_view = 9;
    return p;
  }
};

void InfraredBasic(benchmark::State& state, int32_t simd) {
  InfraredRun run(int32_t(state.range(0)), int32_t(state.range(1)), simd);
  const InfraredParams p = run.Basic();
  for (auto _ : state) {
    if (run.effect->Process(&p) != 0) state.SkipWithError("Process failed");
    benchmark::DoNotOptimize(run.dst.bytes.data());
  }
  SetFrameBytes(state, state.range(0), state.range(1));
}

void InfraredFull(benchmark::State& state, int32_t simd) {
  InfraredRun run(int32_t(state.range(0)), int32_t(state.range(1)), simd);
  const InfraredParamsEx p = run.Full();
  for (auto _ : state) {
    if (run.effect->ProcessFull(&p) != 0) state.SkipWithError("ProcessFull failed");
    benchmark::DoNotOptimize(run.dst.bytes.data());
  }
  SetFrameBytes(state, state.range(0), state.range(1));
}

void BM_InfraredBasic_Plain(benchmark::State& s) { InfraredBasic(s, SIMD_SSE3); }
void BM_InfraredBasic_Sse41(benchmark::State& s) { InfraredBasic(s, SIMD_SSE41); }
void BM_InfraredFull_Plain(benchmark::State& s) { InfraredFull(s, SIMD_SSE3); }
void BM_InfraredFull_Sse41(benchmark::State& s) { InfraredFull(s, SIMD_SSE41); }

// ---- The same stages with OpenCV ---------------------------------------------------------

// What a skilled user keeps: the half-size layers as three channels, the hue band and every
// per-pixel step at half size in one pass around cv::cvtColor (8-bit HSV over the full circle),
// and the colour composite in one pass at the end.
class OpenCvInfrared {
 public:
  OpenCvInfrared(int w, int h, const cv::Mat& src) : w_(w), h_(h), src_(src) {
    const infrared::HueBand band = infrared::MakeHueBand(kStart, kRange, kTolerance);
    h1_ = band.h1 * 256 / 36000;
    h2_ = band.h2 * 256 / 36000;
    std::memcpy(p1_, band.p1, sizeof(p1_));
    std::memcpy(p2_, band.p2, sizeof(p2_));
    inv_k_ = 1.0f / float(band.tolerance);
    threshold_ = int(kThreshold * 255.0f);
    shift_ = int(kShift * 256.0f) & 255;
    const int half_w = w / 2, half_h = h / 2;
    const int longest = std::max(half_w, half_h);
    const int radius = longest < 350 ? 1 : std::max(6, longest / 320);
    window_ = 2 * radius - 1;
    fg_.create(half_h, half_w, CV_8UC3);
    bg_.create(half_h, half_w, CV_8UC3);
    dst_.create(h, w, CV_8UC4);
  }

  void Run() {
    cv::resize(src_, small_, cv::Size(w_ / 2, h_ / 2), 0, 0, cv::INTER_LINEAR);
    cv::parallel_for_(cv::Range(0, small_.rows), [this](const cv::Range& r) { HalfRows(r.start, r.end); });
    for (int pass = 0; pass < 2; ++pass)
      cv::blur(fg_, fg_, cv::Size(window_, window_), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    cv::add(fg_, bg_, sum_);
    cv::resize(sum_, up_, cv::Size(w_, h_), 0, 0, cv::INTER_LINEAR);
    cv::parallel_for_(cv::Range(0, h_), [this](const cv::Range& r) { CompositeRows(r.start, r.end); });
  }
  const cv::Mat& Result() const { return dst_; }

 private:
  static float Distance(const int* p, int r, int g, int b) {
    const float rbar = float(p[0] + r) * 0.5f;
    const int dr = p[0] - r, dg = p[1] - g, db = p[2] - b;
    return ((rbar + 512.0f) * float(dr * dr) + (767.0f - rbar) * float(db * db)) * (1.0f / 256.0f) +
           4.0f * float(dg * dg);
  }

  // Band, desaturation, low saturation, background and the hue, saturation and value shift.
  void HalfRows(int y0, int y1) {
    const cv::Mat rows = small_.rowRange(y0, y1);
    cv::Mat hsv;
    cv::cvtColor(rows, hsv, cv::COLOR_BGR2HSV_FULL);
    for (int y = 0; y < rows.rows; ++y) {
      const uint8_t* s = rows.ptr<uint8_t>(y);
      uint8_t* p = hsv.ptr<uint8_t>(y);
      uint8_t* bg = bg_.ptr<uint8_t>(y0 + y);
      for (int x = 0; x < rows.cols; ++x, s += 4, p += 3, bg += 3) {
        const int hue = p[0];
        int sat = p[1], val = p[2];
        const bool inside = h1_ <= h2_ ? (hue >= h1_ && hue <= h2_) : (hue >= h1_ || hue <= h2_);
        if (!inside) {
          const float d = std::min(Distance(p1_, s[2], s[1], s[0]), Distance(p2_, s[2], s[1], s[0]));
          sat = std::max(0, int((1.0f - std::floor(d) * inv_k_) * float(sat)));
        }
        if (sat < threshold_) val = 0;
        const bool lit = val > 0;
        bg[0] = lit ? 0 : s[0], bg[1] = lit ? 0 : s[1], bg[2] = lit ? 0 : s[2];
        p[0] = uint8_t(((hue >> 2) + shift_) & 255);
        p[1] = uint8_t(sat);
        p[2] = uint8_t(val);
      }
    }
    cv::Mat fg_rows = fg_.rowRange(y0, y1);
    cv::cvtColor(hsv, fg_rows, cv::COLOR_HSV2BGR_FULL);
  }

  // The colour composite (layer hue and chroma on the source's luma, the chroma limited near
  // grey, black and white), with alpha: one branch-free float pass the compiler can vectorise.
  void CompositeRows(int y0, int y1) {
    const float a = 254.0f;  // (255 x 255) >> 8
    for (int y = y0; y < y1; ++y) {
      const uint8_t* s = src_.ptr<uint8_t>(y);
      const uint8_t* l = up_.ptr<uint8_t>(y);
      uint8_t* d = dst_.ptr<uint8_t>(y);
      for (int x = 0; x < w_; ++x) {
        const float bb = s[4 * x], bg = s[4 * x + 1], br = s[4 * x + 2], ab = s[4 * x + 3];
        const float lb = l[3 * x], lg = l[3 * x + 1], lr = l[3 * x + 2];
        const float luma = 0.3f * br + 0.59f * bg + 0.11f * bb;
        const float cb = std::max(bb, std::max(bg, br)) - std::min(bb, std::min(bg, br));
        const float m = std::max(lb, std::max(lg, lr));
        const float c0 = m - std::min(lb, std::min(lg, lr));
        const float inv = 1.0f / std::max(c0, 1.0f);
        float h = m == lr ? (lg - lb) * inv : m == lg ? (lb - lr) * inv + 2.0f : (lr - lg) * inv + 4.0f;
        h = h < 0.0f ? h + 6.0f : h;
        float c = cb < 5.0f ? c0 * cb * 0.2f : c0;
        c = luma < 60.0f ? c * luma * (1.0f / 60.0f) : luma >= 181.0f ? (255.0f - luma) * c * (1.0f / 75.0f) : c;
        float f[3];  // r, g, b of hue h and chroma c
        const float n[3] = {5.0f, 3.0f, 1.0f};
        for (int i = 0; i < 3; ++i) {
          const float k = n[i] + h >= 6.0f ? n[i] + h - 6.0f : n[i] + h;
          f[i] = c * (1.0f - std::clamp(std::min(k, 4.0f - k), 0.0f, 1.0f));
        }
        const float shift = luma - (0.3f * f[0] + 0.59f * f[1] + 0.11f * f[2]);
        const float wb = (255.0f - a) * ab * (1.0f / 255.0f), wl = (255.0f - ab) * a * (1.0f / 255.0f);
        const float ws = ab * a * (1.0f / 255.0f), out = 1.0f / (a + wb);
        const float base[3] = {br, bg, bb}, layer[3] = {lr, lg, lb};
        for (int i = 0; i < 3; ++i) {
          const float v = std::clamp(f[i] + shift, 0.0f, 255.0f);
          d[4 * x + 2 - i] = uint8_t(std::min(255.0f, (ws * v + wl * layer[i] + wb * base[i]) * out));
        }
        d[4 * x + 3] = uint8_t(a + wb);
      }
    }
  }

  int w_, h_;
  cv::Mat src_, small_, fg_, bg_, sum_, up_, dst_;
  int h1_ = 0, h2_ = 0, p1_[3] = {}, p2_[3] = {}, threshold_ = 0, shift_ = 0, window_ = 1;
  float inv_k_ = 1.0f;
};

void BM_Infrared_OpenCV(benchmark::State& state) {
  const int w = int(state.range(0)), h = int(state.range(1));
  Dispatcher::Get();  // sets OpenCV's thread count
  Frame frame = Photo(w, h);
  OpenCvInfrared pipeline(w, h, cv::Mat(h, w, CV_8UC4, frame.bytes.data(), size_t(frame.stride)));
  for (auto _ : state) {
    pipeline.Run();
    benchmark::DoNotOptimize(pipeline.Result().data);
  }
  SetFrameBytes(state, w, h);
}

// ---- Kernels -------------------------------------------------------------------------------

// The family's per-pixel kernels on the photo at half size, as in the effect: the band's output
// feeds the low saturation, whose output feeds the background and the shift.
enum class Pixel { kBand, kSaturation, kBackground, kAdjust, kCombine };

void PixelKernel(benchmark::State& state, Pixel which, bool fast) {
  const int32_t w = int32_t(state.range(0)) / 2, h = int32_t(state.range(1)) / 2;
  Frame src = Photo(w, h), hue(w, h, PIXEL_BGRA32, 4), other(w, h, PIXEL_BGRA32, 5);
  const ImageView s = src.View(), fg = hue.View(), o = other.View();
  const ProcessRect rect{0, 0, uint32_t(w), uint32_t(h)};
  const infrared::HueBand band = infrared::MakeHueBand(kStart, kRange, kTolerance);
  const infrared::HsvShift shift = infrared::MakeHsvShift(kShift, 0.0f, 0.0f);
  Dispatcher::Get().Run(rect, true, [&](const ProcessRect& strip) {
    infrared::extract_hue_band_plain(s, fg, band, strip);
    return infrared::remove_low_saturation_plain(fg, kThreshold, strip);
  });
  // The in-place kernels run again on their own output: the same work (black stays black).
  for (auto _ : state) {
    const int32_t rc = Dispatcher::Get().Run(rect, true, [&](const ProcessRect& strip) {
      using namespace infrared;  // NOLINT(build/namespaces)
      switch (which) {
        case Pixel::kBand:
          return fast ? extract_hue_band_sse41(s, o, band, strip)
                      : extract_hue_band_plain(s, o, band, strip);
        case Pixel::kSaturation:
          return fast ? remove_low_saturation_sse41(fg, kThreshold, strip)
                      : remove_low_saturation_plain(fg, kThreshold, strip);
        case Pixel::kBackground:
          return fast ? extract_background_sse41(fg, s, o, strip)
                      : extract_background_plain(fg, s, o, strip);
        case Pixel::kAdjust:
          return fast ? adjust_hsv_sse41(fg, shift, strip) : adjust_hsv_plain(fg, shift, strip);
        default:
          return fast ? combine_layers_sse41(fg, s, o, strip)
                      : combine_layers_plain(fg, s, o, strip);
      }
    });
    if (rc != 0) state.SkipWithError("kernel failed");
    benchmark::DoNotOptimize(other.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

void BM_ExtractHueBand_Plain(benchmark::State& s) { PixelKernel(s, Pixel::kBand, false); }
void BM_ExtractHueBand_Sse41(benchmark::State& s) { PixelKernel(s, Pixel::kBand, true); }
void BM_RemoveLowSaturation_Plain(benchmark::State& s) { PixelKernel(s, Pixel::kSaturation, false); }
void BM_RemoveLowSaturation_Sse41(benchmark::State& s) { PixelKernel(s, Pixel::kSaturation, true); }
void BM_ExtractBackground_Plain(benchmark::State& s) { PixelKernel(s, Pixel::kBackground, false); }
void BM_ExtractBackground_Sse41(benchmark::State& s) { PixelKernel(s, Pixel::kBackground, true); }
void BM_AdjustHsv_Plain(benchmark::State& s) { PixelKernel(s, Pixel::kAdjust, false); }
void BM_AdjustHsv_Sse41(benchmark::State& s) { PixelKernel(s, Pixel::kAdjust, true); }
void BM_CombineLayers_Plain(benchmark::State& s) { PixelKernel(s, Pixel::kCombine, false); }
void BM_CombineLayers_Sse41(benchmark::State& s) { PixelKernel(s, Pixel::kCombine, true); }

}  // namespace

BENCHMARK(BM_ExtractHueBand_Plain)->Apply(FrameSizes);
BENCHMARK(BM_ExtractHueBand_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_RemoveLowSaturation_Plain)->Apply(FrameSizes);
BENCHMARK(BM_RemoveLowSaturation_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_ExtractBackground_Plain)->Apply(FrameSizes);
BENCHMARK(BM_ExtractBackground_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_AdjustHsv_Plain)->Apply(FrameSizes);
BENCHMARK(BM_AdjustHsv_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_CombineLayers_Plain)->Apply(FrameSizes);
BENCHMARK(BM_CombineLayers_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_InfraredBasic_Plain)->Apply(FrameSizes);
BENCHMARK(BM_InfraredBasic_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_InfraredFull_Plain)->Apply(FrameSizes);
BENCHMARK(BM_InfraredFull_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_Infrared_OpenCV)->Apply(FrameSizes);

}  // namespace bench
}  // namespace Vantyx
