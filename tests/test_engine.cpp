// The engine: the exported pair, CreateEffect and DeleteEffect with their codes, registry
// ownership, and the processor information it measures.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/platform.h"
#include "engine/engine_imp.h"
#include "test_support.h"
#include "vantyx.h"

namespace Vantyx {
namespace {

TEST(Exports, CreateAndDelete) {
  VantyxEngine* engine = nullptr;
  const intptr_t rc = CreateVantyxEngine(&engine);
  ASSERT_NE(engine, nullptr);
  EXPECT_EQ(rc, reinterpret_cast<intptr_t>(engine));
  DeleteVantyxEngine(&engine);
  EXPECT_EQ(engine, nullptr);
  DeleteVantyxEngine(&engine);  // null: silently ignored
  DeleteVantyxEngine(nullptr);
  // A slot that is not null is logged and left alone; the result is the log routine's, the
  // message's length.
  test::LogCapture capture;
  auto* sentinel = reinterpret_cast<VantyxEngine*>(uintptr_t{0x1234});
  engine = sentinel;
  const std::string message = "Please make sure the parameter p_inst is NULL";
  EXPECT_EQ(CreateVantyxEngine(&engine), intptr_t(message.size()));
  EXPECT_EQ(engine, sentinel);
  EXPECT_EQ(capture.Lines(), std::vector<std::string>{"[VNTX] " + message + "\n"});
}

TEST(Engine, MeasuresTheProcessor) {
  VantyxEngineImp engine;
  const CpuInfo& cpu = engine.GetCpuInfo();
  EXPECT_EQ(cpu.processor_count, platform::ProcessorCount());
  EXPECT_EQ(cpu.simd_level, platform::MeasureSimdLevel());
  EXPECT_EQ(cpu.reserved, 0);
  EXPECT_EQ(engine.PoolThreadCount(), std::min(cpu.processor_count, MAX_POOL_THREADS));
}

TEST(Engine, Refusals) {
  VantyxEngineImp engine;
  test::LogCapture capture;
  int dummy = 0, stranger = 0;
  void* effect = &dummy;
  EXPECT_EQ(engine.CreateEffect(&effect, EFFECT_BLACKMIST), VX_E_FAIL);
  EXPECT_EQ(effect, &dummy);
  EXPECT_EQ(capture.Lines(),
            std::vector<std::string>{"[VNTX] Please make sure the parameter p_effect_inst is NULL\n"});
  EXPECT_EQ(engine.CreateEffect(nullptr, EFFECT_BLACKMIST), VX_E_FAIL);
  for (uint32_t type : {0u, 5u, 0xFFFFFFFFu}) {  // unknown types: quiet success, nothing made
    effect = nullptr;
    EXPECT_EQ(engine.CreateEffect(&effect, type), 0) << type;
    EXPECT_EQ(effect, nullptr) << type;
  }
  for (uint32_t type = 1; type <= 4; ++type) EXPECT_EQ(engine.EffectCount(type), 0u);
  effect = nullptr;
  EXPECT_EQ(engine.DeleteEffect(&effect, EFFECT_BLACKMIST), VX_E_FAIL);
  EXPECT_EQ(engine.DeleteEffect(nullptr, EFFECT_BLACKMIST), VX_E_FAIL);
  // An address the engine never made is refused for every type and nothing is destroyed
  // (AddressSanitizer would see a delete of this stack object).
  effect = &stranger;
  for (uint32_t type : {0u, 1u, 2u, 3u, 4u, 5u}) EXPECT_EQ(engine.DeleteEffect(&effect, type), VX_E_FAIL);
  EXPECT_EQ(effect, &stranger);
}

// Every family either builds effects that live in its own registry until deleted with its own
// type, or is not built yet (0x80004001, nothing made).
TEST(Engine, EffectsLiveInTheirFamilysRegistry) {
  VantyxEngineImp engine;
  for (uint32_t type = 1; type <= 4; ++type) {
    std::vector<void*> effects(3, nullptr);
    const int32_t rc = engine.CreateEffect(&effects[0], type);
    if (rc == VX_E_NOTIMPL) {
      EXPECT_EQ(effects[0], nullptr) << type;
      EXPECT_EQ(engine.EffectCount(type), 0u) << type;
      continue;
    }
    ASSERT_EQ(rc, 0) << type;
    ASSERT_EQ(engine.CreateEffect(&effects[1], type), 0);
    ASSERT_EQ(engine.CreateEffect(&effects[2], type), 0);
    EXPECT_EQ(engine.EffectCount(type), 3u);
    void* const kept = effects[1];
    for (uint32_t wrong : {0u, type % 4 + 1, 7u}) {  // refused, not destroyed
      EXPECT_EQ(engine.DeleteEffect(&effects[1], wrong), VX_E_FAIL) << type << " as " << wrong;
      EXPECT_EQ(effects[1], kept);
    }
    void* copy = effects[1];
    EXPECT_EQ(engine.DeleteEffect(&effects[1], type), 0);
    EXPECT_EQ(effects[1], nullptr);
    EXPECT_EQ(engine.DeleteEffect(&effects[1], type), VX_E_FAIL);  // the second delete sees null
    EXPECT_EQ(engine.DeleteEffect(&copy, type), VX_E_FAIL);        // a stale copy is unknown
    EXPECT_EQ(engine.EffectCount(type), 2u);                       // the others stay
  }
}

TEST(Engine, DeletingTheEngineDeletesLiveEffects) {
  // Every effect still owned is destroyed before the workers are joined (AddressSanitizer
  // reports a leak or a use after free otherwise).
  VantyxEngine* engine = nullptr;
  CreateVantyxEngine(&engine);
  ASSERT_NE(engine, nullptr);
  for (uint32_t type = 1; type <= 4; ++type)
    for (int k = 0; k < 2; ++k) {
      void* e = nullptr;
      if (engine->CreateEffect(&e, type) == 0 && e && type == EFFECT_BLACKMIST) {
        EXPECT_EQ(AsBlackMistFull(e)->SetImageSize(33, 17), 0);
      }
    }
  DeleteVantyxEngine(&engine);
  EXPECT_EQ(engine, nullptr);
}

}  // namespace
}  // namespace Vantyx
