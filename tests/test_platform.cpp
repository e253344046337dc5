// Processor facts: the SIMD level table over crafted cpuid values, and the live readings.
#include <gtest/gtest.h>

#include "core/platform.h"
#include "vantyx.h"

namespace Vantyx {
namespace {

TEST(SimdLevel, TableInOrder) {
  constexpr uint32_t kSse = 1u << 25, kSse2 = 1u << 26, kSse12 = kSse | kSse2;  // edx
  constexpr uint32_t kSse3 = 1u << 0, kSsse3 = 1u << 9, kSse41 = 1u << 19, kSse42 = 1u << 20;
  constexpr uint32_t kAllEcx = kSse3 | kSsse3 | kSse41 | kSse42;
  const struct {
    const char* what;
    uint32_t max_leaf, ecx, edx;
    int32_t want;
  } rows[] = {
      {"nothing", 1, 0, 0, SIMD_NONE},
      {"SSE", 1, 0, kSse, SIMD_SSE},
      {"SSE2", 1, 0, kSse12, SIMD_SSE2},
      {"SSE3", 1, kSse3, kSse12, SIMD_SSE3},
      {"SSSE3", 1, kSse3 | kSsse3, kSse12, SIMD_SSSE3},
      {"SSE4.1", 1, kSse3 | kSsse3 | kSse41, kSse12, SIMD_SSE41},
      {"SSE4.2", 0x16, kAllEcx, kSse12, SIMD_SSE42},
      {"no leaves: nothing claimed", 0, kAllEcx, kSse12, SIMD_NONE},
      {"SSE absent rules out the rest", 1, kAllEcx, kSse2, SIMD_NONE},
      {"SSE2 absent caps at SSE", 1, kAllEcx, kSse, SIMD_SSE},
      {"SSE4.1 without SSSE3 is SSE3, on purpose", 1, kSse3 | kSse41, kSse12, SIMD_SSE3},
      {"SSE4.2 and 4.1 without SSSE3", 1, kSse3 | kSse41 | kSse42, kSse12, SIMD_SSE3},
      {"SSE4.2 without SSE4.1", 1, kSse3 | kSsse3 | kSse42, kSse12, SIMD_SSSE3},
      {"no SSE3: higher bits do not count", 1, kSsse3 | kSse41 | kSse42, kSse12, SIMD_SSE2},
      {"unrelated bits", 1, kAllEcx | 0xFFE00000u, kSse12 | 0x01FFFFFFu, SIMD_SSE42},
  };
  for (const auto& r : rows)
    EXPECT_EQ(platform::SimdLevelFromCpuid(platform::CpuidLeaf1{r.max_leaf, r.ecx, r.edx}), r.want)
        << r.what;
}

TEST(Platform, LiveReadings) {
  EXPECT_GE(platform::ProcessorCount(), 1);
#if defined(__x86_64__) || defined(_M_X64)
  EXPECT_GE(platform::MeasureSimdLevel(), SIMD_SSE2);  // every x86-64 processor has SSE2
#endif
  const int64_t a = platform::NowNs();
  EXPECT_LE(a, platform::NowNs());
}

}  // namespace
}  // namespace Vantyx
