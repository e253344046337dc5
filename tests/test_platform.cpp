// Processor facts: the SIMD level table over crafted cpuid values, and the live readings.
#include <gtest/gtest.h>

#include "core/platform.h"
#include "vantyx.h"

namespace Vantyx {
namespace {

// cpuid leaf 1 feature bits.
constexpr uint32_t kSse = 1u << 25, kSse2 = 1u << 26;                 // edx
constexpr uint32_t kSse3 = 1u << 0, kSsse3 = 1u << 9;                  // ecx
constexpr uint32_t kSse41 = 1u << 19, kSse42 = 1u << 20;               // ecx

int32_t Level(uint32_t max_leaf, uint32_t ecx, uint32_t edx) {
  return platform::SimdLevelFromCpuid(platform::CpuidLeaf1{max_leaf, ecx, edx});
}

TEST(SimdLevel, TableInOrder) {
  const uint32_t sse12 = kSse | kSse2;
  EXPECT_EQ(Level(1, 0, 0), SIMD_NONE);
  EXPECT_EQ(Level(1, 0, kSse), SIMD_SSE);
  EXPECT_EQ(Level(1, 0, sse12), SIMD_SSE2);
  EXPECT_EQ(Level(1, kSse3, sse12), SIMD_SSE3);
  EXPECT_EQ(Level(1, kSse3 | kSsse3, sse12), SIMD_SSSE3);
  EXPECT_EQ(Level(1, kSse3 | kSsse3 | kSse41, sse12), SIMD_SSE41);
  EXPECT_EQ(Level(0x16, kSse3 | kSsse3 | kSse41 | kSse42, sse12), SIMD_SSE42);
}

TEST(SimdLevel, FeaturesOnlyCountTogether) {
  const uint32_t sse12 = kSse | kSse2;
  const uint32_t all_ecx = kSse3 | kSsse3 | kSse41 | kSse42;
  // No leaves at all: whatever the registers hold, nothing is claimed.
  EXPECT_EQ(Level(0, all_ecx, sse12), SIMD_NONE);
  // SSE absent rules everything else out, SSE2 absent caps at SSE.
  EXPECT_EQ(Level(1, all_ecx, kSse2), SIMD_NONE);
  EXPECT_EQ(Level(1, all_ecx, kSse), SIMD_SSE);
  // SSE4.1 without SSSE3 is rated SSE3 on purpose; SSE4.2 without SSE4.1 is SSSE3.
  EXPECT_EQ(Level(1, kSse3 | kSse41, sse12), SIMD_SSE3);
  EXPECT_EQ(Level(1, kSse3 | kSse41 | kSse42, sse12), SIMD_SSE3);
  EXPECT_EQ(Level(1, kSse3 | kSsse3 | kSse42, sse12), SIMD_SSSE3);
  // Without SSE3 the higher bits do not lift SSE2.
  EXPECT_EQ(Level(1, kSsse3 | kSse41 | kSse42, sse12), SIMD_SSE2);
  // Unrelated bits change nothing.
  EXPECT_EQ(Level(1, all_ecx | 0xFFE00000u, sse12 | 0x01FFFFFFu), SIMD_SSE42);
}

TEST(Platform, LiveReadings) {
  EXPECT_GE(platform::ProcessorCount(), 1);
  const int32_t level = platform::MeasureSimdLevel();
  EXPECT_GE(level, SIMD_NONE);
  EXPECT_LE(level, SIMD_SSE42);
  EXPECT_EQ(level, platform::SimdLevelFromCpuid(platform::ReadCpuid()));
#if defined(__x86_64__) || defined(_M_X64)
  EXPECT_GE(level, SIMD_SSE2);  // every x86-64 processor has SSE2
#endif
  const int64_t a = platform::NowNs();
  const int64_t b = platform::NowNs();
  EXPECT_LE(a, b);
}

}  // namespace
}  // namespace Vantyx
