// The library's two entry points. Nothing else is exported.
#include <new>

#include "core/debug_log.h"
#include "engine/effect_factory.h"
#include "engine/engine_imp.h"
#include "vantyx.h"

extern "C" VANTYX_API intptr_t CreateVantyxEngine(Vantyx::VantyxEngine** p_inst) {
  if (!p_inst) return 0;
  if (*p_inst) return Vantyx::DebugLog("Please make sure the parameter p_inst is NULL");
  Vantyx::VantyxEngineImp* engine = nullptr;
  try {
    engine = new (std::nothrow) Vantyx::VantyxEngineImp();
  } catch (...) {
    engine = nullptr;  // no exception crosses into the host
  }
  *p_inst = engine;
  // Hosts judge success by *p_inst; the address is returned for the record.
  return engine ? reinterpret_cast<intptr_t>(static_cast<Vantyx::VantyxEngine*>(engine)) : 0;
}

extern "C" VANTYX_API void DeleteVantyxEngine(Vantyx::VantyxEngine** p_inst) {
  if (!p_inst || !*p_inst) return;
  Vantyx::DestroyThroughInterface(*p_inst);
  *p_inst = nullptr;
}
