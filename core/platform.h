// The one place that touches the operating system and the processor: processor count, cpuid,
// debug output and the clock. platform_posix.cpp and platform_win32.cpp are its two forms.
#pragma once

#include <cstdint>

namespace Vantyx {
namespace platform {

// Logical processors the system reports (GetSystemInfo / sysconf), at least 1.
int32_t ProcessorCount();

// Raw cpuid facts the SIMD level is derived from.
struct CpuidLeaf1 {
  uint32_t max_leaf;  // eax of leaf 0
  uint32_t ecx;       // ecx of leaf 1 (0 when max_leaf is 0)
  uint32_t edx;       // edx of leaf 1
};
CpuidLeaf1 ReadCpuid();

// The SimdLevel for the given cpuid facts, by the fixed table (kept apart for testing).
int32_t SimdLevelFromCpuid(const CpuidLeaf1& leaf);

// SimdLevelFromCpuid(ReadCpuid()).
int32_t MeasureSimdLevel();

// One finished line to the debugger channel (OutputDebugStringA) or standard error.
void DebugOutput(const char* line);

// Monotonic time in nanoseconds (QueryPerformanceCounter / CLOCK_MONOTONIC).
int64_t NowNs();

}  // namespace platform
}  // namespace Vantyx
