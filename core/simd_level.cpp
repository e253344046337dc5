// The SIMD level from cpuid facts. Shared by both platform forms so the table lives once.
#include "core/platform.h"
#include "vantyx.h"

namespace Vantyx {
namespace platform {

int32_t SimdLevelFromCpuid(const CpuidLeaf1& leaf) {
  if (leaf.max_leaf == 0) return SIMD_NONE;
  const bool sse = (leaf.edx >> 25) & 1u;
  const bool sse2 = (leaf.edx >> 26) & 1u;
  const bool sse3 = leaf.ecx & 1u;
  const bool ssse3 = (leaf.ecx >> 9) & 1u;
  const bool sse41 = (leaf.ecx >> 19) & 1u;
  const bool sse42 = (leaf.ecx >> 20) & 1u;

  // Tested from the top down; SSE4.x only counts together with SSSE3, so a processor that
  // reports SSE4.1 without SSSE3 is rated SSE3 on purpose.
  if (!sse) return SIMD_NONE;
  if (!sse2) return SIMD_SSE;
  if (sse3 && ssse3 && sse41 && sse42) return SIMD_SSE42;
  if (sse3 && ssse3 && sse41) return SIMD_SSE41;
  if (sse3 && ssse3) return SIMD_SSSE3;
  if (sse3) return SIMD_SSE3;
  return SIMD_SSE2;
}

int32_t MeasureSimdLevel() { return SimdLevelFromCpuid(ReadCpuid()); }

}  // namespace platform
}  // namespace Vantyx
