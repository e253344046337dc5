// The engine behind VantyxEngine: one worker pool shared by every effect it makes, one
// registry per family that owns those effects, and the processor information they all get.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

#include "core/thread_pool.h"
#include "engine/effect_factory.h"
#include "vantyx.h"

namespace Vantyx {

class VantyxEngineImp final : public VantyxEngine {
 public:
  VantyxEngineImp();
  ~VantyxEngineImp();
  VantyxEngineImp(const VantyxEngineImp&) = delete;
  VantyxEngineImp& operator=(const VantyxEngineImp&) = delete;

  int32_t CreateEffect(void** p_effect_inst, uint32_t type) override;
  int32_t DeleteEffect(void** p_effect_inst, uint32_t type) override;
#if defined(_WIN32) && defined(__GNUC__)
  void* VantyxDeletingDestructor(unsigned int flags) override;
#endif

  // For tests and tools: what the engine measured and runs with.
  const CpuInfo& GetCpuInfo() const { return cpu; }
  int32_t PoolThreadCount() const { return pool.GetThreadCount(); }
  // Effects of `type` the engine still owns (0 for an unknown type).
  size_t EffectCount(uint32_t type) const;

 private:
  template <class T>
  struct DestroyEffect {
    void operator()(T* effect) const { DestroyThroughInterface(effect); }
  };
  // Keyed by the address handed to the host; erasing a node destroys its effect.
  template <class T>
  using Registry = std::map<uint64_t, std::unique_ptr<T, DestroyEffect<T>>>;

  template <class T, class Make>
  int32_t Build(Registry<T>& registry, Make make, void** p_effect_inst);
  template <class T>
  static int32_t Remove(Registry<T>& registry, void** p_effect_inst);

  // Declaration order is construction order; destruction runs backwards, so every registry
  // (and every effect in it) is gone before the pool its effects point at.
  CThreadPool pool;
  Registry<BlackMistFull> m_blackmist;
  Registry<HalationFull> m_halation;
  Registry<InfraredFull> m_infrared;
  Registry<AmberfadeFull> m_amberfade;
  CpuInfo cpu{1, 0, 0};
};

}  // namespace Vantyx
