// The Windows forms of the platform calls: GetSystemInfo, cpuid, OutputDebugStringA and the
// performance counter. The SIMD level table itself is shared with the POSIX build.
#include "core/platform.h"

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#if defined(_MSC_VER)
#include <intrin.h>
#else
#include <cpuid.h>
#endif

namespace Vantyx {
namespace platform {

int32_t ProcessorCount() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  const int32_t count = static_cast<int32_t>(info.dwNumberOfProcessors);
  return count > 0 ? count : 1;
}

CpuidLeaf1 ReadCpuid() {
  CpuidLeaf1 leaf{0, 0, 0};
#if defined(_MSC_VER)
  int regs[4] = {0, 0, 0, 0};
  __cpuid(regs, 0);
  leaf.max_leaf = static_cast<uint32_t>(regs[0]);
  if (leaf.max_leaf == 0) return leaf;
  __cpuid(regs, 1);
  leaf.ecx = static_cast<uint32_t>(regs[2]);
  leaf.edx = static_cast<uint32_t>(regs[3]);
#else
  unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
  __cpuid(0, eax, ebx, ecx, edx);
  leaf.max_leaf = eax;
  if (leaf.max_leaf == 0) return leaf;
  __cpuid(1, eax, ebx, ecx, edx);
  leaf.ecx = ecx;
  leaf.edx = edx;
#endif
  return leaf;
}

// The debugger channel only: a host sees the lines in its debugger or a viewer such as
// DebugView. Nothing goes to standard error, which a GUI host may not have.
void DebugOutput(const char* line) { OutputDebugStringA(line); }

int64_t NowNs() {
  // Whole seconds and the remainder apart: count x 1e9 would overflow after 15 minutes of
  // uptime at the usual 10 MHz; the remainder x 1e9 stays in range below a 9.2 GHz counter.
  LARGE_INTEGER count;
  LARGE_INTEGER frequency;
  QueryPerformanceCounter(&count);
  QueryPerformanceFrequency(&frequency);
  const int64_t c = count.QuadPart;
  const int64_t f = frequency.QuadPart;
  return (c / f) * 1000000000LL + (c % f) * 1000000000LL / f;
}

}  // namespace platform
}  // namespace Vantyx
