// What every effect family shares: the processor information, the strip dispatcher bound to
// the engine's pool, the frame and working sizes, buffer set-up with its log lines, the
// frame-record checks and the stage runner. A family adds its buffers, parameters and stages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "core/block_segmenter.h"
#include "core/debug_log.h"
#include "core/image_view.h"
#include "core/smart_buffer.h"
#include "vantyx.h"

namespace Vantyx {

enum class Split { kRows, kColumns };  // strips of rows (horizontal) or of columns (vertical)

enum class BufferSize {
  kAligned,        // m_aligned_img_w x m_aligned_img_h
  kScaled,         // m_scaled_img_w x m_scaled_img_h
  kAlignedSquare,  // m_aligned_img_w x m_aligned_img_w
};

struct WorkingBuffer {
  SmartBuffer* buffer;
  BufferSize size;
  uint32_t format;
  bool frame_logical;   // logical size set back to the frame size after creation
  const char* message;  // the literal log line for a failed creation, with one %x
};

// n + (n mod 4): not a round-up to a multiple of four (5 -> 6, 7 -> 10), and kept so. Added
// in 32-bit unsigned so that a side near INT32_MAX wraps (and its buffers are then refused as
// too large) instead of overflowing a signed int.
inline int32_t AlignedSize(int32_t n) {
  return static_cast<int32_t>(static_cast<uint32_t>(n) + static_cast<uint32_t>(n % 4));
}
// t = trunc(n x scale) in single precision, then aligned the same way.
int32_t ScaledSize(int32_t n, float scale);

// True when every value is finite (NaN and infinities are refused in frame records).
bool AllFinite(std::initializer_list<float> values);

// trunc(v) as an int32, saturated at the type's limits (NaN gives 0): parameters that no check
// bounds must not overflow a conversion.
int32_t TruncToInt(float v);
int32_t TruncToInt(double v);

class EffectBase {
 public:
  explicit EffectBase(CThreadPool* pool, float scale = 0.5f);
  EffectBase(const EffectBase&) = delete;
  EffectBase& operator=(const EffectBase&) = delete;

  int32_t SetCpuInfo(const CpuInfo* info);
  const CpuInfo& GetCpuInfo() const { return cpu; }

 protected:
  // SetImageSize's common steps: size check, same-size shortcut (*resized = false), sizes,
  // buffer creation in order with the failing buffer's message, clearing, logical sizes.
  int32_t ResizeBuffers(int32_t width, int32_t height, const WorkingBuffer* buffers, size_t count,
                        bool* resized);
  // Back to the created state's sizes (Reset).
  void ClearSizes();

  // The checks every frame record gets, in order: state, source, mask, destination against
  // the rectangle, pixel formats, then rectangle, strides and channels.
  int32_t CheckFrame(const ImageDesc& src, const ImageDesc& mask, const ImageDesc& dst,
                     const ProcessRect& rect) const;
  // Keeps the record's images and rectangle for the stages.
  void StoreFrame(const ImageDesc& src, const ImageDesc& mask, const ImageDesc& dst,
                  const ProcessRect& rect);
  void DropFrame();

  ProcessRect FrameRect() const;   // (0, 0, m_img_w, m_img_h)
  ProcessRect ScaledRect() const;  // (0, 0, m_scaled_img_w, m_scaled_img_h)
  ProcessRect DstRect() const;     // (0, 0, dst width, dst height)
  ImageView SrcView() const { return ViewOf(m_src); }
  ImageView MaskView() const { return ViewOf(m_mask); }
  // The destination placed at the process rectangle: frame (x, y) is dst (x - left, y - top).
  ImageView DstAtRect() const;
  // The destination in its own coordinates.
  ImageView DstView() const { return ViewOf(m_dst); }
  bool HasMask() const { return m_mask.data != nullptr; }
  bool Fast() const { return cpu.simd_level >= SIMD_SSE41; }

  // Runs `body(strip)` over `rect` cut into strips on the pool. A failure is logged with the
  // kernel's own name (when it has one) and then the stage name, and returned.
  template <class Body>
  int32_t RunStage(const char* name, const ProcessRect& rect, Split split, const Body& body,
                   const char* kernel_name = nullptr) {
    BlockFn entry = [](BlockJob* job, int32_t* result) -> int32_t {
      *result = (*static_cast<const Body*>(job->args))(job->rect);
      return *result;
    };
    int32_t rc = m_segmenter.SegmentBlock(entry, const_cast<void*>(static_cast<const void*>(&body)),
                                          this, &rect, split == Split::kRows);
    if (rc < 0) {
      if (kernel_name) LogStageFailure(kernel_name, rc);
      LogStageFailure(name, rc);
    }
    return rc;
  }

  // A resampling stage: the whole of `from` onto the whole of `to` (their logical sizes) in
  // strips of destination rows, plain below level 5. A failure logs `kernel_name`, then `name`.
  int32_t ResampleStage(const char* name, const ImageView& from, const ImageView& to,
                        const char* kernel_name);

  // Two horizontal box blur passes ("BoxBlurH", strips of rows), then two vertical ones
  // ("BoxBlurV", strips of columns), in place over `rect`: close to a gaussian.
  int32_t BoxBlur(const ImageView& image, const ProcessRect& rect, int32_t radius,
                  int32_t simd_level);

  CpuInfo cpu{1, 0, 0};
  BlockSegmenter m_segmenter;
  int32_t m_img_w = 0;
  int32_t m_img_h = 0;
  int32_t m_aligned_img_w = 0;
  int32_t m_aligned_img_h = 0;
  int32_t m_scaled_img_w = 0;
  int32_t m_scaled_img_h = 0;
  float m_scale;
  ImageDesc m_src{};
  ImageDesc m_mask{};
  ImageDesc m_dst{};
  ProcessRect m_process_rect{0, 0, 0, 0};
};

// Slot 0 of an implementation class. Under mingw the interfaces declare MSVC's single
// deleting-destructor entry, which each class fills here; elsewhere the compiler's virtual
// destructor is slot 0 and this expands to nothing.
#if defined(_WIN32) && defined(__GNUC__)
#define VANTYX_IMPLEMENT_DELETING_DTOR(Class)                       \
  void* VantyxDeletingDestructor(unsigned int flags) override {     \
    this->~Class();                                                 \
    if (flags & 1u) ::operator delete(static_cast<void*>(this));    \
    return this;                                                    \
  }
#else
#define VANTYX_IMPLEMENT_DELETING_DTOR(Class)
#endif

// Ends the enclosing pipeline function with the code of a failed stage.
#define VANTYX_STAGE(expr)          \
  do {                              \
    const int32_t vx_rc_ = (expr);  \
    if (vx_rc_ < 0) return vx_rc_;  \
  } while (0)

}  // namespace Vantyx
