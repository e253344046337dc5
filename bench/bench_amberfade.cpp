// Amberfade per frame, both looks through the basic call and the cool look through the full
// call, on a photograph (bench/support.cpp), beside:
// - the same stages written with OpenCV as a skilled user would (BM_Amberfade*_OpenCV_Skilled):
//   OpenCV's resize and box blur (parallel and vectorised), and the per-pixel steps it has no
//   call for (key and light curve, glow colour or tone table, contrast, gamma on luma, colour
//   temperature, screen composite, blue weighting and mix) fused into loops over strips of rows
//   run by cv::parallel_for_;
// - the frame copy (BM_FrameCopy).
// _Staged is ours stage by stage with the fast kernels: what the fused passes save.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/platform.h"
#include "core/thread_pool.h"
#include "effects/amberfade/amberfade_effect.h"
#include "effects/amberfade/amberfade_kernels.h"
#include "glow_peer.h"
#include "imageops/colour.h"
#include "support.h"

namespace Vantyx {
namespace bench {
namespace {

constexpr float kIntensity = 1.0f, kColour = 0.5f, kGamma = 0.8f;

enum class Look { kCool, kWarm, kFull };

ImageDesc Desc(Frame& f) {
  return ImageDesc{f.bytes.data(), uint32_t(f.width), uint32_t(f.height), uint32_t(f.stride), 4, 0, 0};
}

void RunOurs(benchmark::State& state, Look look, int32_t simd, bool fused = true) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  CThreadPool pool;
  pool.Create(ThreadCount());
  AmberfadeEffect effect(&pool);
  const CpuInfo info{platform::ProcessorCount(), simd, 0};
  effect.SetCpuInfo(&info);
  effect.UseFusedPasses(fused);
  effect.SetImageSize(w, h);
  Frame src = PhotoFrame(w, h), dst(w, h, PIXEL_BGRA32, 8);
  AmberfadeParam basic{};
  basic.src = Desc(src), basic.dst = Desc(dst);
  basic.intensity = kIntensity, basic.colour = kColour, basic.gamma = 1.0f;
  basic.cool_look = look != Look::kWarm;
  basic.process_rect = {0, 0, uint32_t(w), uint32_t(h)};
  effect.Process(&basic);  // a gamma of 1 first: the gamma below is then built by this object
  basic.gamma = kGamma;
  AmberfadeFullParam full{};
  full.src = basic.src, full.dst = basic.dst, full.process_rect = basic.process_rect;
  full.hlr_gain = 0.4f, full.blur_radius = float(std::max(w, h) / 8) * 0.2f, full.hlr_threshold = 150;
  full.intensity = kIntensity, full.gamma = kGamma, full.colour = kColour, full.cool_look = 1;
  full.weight_tint = 0.3f, full.weight_result = 0.7f, full.contrast = 0.6f;
  full.adjust_colour_on = full.blur_result_on = 1;
  full.result_blur_radius = float(std::max(w, h)) * 0.125f;
  full.blend_mode = 5, full.output_mode = 2, full.derive_from_intensity = 0;
  for (auto _ : state) {
    if ((look == Look::kFull ? effect.ProcessFull(&full) : effect.Process(&basic)) != 0)
      state.SkipWithError("Amberfade failed");
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

// ---- The skilled OpenCV peer ------------------------------------------------------------------

struct PeerParams {
  bool cool;
  float t, gain;  // key threshold (0..1) and light gain
  int r, r2;      // glow blur radius (half size) and result blur radius
  int fb16, fr16;             // glow colour factors (cool)
  uint8_t tone[256];          // glow tone table (warm)
  uint8_t contrast[256];      // contrast table (cool)
  std::vector<uint32_t> gamma;
  float temperature[3];       // B, G, R factors (warm)
  uint8_t red[256], green[256];  // blue weighting's R' and G'
  int w_tint, w_result;
};

// Contrast, gamma on luma and (warm) colour temperature of one row, in place.
inline void ToneRow(uint8_t* __restrict p, int n, const PeerParams& q) {
  const uint32_t* table = q.gamma.data();
  for (int x = 0; x < n; ++x, p += 4) {
    int b = p[0], g = p[1], r = p[2];
    if (q.cool) b = q.contrast[b], g = q.contrast[g], r = q.contrast[r];
    const int yg = int(table[(b * 7471 + r * 19595 + g * 38470) >> 10]);
    const int u = (41419 * b - 13959 * r - 27460 * g + 0x800000) >> 8;
    const int v = ((r + 256) * 32768 - 5308 * b - 27460 * g) >> 8;
    b = std::max(0, ((((u - 32768) * 2066) >> 10) + yg) >> 8);
    const int gx = ((u * -400 - v * 833 + 0x2680000) >> 10) + yg;
    g = gx < 256 ? 0 : gx >> 8;
    r = std::max(0, ((((v - 32768) * 1634) >> 10) + yg) >> 8);
    if (!q.cool) {
      const float y0 = 19660.0f * float(r & 255) + 7209.0f * float(b & 255) + 38665.0f * float(g & 255);
      const float nb = float(b & 255) * q.temperature[0], ng = float(g & 255) * q.temperature[1],
                  nr = float(r & 255) * q.temperature[2];
      const float y1 = 19660.0f * nr + 7209.0f * nb + 38665.0f * ng;
      const float k = y1 > 0.0f ? y0 / y1 : 1.0f;
      b = int(std::min(nb * k, 255.0f)), g = int(std::min(ng * k, 255.0f)), r = int(std::min(nr * k, 255.0f));
    }
    p[0] = uint8_t(b), p[1] = uint8_t(g), p[2] = uint8_t(r);
  }
}

class SkilledPeer {
 public:
  void Run(const cv::Mat& src, cv::Mat& dst, const PeerParams& p) {
    const int sw = src.cols / 2, sh = src.rows / 2, stripes = cv::getNumThreads();
    cv::resize(src, small_, cv::Size(sw, sh), 0, 0, cv::INTER_LINEAR);
    soft_.create(sh, sw, CV_32FC3);
    cv::parallel_for_(cv::Range(0, sh), [&](const cv::Range& rows) {
      for (int y = rows.start; y < rows.end; ++y) {
        const uint8_t* s = small_.ptr<uint8_t>(y);
        float* o = soft_.ptr<float>(y);
        for (int x = 0; x < sw; ++x) KeyAndLight(s + 4 * x, o + 3 * x, p.t, p.gain, true);
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
          int c[3];
          for (int i = 0; i < 3; ++i) c[i] = int(std::min(std::max(f[3 * x + i] * 255.0f, 0.0f), 255.0f));
          if (p.cool) {
            c[0] = std::min(255, (c[0] * p.fb16) >> 16), c[2] = std::min(255, (c[2] * p.fr16) >> 16);
          } else {
            for (int i = 0; i < 3; ++i) c[i] = p.tone[c[i]];
          }
          for (int i = 0; i < 3; ++i) o[4 * x + i] = uint8_t(c[i]);
          o[4 * x + 3] = a[4 * x + 3];
        }
      }
    }, stripes);
    cv::resize(glow_, up_, src.size(), 0, 0, cv::INTER_LINEAR);
    cv::parallel_for_(cv::Range(0, src.rows), [&](const cv::Range& rows) {
      std::vector<uint8_t> toned(size_t(src.cols) * 4);
      for (int y = rows.start; y < rows.end; ++y) {
        std::copy(src.ptr<uint8_t>(y), src.ptr<uint8_t>(y) + toned.size(), toned.begin());
        ToneRow(toned.data(), src.cols, p);
        ScreenRow(toned.data(), up_.ptr<uint8_t>(y), dst.ptr<uint8_t>(y), src.cols);
      }
    }, stripes);
    if (!p.cool) return;
    const cv::Size k2(2 * p.r2 - 1, 2 * p.r2 - 1);
    cv::blur(dst, blurred_, k2, cv::Point(-1, -1), cv::BORDER_REPLICATE);
    cv::blur(blurred_, blurred_, k2, cv::Point(-1, -1), cv::BORDER_REPLICATE);
    cv::parallel_for_(cv::Range(0, src.rows), [&](const cv::Range& rows) {
      for (int y = rows.start; y < rows.end; ++y) BlueRow(blurred_.ptr<uint8_t>(y), dst.ptr<uint8_t>(y), src.cols, p);
    }, stripes);
  }

 private:
  // R and G pulled down, brought back to their luma, then mixed with the blend.
  static void BlueRow(const uint8_t* __restrict s, uint8_t* __restrict d, int n, const PeerParams& p) {
    for (int x = 0; x < n; ++x, s += 4, d += 4) {
      const int b = s[0], g = p.green[s[1]], r = p.red[s[2]];
      const int y0 = (s[2] * 19660 + s[1] * 38665 + b * 7209) >> 8;
      const int y1 = (b * 7209 + r * 19660 + g * 38665) >> 8;
      const int c[3] = {y1 ? std::min(255, b * y0 / y1) : b, y1 ? std::min(255, g * y0 / y1) : g,
                        y1 ? std::min(255, r * y0 / y1) : r};
      for (int i = 0; i < 3; ++i) d[i] = uint8_t(std::min(255, (c[i] * p.w_tint + d[i] * p.w_result) >> 16));
    }
  }

  cv::Mat small_, soft_, glow_, up_, blurred_;
};

void RunPeer(benchmark::State& state, Look look) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Dispatcher::Get();  // sets OpenCV's thread count
  Frame frame = PhotoFrame(w, h), out(w, h, PIXEL_BGRA32, 8);
  const cv::Mat src(h, w, CV_8UC4, frame.bytes.data());
  cv::Mat dst(h, w, CV_8UC4, out.bytes.data());
  const int maxdim = std::max(w, h), half_limit = (std::min(w, h) / 2 - 1) / 2;
  PeerParams p{};
  p.cool = look != Look::kWarm;
  const double s = kIntensity;
  const double radius = look == Look::kFull ? maxdim / 8 * 0.2
                        : p.cool            ? s * 0.21 * maxdim * 0.125
                                            : std::min(s * 0.05 * maxdim * 0.125, maxdim * 0.158 * 0.125);
  p.gain = 2.0f * float(look == Look::kFull ? 0.4 : p.cool ? 0.33 * s : 0.066 * s * s);
  p.t = float(look == Look::kFull ? 150 : p.cool ? 160 : 200) / 255.0f;
  p.r = std::min(half_limit, int(2.0 * radius * 0.5 + 0.5));
  p.r2 = std::max(1, std::min(half_limit, int(2.0 * maxdim * 0.125 * 0.5 + 0.5)));
  p.fb16 = int((1.0f + 0.2f * (kColour + 1.0f)) * 65536.0f);
  p.fr16 = int((1.0f - 0.1f * (kColour + 1.0f)) * 65536.0f);
  const CurvePoint tone[] = {{0, 0}, {128, 160}, {255, 255}};
  BuildToneCurve(tone, 3, p.tone, 256);
  const float k = look == Look::kFull ? 0.6f : 0.7f, a = (1.0f - k) * 50.0f;
  for (int c = 0; c < 256; ++c) {
    p.contrast[c] = uint8_t(std::min(std::max(float(c) * (127.0f - a) / 127.0f + a, 0.0f), 255.0f));
    p.red[c] = uint8_t(float(c) * (1.0f - 0.15f * (kColour + 1.0f)));
    p.green[c] = uint8_t(float(c) * (1.0f - 0.2f * (kColour + 1.0f)));
  }
  p.gamma.resize(16384);
  for (int i = 0; i < 16384; ++i) p.gamma[size_t(i)] = uint32_t(std::pow(i / 16383.0, 1.0 / kGamma) * 65536.0);
  TemperatureFactors(kColour * 1000.0f + 5000.0f, &p.temperature[2], &p.temperature[1], &p.temperature[0]);
  p.w_tint = int((look == Look::kFull ? 0.3f : 0.27f) * 65536.0f);
  p.w_result = int((look == Look::kFull ? 0.7f : 0.73f) * 65536.0f);
  SkilledPeer peer;
  for (auto _ : state) {
    peer.Run(src, dst, p);
    benchmark::DoNotOptimize(out.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

// The per-pixel stages that have a fast form, alone over a photo frame in strips of rows. The
// frames are changed in place run after run; the stages cost the same on any bytes.
enum class Kernel { kGamma, kTemperature, kBlue };
void RunKernel(benchmark::State& state, Kernel kernel, int32_t simd) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame img = PhotoFrame(w, h), other = PhotoFrame(w, h);
  const ImageView iv = img.View(), ov = other.View();
  std::vector<uint32_t> gamma(amberfade::kGammaSize);
  amberfade::BuildGammaTable(kGamma, gamma.data());
  amberfade::TemperatureTable temperature;
  amberfade::BuildTemperatureTable(1.0f, 0.9f, 0.8f, &temperature);
  amberfade::BlueWeights blue;
  amberfade::BuildBlueWeights(kColour, 0.27f, 0.73f, &blue);
  const ProcessRect frame{0, 0, uint32_t(w), uint32_t(h)};
  for (auto _ : state) {
    const int32_t rc = Dispatcher::Get().Run(frame, true, [&](const ProcessRect& s) {
      switch (kernel) {
        case Kernel::kGamma: return amberfade::apply_gamma(iv, gamma.data(), s, simd);
        case Kernel::kTemperature: return amberfade::adjust_temperature(iv, temperature, s, simd);
        default: return amberfade::weight_blue(iv, ov, blue, s, simd);
      }
    });
    if (rc != 0) state.SkipWithError("kernel failed");
    benchmark::DoNotOptimize(img.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

void BM_AmberfadeGamma_Plain(benchmark::State& s) { RunKernel(s, Kernel::kGamma, SIMD_SSE3); }
void BM_AmberfadeGamma_Sse41(benchmark::State& s) { RunKernel(s, Kernel::kGamma, SIMD_SSE41); }
void BM_AmberfadeTemperature_Plain(benchmark::State& s) { RunKernel(s, Kernel::kTemperature, SIMD_SSE3); }
void BM_AmberfadeTemperature_Sse41(benchmark::State& s) { RunKernel(s, Kernel::kTemperature, SIMD_SSE41); }
void BM_AmberfadeBlueWeight_Plain(benchmark::State& s) { RunKernel(s, Kernel::kBlue, SIMD_SSE3); }
void BM_AmberfadeBlueWeight_Sse41(benchmark::State& s) { RunKernel(s, Kernel::kBlue, SIMD_SSE41); }

void BM_AmberfadeCool_Plain(benchmark::State& s) { RunOurs(s, Look::kCool, SIMD_SSE3); }
void BM_AmberfadeCool_Sse41(benchmark::State& s) { RunOurs(s, Look::kCool, SIMD_SSE41); }
void BM_AmberfadeWarm_Plain(benchmark::State& s) { RunOurs(s, Look::kWarm, SIMD_SSE3); }
void BM_AmberfadeWarm_Sse41(benchmark::State& s) { RunOurs(s, Look::kWarm, SIMD_SSE41); }
void BM_AmberfadeFull_Plain(benchmark::State& s) { RunOurs(s, Look::kFull, SIMD_SSE3); }
void BM_AmberfadeFull_Sse41(benchmark::State& s) { RunOurs(s, Look::kFull, SIMD_SSE41); }
void BM_AmberfadeCool_Sse41_Staged(benchmark::State& s) { RunOurs(s, Look::kCool, SIMD_SSE41, false); }
void BM_AmberfadeCool_OpenCV_Skilled(benchmark::State& s) { RunPeer(s, Look::kCool); }
void BM_AmberfadeWarm_OpenCV_Skilled(benchmark::State& s) { RunPeer(s, Look::kWarm); }
void BM_AmberfadeFull_OpenCV_Skilled(benchmark::State& s) { RunPeer(s, Look::kFull); }

}  // namespace

BENCHMARK(BM_AmberfadeGamma_Plain)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeGamma_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeTemperature_Plain)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeTemperature_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeBlueWeight_Plain)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeBlueWeight_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeCool_Plain)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeCool_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeWarm_Plain)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeWarm_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeFull_Plain)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeFull_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeCool_Sse41_Staged)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeCool_OpenCV_Skilled)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeWarm_OpenCV_Skilled)->Apply(FrameSizes);
BENCHMARK(BM_AmberfadeFull_OpenCV_Skilled)->Apply(FrameSizes);

}  // namespace bench
}  // namespace Vantyx
