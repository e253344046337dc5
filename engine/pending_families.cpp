// Families whose effects are not built yet: each answers 0x80004001 and creates nothing, so the
// engine reports them as unavailable. A family's function leaves this file when it lands.
#include "engine/effect_factory.h"

namespace Vantyx {
namespace {
constexpr int32_t kNotImpl = static_cast<int32_t>(0x80004001u);
}  // namespace

// --- Amberfade (type 4) -------------------------------------------------------------------
int32_t NewAmberfadeEffect(CThreadPool*, const CpuInfo&, AmberfadeFull**) { return kNotImpl; }

}  // namespace Vantyx
