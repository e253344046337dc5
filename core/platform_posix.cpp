// The POSIX form of the platform layer: sysconf, <cpuid.h>, standard error and CLOCK_MONOTONIC.
#include <time.h>
#include <unistd.h>

#include <cstdio>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

#include "core/platform.h"

namespace Vantyx {
namespace platform {

int32_t ProcessorCount() {
  const long n = sysconf(_SC_NPROCESSORS_ONLN);
  if (n < 1) return 1;
  if (n > INT32_MAX) return INT32_MAX;
  return static_cast<int32_t>(n);
}

CpuidLeaf1 ReadCpuid() {
  CpuidLeaf1 leaf{0, 0, 0};
#if defined(__x86_64__) || defined(__i386__)
  leaf.max_leaf = __get_cpuid_max(0, nullptr);
  if (leaf.max_leaf >= 1) {
    unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
    __cpuid(1, eax, ebx, ecx, edx);
    leaf.ecx = ecx;
    leaf.edx = edx;
  }
#endif
  return leaf;
}

// No debugger channel here: each line goes to standard error in one call, so lines from
// different threads never mix inside a line.
void DebugOutput(const char* line) {
  if (line) std::fputs(line, stderr);
}

int64_t NowNs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

}  // namespace platform
}  // namespace Vantyx
