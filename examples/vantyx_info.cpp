// A minimal host: creates an engine and one effect of each type through the public header,
// and reports what it got.
#include <cstdio>

#include "vantyx.h"

int main() {
  Vantyx::VantyxEngine* engine = nullptr;
  CreateVantyxEngine(&engine);
  if (!engine) {
    std::fprintf(stderr, "vantyx_info: could not create an engine\n");
    return 1;
  }
  const char* names[] = {"", "BlackMist", "Halation", "Infrared", "Amberfade"};
  for (uint32_t type = 1; type <= 4; ++type) {
    void* effect = nullptr;
    const int32_t rc = engine->CreateEffect(&effect, type);
    std::printf("%-10s type %u: %s (0x%08x)\n", names[type], type,
                effect ? "available" : "not available", static_cast<unsigned>(rc));
    if (effect) engine->DeleteEffect(&effect, type);
  }
  DeleteVantyxEngine(&engine);
  return 0;
}
