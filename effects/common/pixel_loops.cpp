#include "effects/common/pixel_loops.h"

#include "vantyx.h"

namespace Vantyx {
namespace pixel_loops {

int32_t PrepareBgra(std::initializer_list<const ImageView*> images, const ProcessRect& strip,
                    Area* area) {
  *area = Area{0, 0, 0, 0};
  for (const ImageView* v : images)
    if (!v->data) return VX_E_POINTER;
  for (const ImageView* v : images)
    if (v->format != PIXEL_BGRA32) return VX_E_INVALIDARG;
  Area a = AreaOf(strip);
  for (const ImageView* v : images) a = Clip(a, *v);
  *area = a;
  return VX_OK;
}

}  // namespace pixel_loops
}  // namespace Vantyx
