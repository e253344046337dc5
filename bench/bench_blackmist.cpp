// BlackMist per frame, basic and full call, on a photograph (bench/support.cpp), beside:
// - the same stages written with OpenCV as a skilled user would (BM_BlackMist*_OpenCV_Skilled):
//   OpenCV's own resize, box blur and weighted sum, which are parallel and vectorised, and the
//   per-pixel steps OpenCV has no call for (key, light curve, tint, tone table, screen
//   composite) fused into loops over strips of rows run by cv::parallel_for_;
// - the repository's first OpenCV pipeline, a chain of whole-frame calls (BM_BlackMist_OpenCV);
// - the frame copy.
// Ours and the skilled peer run with the machine's workers (min(processors, 8)) and with one
// (_1Worker). _Staged is ours stage by stage with the fast kernels: what the fused passes save.
// The peer is a reference for speed, not for bytes: its borders, rounding and key differ.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "core/platform.h"
#include "core/thread_pool.h"
#include "effects/blackmist/blackmist_effect.h"
#include "glow_peer.h"
#include "support.h"

namespace Vantyx {
namespace bench {
namespace {

constexpr float kIntensity = 1.0f;
constexpr uint32_t kThreshold = 180;

float SoftRadius(int32_t w, int32_t h) { return float(std::max(w, h) / 8) * 0.25f; }
float BlendBlurRadius(int32_t w, int32_t h) { return float(std::max(w, h) / 8) * 0.06f; }

struct Call {
  bool full;
  int32_t workers;
};

ImageDesc Desc(Frame& f) {
  return ImageDesc{f.bytes.data(), uint32_t(f.width), uint32_t(f.height), uint32_t(f.stride), 4, 0, 0};
}

// The full call's parameters (the basic call's defaults plus a tint and the tone curve).
BlackMistFullParam FullParams(Frame& src, Frame& dst) {
  BlackMistFullParam p{};
  p.src = Desc(src);
  p.dst = Desc(dst);
  p.light_intensity = kIntensity;
  p.soft_radius = SoftRadius(src.width, src.height);
  p.hlr_threshold = kThreshold;
  p.tint_amount = 0.3f;
  p.tint_hue = 0.08f;
  p.tint_brightness = 1.0f;
  p.blend_opacity = 255;
  p.weight_blur = 0.27f;
  p.weight_src = 0.73f;
  p.reserved_f = 1.0f;
  p.use_tone_mapping = 1;
  p.keep_saturation = 1;
  p.blur_blended = 1;
  p.blend_blur_radius = BlendBlurRadius(src.width, src.height);
  p.blend_mode = 5;
  p.output_mode = 2;
  p.strength = 1;
  p.reserved_i = 1;
  p.process_rect = {0, 0, uint32_t(src.width), uint32_t(src.height)};
  return p;
}

void RunOurs(benchmark::State& state, Call call, int32_t simd, bool fused = true) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  CThreadPool pool;
  pool.Create(call.workers);
  BlackMistEffect effect(&pool);
  const CpuInfo info{platform::ProcessorCount(), simd, 0};
  effect.SetCpuInfo(&info);
  effect.UseFusedPasses(fused);
  effect.SetImageSize(w, h);
  Frame src = PhotoFrame(w, h), dst(w, h, PIXEL_BGRA32, 8);
  const BlackMistFullParam full = FullParams(src, dst);
  BlackMistParam basic{};
  basic.src = full.src;
  basic.dst = full.dst;
  basic.light_intensity = kIntensity;
  basic.soft_radius = full.soft_radius;
  basic.hlr_threshold = kThreshold;
  basic.strength = 1;
  basic.process_rect = full.process_rect;
  for (auto _ : state) {
    if ((call.full ? effect.ProcessFull(&full) : effect.Process(&basic)) != 0)
      state.SkipWithError("BlackMist failed");
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

// ---- The skilled OpenCV peer ------------------------------------------------------------------

struct PeerParams {
  bool full;
  float gain;      // 2 x intensity x the preset's light factor
  int r;           // half-size blur radius
  int r2;          // blend blur radius
  float tint_amount, tint_hue, tint_brightness;
  double w_blur, w_src;
  uint8_t lut[256];
};

class SkilledPeer {
 public:
  void Run(const cv::Mat& src, cv::Mat& dst, const PeerParams& p) {
    const int sw = src.cols / 2, sh = src.rows / 2;
    const int stripes = cv::getNumThreads();
    cv::resize(src, small_, cv::Size(sw, sh), 0, 0, cv::INTER_LINEAR);
    soft_.create(sh, sw, CV_32FC3);
    const float t = float(kThreshold) / 255.0f;
    cv::parallel_for_(cv::Range(0, sh), [&](const cv::Range& rows) {
      for (int y = rows.start; y < rows.end; ++y) {
        const uint8_t* s = small_.ptr<uint8_t>(y);
        float* o = soft_.ptr<float>(y);
        for (int x = 0; x < sw; ++x) KeyAndLight(s + 4 * x, o + 3 * x, t, p.gain, false);
      }
    }, stripes);
    if (p.r > 0)
      for (int pass = 0; pass < 2; ++pass)
        cv::blur(soft_, soft_, cv::Size(2 * p.r - 1, 2 * p.r - 1), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    glow_.create(sh, sw, CV_8UC4);
    cv::parallel_for_(cv::Range(0, sh), [&](const cv::Range& rows) {
      for (int y = rows.start; y < rows.end; ++y) {
        const float* f = soft_.ptr<float>(y);
        const uint8_t* a = small_.ptr<uint8_t>(y);
        uint8_t* o = glow_.ptr<uint8_t>(y);
        for (int x = 0; x < sw; ++x) {
          float c[3];
          for (int i = 0; i < 3; ++i) c[i] = std::min(std::max(f[3 * x + i] * 255.0f, 0.0f), 255.0f);
          if (p.full) Tint(c, p);
          for (int i = 0; i < 3; ++i) o[4 * x + i] = uint8_t(c[i]);
          o[4 * x + 3] = a[4 * x + 3];
        }
      }
    }, stripes);
    cv::resize(glow_, up_, src.size(), 0, 0, cv::INTER_LINEAR);
    cv::parallel_for_(cv::Range(0, src.rows), [&](const cv::Range& rows) {
      std::vector<uint8_t> toned(p.full ? size_t(src.cols) * 4 : 0);
      for (int y = rows.start; y < rows.end; ++y) {
        const uint8_t* base = src.ptr<uint8_t>(y);
        if (p.full) {  // the tone curve on the picture's row first
          for (int x = 0; x < src.cols * 4; ++x) toned[size_t(x)] = (x & 3) == 3 ? base[x] : p.lut[base[x]];
          base = toned.data();
        }
        ScreenRow(base, up_.ptr<uint8_t>(y), dst.ptr<uint8_t>(y), src.cols);
      }
    }, stripes);
    const cv::Size k2(2 * p.r2 - 1, 2 * p.r2 - 1);
    cv::blur(dst, blurred_, k2, cv::Point(-1, -1), cv::BORDER_REPLICATE);
    cv::blur(blurred_, blurred_, k2, cv::Point(-1, -1), cv::BORDER_REPLICATE);
    cv::addWeighted(blurred_, p.w_blur, dst, p.w_src, 0.0, dst);
  }

 private:
  // Towards the tint colour of the pixel's own brightness, then the brightness factor.
  static void Tint(float* c, const PeerParams& p) {
    const float v = std::max(c[0], std::max(c[1], c[2]));
    const float h = p.tint_hue * 6.0f;
    const int sector = std::min(int(h), 5);
    const float f = h - float(sector), s = std::min(p.tint_amount, 1.0f);
    const float lo = v * (1.0f - s), dn = v * (1.0f - s * f), upv = v * (1.0f - s * (1.0f - f));
    const float rgb[6][3] = {{v, upv, lo}, {dn, v, lo}, {lo, v, upv}, {lo, dn, v}, {upv, lo, v}, {v, lo, dn}};
    const float tint[3] = {rgb[sector][2], rgb[sector][1], rgb[sector][0]};  // B, G, R
    for (int i = 0; i < 3; ++i)
      c[i] = std::min((c[i] * (1.0f - p.tint_amount) + tint[i] * p.tint_amount) * p.tint_brightness, 255.0f);
  }

  cv::Mat small_, soft_, glow_, up_, blurred_;
};

void RunPeer(benchmark::State& state, Call call) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Dispatcher::Get();  // sets OpenCV's thread count for the other cases
  cv::setNumThreads(call.workers);
  Frame frame = PhotoFrame(w, h), out(w, h, PIXEL_BGRA32, 8);
  const cv::Mat src(h, w, CV_8UC4, frame.bytes.data());
  cv::Mat dst(h, w, CV_8UC4, out.bytes.data());
  PeerParams p{};
  p.full = call.full;
  p.gain = 2.0f * kIntensity;
  p.r = std::min((std::min(w, h) / 2 - 1) / 2, int(2.0f * SoftRadius(w, h) * 0.5f + 0.5f));
  p.r2 = std::max(1, int(2.0f * BlendBlurRadius(w, h) * 0.5f + 0.5f));
  p.tint_amount = 0.3f;
  p.tint_hue = 0.08f;
  p.tint_brightness = 1.0f;
  p.w_blur = 0.27;
  p.w_src = 0.73;
  for (int i = 0; i < 256; ++i) p.lut[i] = uint8_t(i < 128 ? i + i / 16 : 255 - (255 - i) * 15 / 16);
  SkilledPeer peer;
  for (auto _ : state) {
    peer.Run(src, dst, p);
    benchmark::DoNotOptimize(out.bytes.data());
  }
  cv::setNumThreads(ThreadCount());
  SetFrameBytes(state, w, h);
}

void BM_BlackMistBasic_Plain(benchmark::State& s) { RunOurs(s, {false, ThreadCount()}, SIMD_SSE3); }
void BM_BlackMistBasic_Sse41(benchmark::State& s) { RunOurs(s, {false, ThreadCount()}, SIMD_SSE41); }
void BM_BlackMistFull_Plain(benchmark::State& s) { RunOurs(s, {true, ThreadCount()}, SIMD_SSE3); }
void BM_BlackMistFull_Sse41(benchmark::State& s) { RunOurs(s, {true, ThreadCount()}, SIMD_SSE41); }
void BM_BlackMistBasic_Sse41_1Worker(benchmark::State& s) { RunOurs(s, {false, 1}, SIMD_SSE41); }
void BM_BlackMistFull_Sse41_1Worker(benchmark::State& s) { RunOurs(s, {true, 1}, SIMD_SSE41); }
void BM_BlackMistBasic_Sse41_Staged(benchmark::State& s) {
  RunOurs(s, {false, ThreadCount()}, SIMD_SSE41, false);
}
void BM_BlackMistFull_Sse41_Staged(benchmark::State& s) {
  RunOurs(s, {true, ThreadCount()}, SIMD_SSE41, false);
}
void BM_BlackMistBasic_OpenCV_Skilled(benchmark::State& s) { RunPeer(s, {false, ThreadCount()}); }
void BM_BlackMistFull_OpenCV_Skilled(benchmark::State& s) { RunPeer(s, {true, ThreadCount()}); }
void BM_BlackMistBasic_OpenCV_Skilled_1Worker(benchmark::State& s) { RunPeer(s, {false, 1}); }
void BM_BlackMistFull_OpenCV_Skilled_1Worker(benchmark::State& s) { RunPeer(s, {true, 1}); }

// The repository's first OpenCV version: the same stages as a chain of whole-frame calls.
void BM_BlackMist_OpenCV(benchmark::State& state) {
  const int w = int(state.range(0)), h = int(state.range(1));
  Dispatcher::Get();  // sets OpenCV's thread count
  Frame frame = PhotoFrame(w, h);
  cv::Mat src(h, w, CV_8UC4, frame.bytes.data());
  cv::Mat small, gray, key, keyed, f, curved, up, up8, inv_src, inv_up, prod, screen, blurred, out;
  const int r = std::max(1, int(2.0f * SoftRadius(w, h) * 0.5f + 0.5f));
  const int r2 = std::max(1, int(2.0f * BlendBlurRadius(w, h) * 0.5f + 0.5f));
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
BENCHMARK(BM_BlackMistBasic_Sse41_1Worker)->Apply(FrameSizes);
BENCHMARK(BM_BlackMistFull_Sse41_1Worker)->Apply(FrameSizes);
BENCHMARK(BM_BlackMistBasic_Sse41_Staged)->Apply(FrameSizes);
BENCHMARK(BM_BlackMistFull_Sse41_Staged)->Apply(FrameSizes);
BENCHMARK(BM_BlackMistBasic_OpenCV_Skilled)->Apply(FrameSizes);
BENCHMARK(BM_BlackMistFull_OpenCV_Skilled)->Apply(FrameSizes);
BENCHMARK(BM_BlackMistBasic_OpenCV_Skilled_1Worker)->Apply(FrameSizes);
BENCHMARK(BM_BlackMistFull_OpenCV_Skilled_1Worker)->Apply(FrameSizes);
BENCHMARK(BM_BlackMist_OpenCV)->Apply(FrameSizes);

}  // namespace bench
}  // namespace Vantyx
