// How the engine builds each family's effect; allocation failure propagates as std::bad_alloc.
#pragma once

#include <cstdint>

#include "core/thread_pool.h"
#include "vantyx.h"

namespace Vantyx {

// Constructs the family's effect bound to `pool`, copies `cpu` in with SetCpuInfo and returns
// it through `out` (0); a nonzero code leaves *out untouched.
int32_t NewBlackMistEffect(CThreadPool* pool, const CpuInfo& cpu, BlackMistFull** out);
int32_t NewHalationEffect(CThreadPool* pool, const CpuInfo& cpu, HalationFull** out);
int32_t NewInfraredEffect(CThreadPool* pool, const CpuInfo& cpu, InfraredFull** out);
int32_t NewAmberfadeEffect(CThreadPool* pool, const CpuInfo& cpu, AmberfadeFull** out);

// The usual body of those functions: E constructed on the pool with the processor information.
template <class E, class Full>
int32_t NewEffect(CThreadPool* pool, const CpuInfo& cpu, Full** out) {
  E* effect = new E(pool);
  effect->SetCpuInfo(&cpu);
  *out = effect;
  return 0;
}

// Destroys an effect or engine through its interface's slot 0.
template <class T>
void DestroyThroughInterface(T* object) {
#if defined(_WIN32) && defined(__GNUC__)
  if (object) object->VantyxDeletingDestructor(1);
#else
  delete object;
#endif
}

}  // namespace Vantyx
