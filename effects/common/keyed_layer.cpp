#include "effects/common/keyed_layer.h"

#include "imageops/blend.h"
#include "imageops/colour.h"

namespace Vantyx {

int32_t KeyedLayerEffect::SlotKernel(int32_t slot) {
  return slot >= 0 && slot < kSlotCount ? BlendIndexForMode(slot) : -1;
}

void KeyedLayerEffect::BuildMidtoneCurve(uint8_t* table) {
  const CurvePoint points[] = {{0, 0}, {75, 88}, {160, 180}, {255, 255}};
  BuildToneCurve(points, 4, table, 256);
}

int32_t KeyedLayerEffect::Resize(const char* name, const ImageView& from, const ImageView& to) {
  return ResampleStage(name, from, to, Fast() ? "resize buffer SSE" : "resize buffer");
}

int32_t KeyedLayerEffect::Resize(const char* name, const SmartBuffer& from, SmartBuffer& to) {
  return Resize(name, ViewOf(from), ViewOf(to));
}

int32_t KeyedLayerEffect::Show(const char* name, const ImageView& layer, int32_t slot) {
  const ImageView base = SrcView(), dst = DstAtRect();
  const int32_t index = SlotKernel(slot), simd = cpu.simd_level;
  const uint32_t opacity = m_opacity;
  return RunStage(name, m_process_rect, Split::kRows, [&](const ProcessRect& s) {
    return blend_block(index, base, layer, dst, opacity, s, simd);
  });
}

int32_t KeyedLayerEffect::ShowEnlarged(const char* resize_name, const SmartBuffer& small,
                                       SmartBuffer& layer, const char* name, int32_t slot) {
  VANTYX_STAGE(Resize(resize_name, small, layer));
  return Show(name, layer, slot);
}

}  // namespace Vantyx
