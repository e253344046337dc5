// The engine: the exported create/delete pair, CreateEffect and DeleteEffect rules and codes,
// registry ownership, and the processor information it measures.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "core/platform.h"
#include "engine/engine_imp.h"
#include "test_support.h"
#include "vantyx.h"

namespace Vantyx {
namespace {

constexpr int32_t kFail = static_cast<int32_t>(0x80004005u);
constexpr int32_t kNotImpl = static_cast<int32_t>(0x80004001u);

TEST(Exports, CreateAndDelete) {
  VantyxEngine* engine = nullptr;
  const intptr_t rc = CreateVantyxEngine(&engine);
  ASSERT_NE(engine, nullptr);
  EXPECT_EQ(rc, reinterpret_cast<intptr_t>(engine));
  DeleteVantyxEngine(&engine);
  EXPECT_EQ(engine, nullptr);
  DeleteVantyxEngine(&engine);  // null: silently ignored
  DeleteVantyxEngine(nullptr);
}

TEST(Exports, NonNullSlotIsLoggedAndLeftAlone) {
  test::LogCapture capture;
  auto* sentinel = reinterpret_cast<VantyxEngine*>(uintptr_t{0x1234});
  VantyxEngine* engine = sentinel;
  const intptr_t rc = CreateVantyxEngine(&engine);
  EXPECT_EQ(engine, sentinel);
  // The result is the log routine's: the message's length.
  const char* message = "Please make sure the parameter p_inst is NULL";
  EXPECT_EQ(rc, intptr_t(std::char_traits<char>::length(message)));
  ASSERT_EQ(capture.Lines().size(), 1u);
  EXPECT_EQ(capture.Lines()[0], std::string("[VNTX] ") + message + "\n");
}

TEST(Engine, MeasuresTheProcessor) {
  VantyxEngineImp engine;
  const CpuInfo& cpu = engine.GetCpuInfo();
  EXPECT_EQ(cpu.processor_count, platform::ProcessorCount());
  EXPECT_EQ(cpu.simd_level, platform::MeasureSimdLevel());
  EXPECT_EQ(cpu.reserved, 0);
  EXPECT_EQ(engine.PoolThreadCount(), std::min(cpu.processor_count, MAX_POOL_THREADS));
}

TEST(Engine, CreateEffectRefusals) {
  VantyxEngineImp engine;
  test::LogCapture capture;
  int dummy = 0;
  void* effect = &dummy;
  EXPECT_EQ(engine.CreateEffect(&effect, EFFECT_BLACKMIST), kFail);
  EXPECT_EQ(effect, &dummy);
  ASSERT_EQ(capture.Lines().size(), 1u);
  EXPECT_EQ(capture.Lines()[0], "[VNTX] Please make sure the parameter p_effect_inst is NULL\n");
  EXPECT_EQ(engine.CreateEffect(nullptr, EFFECT_BLACKMIST), kFail);

  // Unknown types succeed quietly and make nothing.
  for (uint32_t type : {0u, 5u, 0xFFFFFFFFu}) {
    effect = nullptr;
    EXPECT_EQ(engine.CreateEffect(&effect, type), 0) << type;
    EXPECT_EQ(effect, nullptr);
  }
  for (uint32_t type = 1; type <= 4; ++type) EXPECT_EQ(engine.EffectCount(type), 0u);
}

// Every family either builds an effect (0, registered) or is not built yet (0x80004001, nothing
// made, nothing registered).
TEST(Engine, EachFamilyBuildsOrAnswersNotImplemented) {
  VantyxEngineImp engine;
  for (uint32_t type = 1; type <= 4; ++type) {
    void* effect = nullptr;
    const int32_t rc = engine.CreateEffect(&effect, type);
    if (rc == kNotImpl) {
      EXPECT_EQ(effect, nullptr) << type;
      EXPECT_EQ(engine.EffectCount(type), 0u) << type;
      continue;
    }
    ASSERT_EQ(rc, 0) << type;
    ASSERT_NE(effect, nullptr) << type;
    EXPECT_EQ(engine.EffectCount(type), 1u);
    EXPECT_EQ(engine.DeleteEffect(&effect, type), 0);
    EXPECT_EQ(effect, nullptr);
    EXPECT_EQ(engine.EffectCount(type), 0u);
  }
}

TEST(Engine, DeleteEffectRefusals) {
  VantyxEngineImp engine;
  void* effect = nullptr;
  EXPECT_EQ(engine.DeleteEffect(&effect, EFFECT_BLACKMIST), kFail);  // null effect
  EXPECT_EQ(engine.DeleteEffect(nullptr, EFFECT_BLACKMIST), kFail);
  // An address the engine never made: refused for every type, and nothing is destroyed
  // (AddressSanitizer would see a delete of this stack object).
  int stranger = 0;
  effect = &stranger;
  for (uint32_t type : {0u, 1u, 2u, 3u, 4u, 5u}) EXPECT_EQ(engine.DeleteEffect(&effect, type), kFail);
  EXPECT_EQ(effect, &stranger);
}

// The first family that is built, or 0 when none is yet.
uint32_t FirstAvailableType() {
  VantyxEngineImp engine;
  for (uint32_t type = 1; type <= 4; ++type) {
    void* effect = nullptr;
    if (engine.CreateEffect(&effect, type) == 0 && effect) return type;
  }
  return 0;
}

TEST(Engine, DeleteWithWrongTypeKeepsTheEffect) {
  const uint32_t type = FirstAvailableType();
  if (type == 0) GTEST_SKIP() << "no effect family is built yet";
  VantyxEngineImp engine;
  void* effect = nullptr;
  ASSERT_EQ(engine.CreateEffect(&effect, type), 0);
  void* const kept = effect;
  const uint32_t wrong = type == 1 ? 2 : 1;
  EXPECT_EQ(engine.DeleteEffect(&effect, wrong), kFail);
  EXPECT_EQ(effect, kept);
  EXPECT_EQ(engine.EffectCount(type), 1u);
  EXPECT_EQ(engine.DeleteEffect(&effect, 0), kFail);
  EXPECT_EQ(engine.DeleteEffect(&effect, 7), kFail);
  EXPECT_EQ(engine.EffectCount(type), 1u);

  void* copy = effect;
  EXPECT_EQ(engine.DeleteEffect(&effect, type), 0);
  EXPECT_EQ(effect, nullptr);
  EXPECT_EQ(engine.DeleteEffect(&effect, type), kFail);  // second delete sees null
  EXPECT_EQ(engine.DeleteEffect(&copy, type), kFail);    // a stale copy is no longer known
  EXPECT_EQ(engine.EffectCount(type), 0u);
}

TEST(Engine, DistinctEffectsAreRegisteredApart) {
  const uint32_t type = FirstAvailableType();
  if (type == 0) GTEST_SKIP() << "no effect family is built yet";
  VantyxEngineImp engine;
  std::vector<void*> effects(5, nullptr);
  for (void*& e : effects) ASSERT_EQ(engine.CreateEffect(&e, type), 0);
  EXPECT_EQ(engine.EffectCount(type), 5u);
  // Deleting one leaves the others.
  EXPECT_EQ(engine.DeleteEffect(&effects[2], type), 0);
  EXPECT_EQ(engine.EffectCount(type), 4u);
  for (size_t i = 0; i < effects.size(); ++i)
    if (i != 2) {
      EXPECT_NE(effects[i], nullptr);
    }
}

TEST(Engine, DeletingTheEngineDeletesLiveEffects) {
  // Written against BlackMist; the engine must destroy every effect it still owns before
  // its workers are joined (AddressSanitizer reports a leak or a use after free otherwise).
  VantyxEngine* engine = nullptr;
  CreateVantyxEngine(&engine);
  ASSERT_NE(engine, nullptr);
  void* mist = nullptr;
  const int32_t rc = engine->CreateEffect(&mist, EFFECT_BLACKMIST);
  if (rc == kNotImpl) {
    DeleteVantyxEngine(&engine);
    GTEST_SKIP() << "BlackMist is not built yet";
  }
  ASSERT_EQ(rc, 0);
  void* second = nullptr;
  ASSERT_EQ(engine->CreateEffect(&second, EFFECT_BLACKMIST), 0);
  EXPECT_EQ(AsBlackMistFull(mist)->SetImageSize(33, 17), 0);
  // Every other family that is built joins in.
  std::vector<void*> others;
  for (uint32_t type = 2; type <= 4; ++type) {
    void* e = nullptr;
    if (engine->CreateEffect(&e, type) == 0 && e) others.push_back(e);
  }
  DeleteVantyxEngine(&engine);
  EXPECT_EQ(engine, nullptr);
}

}  // namespace
}  // namespace Vantyx
