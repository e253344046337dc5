#include "engine/engine_imp.h"

#include <new>
#include <utility>

#include "core/debug_log.h"
#include "core/platform.h"

namespace Vantyx {
namespace {

constexpr int32_t kFail = static_cast<int32_t>(0x80004005u);
constexpr int32_t kOutOfMemory = static_cast<int32_t>(0x8007000Eu);

uint64_t KeyOf(const void* effect) {
  return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(effect));
}

}  // namespace

VantyxEngineImp::VantyxEngineImp() {
  cpu.processor_count = platform::ProcessorCount();
  cpu.simd_level = platform::MeasureSimdLevel();
  cpu.reserved = 0;
  pool.Create(cpu.processor_count);
}

VantyxEngineImp::~VantyxEngineImp() {
  m_blackmist.clear();
  m_halation.clear();
  // The Amberfade, Infrared, Halation and BlackMist registries then go in that order as
  // members, and the pool (joining its workers) last.
}

#if defined(_WIN32) && defined(__GNUC__)
void* VantyxEngineImp::VantyxDeletingDestructor(unsigned int flags) {
  this->~VantyxEngineImp();
  if (flags & 1u) ::operator delete(this);
  return this;
}
#endif

template <class T, class Make>
int32_t VantyxEngineImp::Build(Registry<T>& registry, Make make, void** p_effect_inst) {
  T* effect = nullptr;
  const int32_t rc = make(&pool, cpu, &effect);
  if (rc != 0) return rc;  // nothing was made
  if (!effect) return kOutOfMemory;

  // Owned from here on: if registering throws, the effect is destroyed on the way out.
  std::unique_ptr<T, DestroyEffect<T>> owned(effect);
  void* const handle = static_cast<void*>(effect);
  const uint64_t key = KeyOf(handle);
  // A node is made (or found) before ownership moves, so a throwing insert leaves `owned` in
  // charge; a stale entry at a reused address is replaced and its effect destroyed.
  registry[key] = std::move(owned);
  // Published only once registered, so the host never holds an effect the engine does not own.
  *p_effect_inst = handle;
  return 0;
}

template <class T>
int32_t VantyxEngineImp::Remove(Registry<T>& registry, void** p_effect_inst) {
  const auto it = registry.find(KeyOf(*p_effect_inst));
  if (it == registry.end()) return kFail;  // not ours, or handed back with the wrong type
  registry.erase(it);
  *p_effect_inst = nullptr;
  return 0;
}

int32_t VantyxEngineImp::CreateEffect(void** p_effect_inst, uint32_t type) {
  if (!p_effect_inst) return kFail;
  if (*p_effect_inst) {
    DebugLog("Please make sure the parameter p_effect_inst is NULL");
    return kFail;
  }
  try {
    switch (type) {
      case EFFECT_BLACKMIST: return Build(m_blackmist, &NewBlackMistEffect, p_effect_inst);
      case EFFECT_HALATION: return Build(m_halation, &NewHalationEffect, p_effect_inst);
      case EFFECT_INFRARED: return Build(m_infrared, &NewInfraredEffect, p_effect_inst);
      case EFFECT_AMBERFADE: return Build(m_amberfade, &NewAmberfadeEffect, p_effect_inst);
      default: return 0;  // an unknown type quietly creates nothing
    }
  } catch (const std::bad_alloc& e) {
    DebugLog("CreateEffect - %s caught!", e.what());
    return kOutOfMemory;
  }
}

int32_t VantyxEngineImp::DeleteEffect(void** p_effect_inst, uint32_t type) {
  if (!p_effect_inst || !*p_effect_inst) return kFail;
  switch (type) {
    case EFFECT_BLACKMIST: return Remove(m_blackmist, p_effect_inst);
    case EFFECT_HALATION: return Remove(m_halation, p_effect_inst);
    case EFFECT_INFRARED: return Remove(m_infrared, p_effect_inst);
    case EFFECT_AMBERFADE: return Remove(m_amberfade, p_effect_inst);
    default: return kFail;
  }
}

size_t VantyxEngineImp::EffectCount(uint32_t type) const {
  switch (type) {
    case EFFECT_BLACKMIST: return m_blackmist.size();
    case EFFECT_HALATION: return m_halation.size();
    case EFFECT_INFRARED: return m_infrared.size();
    case EFFECT_AMBERFADE: return m_amberfade.size();
    default: return 0;
  }
}

}  // namespace Vantyx
