#include "support.h"

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstring>
#include <vector>

#include "core/platform.h"

namespace Vantyx {
namespace bench {

int32_t ThreadCount() { return std::min(platform::ProcessorCount(), MAX_POOL_THREADS); }

void FrameSizes(benchmark::internal::Benchmark* b) {
  b->Args({1920, 1080})->Args({3840, 2160})->Unit(benchmark::kMillisecond)->UseRealTime();
}

Frame::Frame(int32_t w, int32_t h, uint32_t fmt, uint32_t seed)
    : width(w), height(h), stride(w * int32_t(BytesPerPixel(fmt))), format(fmt) {
  bytes.resize(size_t(stride) * size_t(h));
  uint32_t s = seed * 2654435761u + 1;
  for (auto& b : bytes) {
    s ^= s << 13;
    s ^= s >> 17;
    s ^= s << 5;
    b = uint8_t(s >> 24);
  }
  if (fmt == PIXEL_FLOAT96) {
    auto* f = reinterpret_cast<float*>(bytes.data());
    for (size_t i = 0; i < bytes.size() / 4; ++i) f[i] = float(i % 251) / 255.0f;
  }
}

Frame PhotoFrame(int32_t w, int32_t h) {
  Frame f(w, h, PIXEL_BGRA32, 1);
  const cv::Mat photo = cv::imread(VANTYX_BENCH_PHOTO, cv::IMREAD_COLOR);
  if (photo.empty()) return f;  // random bytes: the case still runs
  cv::Mat big, bgra(h, w, CV_8UC4, f.bytes.data(), size_t(f.stride));
  cv::resize(photo, big, cv::Size(w, h), 0, 0, cv::INTER_CUBIC);
  cv::cvtColor(big, bgra, cv::COLOR_BGR2BGRA);
  return f;
}

ImageView Frame::View() {
  ImageView v;
  v.data = bytes.data();
  v.width = width;
  v.height = height;
  v.stride = stride;
  v.format = format;
  return v;
}

Dispatcher& Dispatcher::Get() {
  static Dispatcher d;
  return d;
}

Dispatcher::Dispatcher() {
  pool_.Create(ThreadCount());
  segmenter_.Bind(&pool_);
  cv::setNumThreads(ThreadCount());
}

void SetFrameBytes(benchmark::State& state, int64_t width, int64_t height) {
  state.SetBytesProcessed(int64_t(state.iterations()) * width * height * 4 * 2);
}

// One frame copied with the same strips and workers as the kernels, from the next of `pairs`
// source and destination frames in turn.
static void CopyInTurn(benchmark::State& state, size_t pairs) {
  const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
  std::vector<Frame> src, dst;
  for (size_t i = 0; i < pairs; ++i) {
    src.emplace_back(w, h, 0, uint32_t(2 * i + 1));
    dst.emplace_back(w, h, 0, uint32_t(2 * i + 2));
  }
  const ProcessRect rect{0, 0, uint32_t(w), uint32_t(h)};
  size_t next = 0;
  for (auto _ : state) {
    const Frame& from = src[next];
    Frame& to = dst[next];
    next = (next + 1) % pairs;
    Dispatcher::Get().Run(rect, true, [&](const ProcessRect& s) {
      std::memcpy(to.bytes.data() + size_t(s.top) * to.stride,
                  from.bytes.data() + size_t(s.top) * from.stride,
                  size_t(s.bottom - s.top) * size_t(from.stride));
      return 0;
    });
    benchmark::DoNotOptimize(to.bytes.data());
  }
  SetFrameBytes(state, w, h);
}

// The baseline: one pair copied again and again.
static void BM_FrameCopy(benchmark::State& state) { CopyInTurn(state, 1); }
BENCHMARK(BM_FrameCopy)->Apply(FrameSizes);

// The same copy from memory to memory: BM_FrameCopy's pair stays in cache where it fits (a
// 1920x1080 pair is 16.6 MB, within a 32 MiB last-level cache). Here the pairs hold at least
// 256 MB in all, more than any such cache, so every copy reads and writes memory.
static void BM_FrameCopyCold(benchmark::State& state) {
  const size_t pair_bytes = size_t(state.range(0)) * size_t(state.range(1)) * 4 * 2;
  CopyInTurn(state, std::max<size_t>(2, ((size_t{256} << 20) + pair_bytes - 1) / pair_bytes));
}
BENCHMARK(BM_FrameCopyCold)->Apply(FrameSizes);

}  // namespace bench
}  // namespace Vantyx
