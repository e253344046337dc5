// Shared set-up for the benchmarks: frame sizes, images, a pool of workers with the engine's
// strip dispatcher, and the frame-copy baseline every figure is read against.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "core/block_segmenter.h"
#include "core/image_view.h"
#include "core/thread_pool.h"

namespace Vantyx {
namespace bench {

// Workers used by every case (ours and OpenCV's alike): min(processors, 8).
int32_t ThreadCount();

// Registers Args({1920, 1080}) and Args({3840, 2160}).
void FrameSizes(benchmark::internal::Benchmark* b);

struct Frame {
  std::vector<uint8_t> bytes;
  int32_t width = 0, height = 0, stride = 0;
  uint32_t format = 0;
  Frame(int32_t w, int32_t h, uint32_t fmt, uint32_t seed);
  ImageView View();
};

// assets/coffee.png enlarged to w x h, opaque BGRA: what an effect meets in a real frame
// (highlights where the photograph has them, alpha 255).
Frame PhotoFrame(int32_t w, int32_t h);

// A pool of ThreadCount() workers and a segmenter bound to it, built once.
class Dispatcher {
 public:
  static Dispatcher& Get();
  // Runs body(strip) over rect in strips of rows (or columns).
  template <class Body>
  int32_t Run(const ProcessRect& rect, bool rows, const Body& body) {
    BlockFn entry = [](BlockJob* job, int32_t* result) -> int32_t {
      *result = (*static_cast<const Body*>(job->args))(job->rect);
      return *result;
    };
    return segmenter_.SegmentBlock(entry, const_cast<void*>(static_cast<const void*>(&body)),
                                   nullptr, &rect, rows);
  }

 private:
  Dispatcher();
  CThreadPool pool_;
  BlockSegmenter segmenter_;
};

// Bytes processed per iteration for a width x height BGRA frame read once and written once.
void SetFrameBytes(benchmark::State& state, int64_t width, int64_t height);

}  // namespace bench
}  // namespace Vantyx
