// Per-pixel passes: byte <-> float conversion, the byte-table pass and the weighting sum, plain
// and fast through the strip dispatcher, beside the nearest OpenCV call run on the same frames
// and the same strips and workers:
// - conversions: cv::Mat::convertTo between CV_8UC4 and CV_32FC4 (four floats a pixel where we
//   write three; OpenCV rounds to nearest where we truncate);
// - table: cv::LUT in place with a four-channel table whose alpha entry is the identity;
// - weighting sum: cv::addWeighted in place (it also weights alpha, which we keep).
#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

#include "imageops/copy_convert.h"
#include "imageops/pixel_ops.h"
#include "support.h"

namespace Vantyx {
namespace bench {
namespace {

constexpr float kToFloat = 1.0f / 255.0f;
constexpr int32_t kWeightBlur = 17694;  // trunc(0.27 x 65536)
constexpr int32_t kWeightSrc = 47841;   // trunc(0.73 x 65536)

ProcessRect WholeFrame(int32_t w, int32_t h) { return {0, 0, uint32_t(w), uint32_t(h)}; }

// The film curve the effects use: a gentle S, so the table is not the identity.
std::vector<uint8_t> ToneTable() {
  std::vector<uint8_t> lut(256);
  for (int i = 0; i < 256; ++i) lut[i] = uint8_t(i < 128 ? i + i / 8 : 255 - (255 - i) * 7 / 8);
  return lut;
}

using ConvertFn = int32_t (*)(const ImageView&, const ImageView&, float, float, const ProcessRect&);

void ConvertU8ToF32(benchmark::State& state, ConvertFn fn) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame src(w, h, PIXEL_BGRA32, 1), dst(w, h, PIXEL_FLOAT96, 2);
  const ImageView sv = src.View(), dv = dst.View();
  for (auto _ : state) {
    const int32_t rc = Dispatcher::Get().Run(
        WholeFrame(w, h), true, [&](const ProcessRect& s) { return fn(sv, dv, kToFloat, 0.0f, s); });
    if (rc != 0) state.SkipWithError("convert failed");
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

void ConvertF32ToU8(benchmark::State& state, ConvertFn fn) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame src(w, h, PIXEL_FLOAT96, 1), dst(w, h, PIXEL_BGRA32, 2);
  const ImageView sv = src.View(), dv = dst.View();
  for (auto _ : state) {
    const int32_t rc = Dispatcher::Get().Run(
        WholeFrame(w, h), true, [&](const ProcessRect& s) { return fn(sv, dv, 255.0f, 0.0f, s); });
    if (rc != 0) state.SkipWithError("convert failed");
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

void BM_ConvertU8ToF32_Plain(benchmark::State& s) { ConvertU8ToF32(s, convert_u8_to_f32_plain); }
void BM_ConvertU8ToF32_Sse41(benchmark::State& s) { ConvertU8ToF32(s, convert_u8_to_f32_sse41); }
void BM_ConvertF32ToU8_Plain(benchmark::State& s) { ConvertF32ToU8(s, convert_f32_to_u8_plain); }
void BM_ConvertF32ToU8_Sse41(benchmark::State& s) { ConvertF32ToU8(s, convert_f32_to_u8_sse41); }

void BM_ConvertU8ToF32_OpenCV(benchmark::State& state) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Dispatcher& dispatcher = Dispatcher::Get();  // also sets OpenCV's thread count
  Frame src(w, h, PIXEL_BGRA32, 1);
  const cv::Mat sm(h, w, CV_8UC4, src.bytes.data(), size_t(src.stride));
  cv::Mat fm(h, w, CV_32FC4, cv::Scalar::all(0));
  for (auto _ : state) {
    dispatcher.Run(WholeFrame(w, h), true, [&](const ProcessRect& s) {
      const cv::Range rows(int(s.top), int(s.bottom));
      cv::Mat out = fm.rowRange(rows);
      sm.rowRange(rows).convertTo(out, CV_32F, 1.0 / 255.0);
      return 0;
    });
    benchmark::DoNotOptimize(fm.data);
  }
  SetFrameBytes(state, w, h);
}

void BM_ConvertF32ToU8_OpenCV(benchmark::State& state) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Dispatcher& dispatcher = Dispatcher::Get();
  Frame dst(w, h, PIXEL_BGRA32, 2);
  cv::Mat fm(h, w, CV_32FC4);
  cv::randu(fm, 0.0f, 1.0f);
  cv::Mat dm(h, w, CV_8UC4, dst.bytes.data(), size_t(dst.stride));
  for (auto _ : state) {
    dispatcher.Run(WholeFrame(w, h), true, [&](const ProcessRect& s) {
      const cv::Range rows(int(s.top), int(s.bottom));
      cv::Mat out = dm.rowRange(rows);
      fm.rowRange(rows).convertTo(out, CV_8U, 255.0);
      return 0;
    });
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

using LutFn = int32_t (*)(const ImageView&, const uint8_t*, const ProcessRect&);

void ApplyLut(benchmark::State& state, LutFn fn) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame img(w, h, PIXEL_BGRA32, 3);
  const ImageView iv = img.View();
  const std::vector<uint8_t> lut = ToneTable();
  for (auto _ : state) {
    const int32_t rc = Dispatcher::Get().Run(
        WholeFrame(w, h), true, [&](const ProcessRect& s) { return fn(iv, lut.data(), s); });
    if (rc != 0) state.SkipWithError("table pass failed");
    benchmark::DoNotOptimize(img.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

void BM_ApplyLut_Plain(benchmark::State& s) { ApplyLut(s, apply_lut_bgr_plain); }

void BM_ApplyLut_OpenCV(benchmark::State& state) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Dispatcher& dispatcher = Dispatcher::Get();
  Frame img(w, h, PIXEL_BGRA32, 3);
  cv::Mat im(h, w, CV_8UC4, img.bytes.data(), size_t(img.stride));
  const std::vector<uint8_t> lut = ToneTable();
  cv::Mat table(1, 256, CV_8UC4);
  for (int i = 0; i < 256; ++i) table.at<cv::Vec4b>(0, i) = cv::Vec4b(lut[i], lut[i], lut[i], uint8_t(i));
  for (auto _ : state) {
    dispatcher.Run(WholeFrame(w, h), true, [&](const ProcessRect& s) {
      cv::Mat rows = im.rowRange(int(s.top), int(s.bottom));
      cv::LUT(rows, table, rows);
      return 0;
    });
    benchmark::DoNotOptimize(img.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

using SumFn = int32_t (*)(const ImageView&, const ImageView&, int32_t, int32_t, const ProcessRect&);

void WeightingSum(benchmark::State& state, SumFn fn) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Frame other(w, h, PIXEL_BGRA32, 4), dst(w, h, PIXEL_BGRA32, 5);
  const ImageView ov = other.View(), dv = dst.View();
  for (auto _ : state) {
    const int32_t rc = Dispatcher::Get().Run(WholeFrame(w, h), true, [&](const ProcessRect& s) {
      return fn(ov, dv, kWeightBlur, kWeightSrc, s);
    });
    if (rc != 0) state.SkipWithError("weighting sum failed");
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

void BM_WeightingSum_Plain(benchmark::State& s) { WeightingSum(s, weighting_sum_plain); }
void BM_WeightingSum_Sse41(benchmark::State& s) { WeightingSum(s, weighting_sum_sse41); }

void BM_WeightingSum_OpenCV(benchmark::State& state) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  Dispatcher& dispatcher = Dispatcher::Get();
  Frame other(w, h, PIXEL_BGRA32, 4), dst(w, h, PIXEL_BGRA32, 5);
  const cv::Mat om(h, w, CV_8UC4, other.bytes.data(), size_t(other.stride));
  cv::Mat dm(h, w, CV_8UC4, dst.bytes.data(), size_t(dst.stride));
  for (auto _ : state) {
    dispatcher.Run(WholeFrame(w, h), true, [&](const ProcessRect& s) {
      const cv::Range rows(int(s.top), int(s.bottom));
      cv::Mat out = dm.rowRange(rows);
      cv::addWeighted(om.rowRange(rows), 0.27, out, 0.73, 0.0, out);
      return 0;
    });
    benchmark::DoNotOptimize(dst.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

BENCHMARK(BM_ConvertU8ToF32_Plain)->Apply(FrameSizes);
BENCHMARK(BM_ConvertU8ToF32_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_ConvertU8ToF32_OpenCV)->Apply(FrameSizes);
BENCHMARK(BM_ConvertF32ToU8_Plain)->Apply(FrameSizes);
BENCHMARK(BM_ConvertF32ToU8_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_ConvertF32ToU8_OpenCV)->Apply(FrameSizes);
BENCHMARK(BM_ApplyLut_Plain)->Apply(FrameSizes);
BENCHMARK(BM_ApplyLut_OpenCV)->Apply(FrameSizes);
BENCHMARK(BM_WeightingSum_Plain)->Apply(FrameSizes);
BENCHMARK(BM_WeightingSum_Sse41)->Apply(FrameSizes);
BENCHMARK(BM_WeightingSum_OpenCV)->Apply(FrameSizes);

}  // namespace
}  // namespace bench
}  // namespace Vantyx
