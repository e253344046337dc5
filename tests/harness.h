// Plain against fast, one table row per kernel and one per effect call.
//
// Kernels: a row names the kernel, the pixel formats each of its images takes (every
// combination runs) and an adapter that runs the plain or the fast form on a Case. The harness
// draws sizes (widths 1 to 40, odd ones up to 131, 1921, and a 1921 x 1081 frame), row strides,
// stage origins and strips (one past every edge, bands of 1 to 9 lines, an inner rectangle);
// both forms run on copies of the same random images with the same parameter draws and every
// image must come out byte for byte the same. Bands must give what one call gives.
//
//   TEST(PixelOpsForms, FastMatchesPlain) {
//     test::ExpectFormsAgree({test::KernelRow(
//         "weighting_sum", {{PIXEL_BGRA32}, {PIXEL_BGRA32}}, [](test::Case& c) {
//           const int32_t w1 = c.Int(-70000, 140000), w2 = c.Int(-70000, 140000);
//           return c.Form(weighting_sum_plain, weighting_sum_sse41)(c.View(0), c.View(1), w1,
//                                                                  w2, c.strip);
//         })});
//   }
//
// Draw parameters with Int, Float or Pick: both forms replay the same draws. Strips are bands
// of rows unless the row says .Columns(). Without SSE4.1 the test is skipped.
//
// Effects: a row names the effect class and a call that fills a record on a Frame and runs it.
// Every frame (odd sizes up to 1921 x 1081, a mask on some, a sub-rectangle on some) runs at
// processor level 3 with 1 and 8 workers and at levels 5 and 6 with 3 and 8 workers; every run
// must succeed and leave the same destination bytes (draw parameters within their ranges).
//
//   TEST(HalationForms, LevelsAndWorkersAgree) {
//     test::ExpectEffectRunsAgree({test::EffectRow::Of<HalationEffect>(
//         "basic", [](HalationEffect& e, test::Frame& f) {
//           HalationParams p{};
//           f.Place(p);  // src, mask, dst and process_rect
//           p.opacity = uint32_t(f.Int(0, 255));
//           p.curve_strength = uint32_t(f.Int(20, 100));
//           return e.Process(&p);
//         })});
//   }
//
// Under ThreadSanitizer both leave out the 1921 x 1081 frame: it costs minutes there and finds
// nothing the smaller frames do not.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "core/thread_pool.h"
#include "test_support.h"

namespace Vantyx {
namespace test {

// Parameter draws: two objects made with the same seed draw the same values.
class Draws {
 public:
  explicit Draws(uint32_t seed);
  int32_t Int(int32_t lo, int32_t hi);  // lo..hi, both included
  float Float(float lo, float hi);      // [lo, hi)
  int32_t Pick(std::initializer_list<int32_t> values);

 private:
  uint32_t state_;
};

// One call of one form, made by the harness.
class Case : public Draws {
 public:
  Case(std::vector<Image>* images, int32_t origin_x, int32_t origin_y, bool fast, uint32_t seed);
  size_t Count() const { return images_->size(); }
  ImageView View(size_t i) const;    // image i, placed at the case's stage origin
  ProcessRect Area(size_t i) const;  // image i's pixels in stage coordinates
  template <class F>
  F Form(F plain, F fast) const {
    return fast_ ? fast : plain;
  }
  bool Fast() const { return fast_; }
  ProcessRect strip{};  // what this call covers, in stage coordinates

 private:
  std::vector<Image>* images_;
  int32_t origin_x_, origin_y_;
  bool fast_;
};

struct KernelRow {
  using Run = std::function<int32_t(Case&)>;
  KernelRow(std::string name, std::vector<std::vector<uint32_t>> formats, Run run);
  KernelRow& Columns();           // strips are bands of columns, sizes transposed
  KernelRow& SourceSizedApart();  // image 0 has a size of its own (a resampling source)
  KernelRow& AnyFloatBits();      // float images hold any bits (NaN, infinities), not just values
  // BGRA32 images are mostly black on some sizes (a lit box and a sprinkle of lit pixels, or
  // nothing lit), for kernels that skip dark work.
  KernelRow& DarkImages();

  std::string name;
  std::vector<std::vector<uint32_t>> formats;  // per image: the formats it may have
  Run run;
  bool columns = false;
  bool source_sized_apart = false;
  bool any_float_bits = false;
  bool dark_images = false;
};

void ExpectFormsAgree(const std::vector<KernelRow>& rows);

// One effect run's frame: caller images as a host hands them over, and parameter draws.
class Frame : public Draws {
 public:
  explicit Frame(uint32_t seed) : Draws(seed) {}
  template <class Record>
  void Place(Record& record) const {
    record.src = src;
    record.mask = mask;
    record.dst = dst;
    record.process_rect = rect;
  }
  int32_t width = 0, height = 0;
  ImageDesc src{}, mask{}, dst{};  // mask.data is null on frames without a mask
  ProcessRect rect{};
};

struct EffectRow {
  using Run = std::function<int32_t(CThreadPool* pool, const CpuInfo& cpu, Frame& frame)>;
  std::string name;
  Run run;

  // The usual row: E is made on the pool, given the processor level and the frame size, and
  // `call` fills and runs one record.
  template <class E>
  static EffectRow Of(std::string name, std::function<int32_t(E&, Frame&)> call) {
    return EffectRow{std::move(name), [call](CThreadPool* pool, const CpuInfo& cpu, Frame& f) {
                       E effect(pool);
                       effect.SetCpuInfo(&cpu);
                       const int32_t rc = effect.SetImageSize(f.width, f.height);
                       return rc < 0 ? rc : call(effect, f);
                     }};
  }
};

void ExpectEffectRunsAgree(const std::vector<EffectRow>& rows);

}  // namespace test
}  // namespace Vantyx
