// The glow-layer pipeline that BlackMist and Amberfade share: the highlights keyed and softened
// at half size, enlarged and blended over the picture, the blend optionally blurred and mixed
// back. A family describes its frame in a GlowPlan (its key rule, its colour and tone stages,
// its final weighting) and calls RunGlow.
//
// RunGlow runs the named stages one after another (the reference, and what runs below
// processor level 5), or, from level 5, the same stages fused into a few passes over the rows
// that give exactly the same bytes:
//   - half size, rows: downsampling, key, conversion to float and light curve, then both
//     horizontal blurs, each row while it is in cache;
//   - half size, columns: both vertical blurs through rings of rows, then the conversion back
//     to bytes and the colour stage;
//   - full size, rows: the enlarged glow row, the picture's tone stages, the blend, both
//     horizontal blurs of the blended row, both vertical blurs through rings of rows, and the
//     weighting, each row read and written once. The copies whose results no stage reads
//     ("copy src", "copy blended image to aligned src") are not made.
// A configuration the fused passes do not take (a destination that overlaps the source, a
// blend radius above 128, a stage that would fail) runs stage by stage, so every failure is
// logged exactly as the stage list logs it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "core/effect_base.h"
#include "imageops/colour.h"
#include "imageops/highlight.h"
#include "imageops/pixel_ops.h"

namespace Vantyx {

// A per-pixel stage on rows of BGRA pixels, in place: over the whole image stage by stage, or
// on each row inside a fused pass. Unused while `name` is null.
struct RowStage {
  const char* name = nullptr;
  int32_t (*run)(const void* ctx, uint8_t* row, int32_t pixels) = nullptr;
  const void* ctx = nullptr;
  const char* kernel = nullptr;  // logged before `name` when the stage fails, if set
  // The same stage from one row into another, if set: a fused pass runs it in place of copying
  // a row it must not change and running `run` on the copy.
  int32_t (*run_to)(const void* ctx, const uint8_t* from, uint8_t* to, int32_t pixels) = nullptr;
};

// The last stage: mixes the blurred blend into the destination, which holds the blend, row by
// row. It may change the blurred row (nothing reads it afterwards).
struct WeightStage {
  const char* name = nullptr;
  int32_t (*run)(const void* ctx, uint8_t* blurred, uint8_t* dst, int32_t pixels) = nullptr;
  const void* ctx = nullptr;
};

// One row of pixels as an image one row high, for kernels that a row stage calls.
ImageView PixelRow(uint8_t* row, int32_t pixels, uint32_t format = PIXEL_BGRA32);
ProcessRect PixelRowRect(int32_t pixels);

// A 256-entry byte table over B, G and R as a row stage (a tone curve, a contrast), with its
// table spread over a word for the fused passes' run_to. Must outlive the run.
struct TableStage {
  const uint8_t* lut = nullptr;
  SpreadLut spread;
  // `spread` is built only where the fused passes may run (processor level 5 and above).
  RowStage Stage(const char* name, bool fast);
};

struct GlowPlan {
  // Output mode: 0 the enlarged glow, 1 the blurred blend, 2 the weighted mix, 3 the source.
  int32_t output_mode = 2;

  // Half size: "detect hlr" with its threshold and the family's saturation rule; "soften hlr"
  // with the light curve's gain and factor and the blur radius (half-size pixels, 0 for none).
  int32_t threshold = 0;
  SaturationRule rule = SaturationRule::kNone;
  float light_gain = 0.0f;
  float light_k = -0.25f;
  int32_t soft_radius = 0;
  bool soft_blur_plain = false;  // the stage list names the plain box blur at every level
  RowStage colour;               // on the half-size glow after softening ("adjust color")

  // Full size.
  RowStage layer;    // on the enlarged glow, before it is delivered or blended
  RowStage base[3];  // on the picture before the blend, in order
  // Run by the calling thread when the frame reaches the base stages (not in output modes 0
  // and 3, nor after a failure), before any of them: set-up that belongs to those stages.
  void (*before_base)(void* ctx) = nullptr;
  void* before_base_ctx = nullptr;
  int32_t blend_index = 0;
  uint32_t opacity = 255;
  bool blur = false;        // blur the blend and mix ("copy blended image to aligned src" on)
  int32_t blur_radius = 0;  // full-size pixels
  WeightStage weight;
};

class GlowEffect : public EffectBase {
 public:
  // `tone_curve` (`points` knots) fills the family's tone table on each new size.
  GlowEffect(CThreadPool* pool, float scale, const CurvePoint* tone_curve, int32_t points);
  ~GlowEffect();
  // Fused passes from level 5 (default on). Off: stage by stage at every level.
  void UseFusedPasses(bool on) { m_fused = on; }

 protected:
  // The six working buffers every glow family creates, in its creation order.
  SmartBuffer m_scaled_hlr;
  SmartBuffer m_scaled_src;
  SmartBuffer m_aligned_hlr;
  SmartBuffer m_aligned_src;
  SmartBuffer m_scaled_img_f;
  SmartBuffer m_img_f;
  MaskMap m_mask_map;
  std::unique_ptr<uint8_t[]> m_tone_lut;

  // The families' SetImageSize: the six buffers in order; on a new size the tone table and the
  // mask map are rebuilt.
  int32_t ResizeGlow(int32_t width, int32_t height);

  // The frame stored by StoreFrame through `plan`; returns the first failing stage's code.
  int32_t RunGlow(const GlowPlan& plan);

 private:
  struct Scratch;
  class ScratchLease;
  struct Failure {
    std::atomic<int32_t> code{0};
    std::atomic<const char*> stage{nullptr};
    void Note(int32_t rc, const char* name);
  };

  // Stage by stage.
  int32_t Staged(const GlowPlan& plan);
  int32_t StagedSoften(const GlowPlan& plan);
  int32_t BoxBlur(const ImageView& image, const ProcessRect& rect, int32_t radius, int32_t level);
  int32_t Resample(const char* stage, const SmartBuffer& from, const ProcessRect& from_rect,
                   SmartBuffer& to, const ProcessRect& to_rect);
  int32_t RowStageOver(const RowStage& stage, const ImageView& image, const ProcessRect& rect);

  // Fused.
  bool Fusable(const GlowPlan& plan) const;
  int32_t Fused(const GlowPlan& plan);
  template <class Body>
  int32_t FusedPass(const char* lead, const ProcessRect& rect, Split split, const Body& body);
  int32_t HalfSizeRows(const GlowPlan& plan, const ProcessRect& strip, Scratch& s, Failure& f);
  int32_t HalfSizeColumns(const GlowPlan& plan, const ProcessRect& strip, Scratch& s, Failure& f);
  int32_t GlowRows(const GlowPlan& plan, const ProcessRect& strip, Scratch& s, Failure& f);
  int32_t BlendRows(const GlowPlan& plan, const ProcessRect& strip, Scratch& s, Failure& f);
  int32_t BlurredBlendRows(const GlowPlan& plan, const ProcessRect& strip, int32_t halo,
                           Scratch& s, Failure& f);
  int32_t BlendRow(const GlowPlan& plan, int32_t y, uint8_t* row, uint8_t* layer,
                   uint8_t* base_copy, Scratch& s, Failure& f);

  const CurvePoint* m_tone_curve;
  int32_t m_tone_points;
  bool m_fused = true;
  std::mutex m_scratch_mutex;
  std::vector<std::unique_ptr<Scratch>> m_scratch;  // idle scratch, one per strip at most
};

}  // namespace Vantyx
