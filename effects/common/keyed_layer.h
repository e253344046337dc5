// What the keyed-layer families (Halation, Infrared) share on top of the effect base: a layer
// built from the frame is laid over the source into the destination with one of the first 23
// codes of the blend-mode list. A debug view ("show IMAGE with slot N") and the final
// composite are the same operation, so both go through Show.
#pragma once

#include <cstdint>

#include "core/effect_base.h"
#include "core/smart_buffer.h"

namespace Vantyx {

class KeyedLayerEffect : public EffectBase {
 public:
  static constexpr int32_t kSlotCount = 23;
  // The blend kernel index of slot 0..22 (codes 0..22 of the mode list), -1 otherwise.
  static int32_t SlotKernel(int32_t slot);
  // The tone curve through (0, 0), (75, 88), (160, 180), (255, 255) into a 256-byte table:
  // Halation's midtone red, Infrared's background.
  static void BuildMidtoneCurve(uint8_t* table);

 protected:
  explicit KeyedLayerEffect(CThreadPool* pool) : EffectBase(pool, 0.5f) {}

  // "resize buffer": the whole of `from` onto the whole of `to` (logical sizes). A failure logs
  // the kernel's name ("resize buffer" or "resize buffer SSE"), then `name`.
  int32_t Resize(const char* name, const SmartBuffer& from, SmartBuffer& to);
  int32_t Resize(const char* name, const ImageView& from, const ImageView& to);

  // Lays `layer` (frame coordinates) over the source into the destination with `slot` and
  // m_opacity, over the process rectangle, in strips of rows. Where the layer is transparent,
  // or where a layer smaller than the rectangle has no pixel, the destination keeps what it
  // held.
  int32_t Show(const char* name, const ImageView& layer, int32_t slot);
  int32_t Show(const char* name, const SmartBuffer& layer, int32_t slot) {
    return Show(name, ViewOf(layer), slot);
  }
  // Enlarges `small` into `layer` (stage `resize_name`), then shows `layer`.
  int32_t ShowEnlarged(const char* resize_name, const SmartBuffer& small, SmartBuffer& layer,
                       const char* name, int32_t slot);

  uint32_t m_opacity = 255;  // of every display and of the composite
};

}  // namespace Vantyx
