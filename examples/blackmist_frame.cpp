// A host that loads the library at run time, renders one BlackMist frame of a synthetic image
// and writes the frame's raw BGRA bytes to a file.
//
//   blackmist_frame [library] [output.raw]
//
// library defaults to vantyx.dll on Windows (found beside the executable) and libvantyx.so
// elsewhere. The picture and the parameters are fixed, so every build of the library must
// write the same bytes (tests/package/frame_host.cpp is how the tests check that).
#include <cstdint>
#include <cstdio>
#include <vector>

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include "vantyx.h"

namespace {

constexpr int32_t kWidth = 192;
constexpr int32_t kHeight = 108;

#if defined(_WIN32)
using Library = HMODULE;
Library Open(const char* path) { return LoadLibraryA(path); }
void* Find(Library lib, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(lib, name));
}
void Close(Library lib) { FreeLibrary(lib); }
const char* kDefaultLibrary = "vantyx.dll";
#else
using Library = void*;
Library Open(const char* path) { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }
void* Find(Library lib, const char* name) { return dlsym(lib, name); }
void Close(Library lib) { dlclose(lib); }
const char* kDefaultLibrary = "libvantyx.so";
#endif

using CreateFn = intptr_t (*)(Vantyx::VantyxEngine**);
using DeleteFn = void (*)(Vantyx::VantyxEngine**);

// Gradients, a few bright discs (highlights for the mist) and a hash-like texture, all in
// integers so the picture is the same everywhere.
void MakePicture(std::vector<uint8_t>* bgra) {
  bgra->resize(size_t(kWidth) * kHeight * 4);
  const int32_t discs[3][3] = {{40, 30, 14}, {120, 60, 22}, {170, 20, 9}};  // x, y, radius
  for (int32_t y = 0; y < kHeight; ++y) {
    for (int32_t x = 0; x < kWidth; ++x) {
      uint8_t* p = bgra->data() + (size_t(y) * kWidth + x) * 4;
      int32_t b = 40 + x * 120 / (kWidth - 1);
      int32_t g = 30 + y * 140 / (kHeight - 1);
      int32_t r = 60 + ((x * 37 + y * 91) ^ (x * y)) % 64;
      for (const auto& d : discs) {
        const int32_t dx = x - d[0], dy = y - d[1];
        if (dx * dx + dy * dy <= d[2] * d[2]) {
          b = 235 + (dx & 7);
          g = 240 + (dy & 7);
          r = 250;
        }
      }
      p[0] = static_cast<uint8_t>(b);
      p[1] = static_cast<uint8_t>(g);
      p[2] = static_cast<uint8_t>(r);
      p[3] = 255;
    }
  }
}

Vantyx::ImageDesc Desc(std::vector<uint8_t>* bgra) {
  Vantyx::ImageDesc d{};
  d.data = bgra->data();
  d.width = kWidth;
  d.height = kHeight;
  d.stride = kWidth * 4;
  d.channels = 4;
  d.format = Vantyx::PIXEL_BGRA32;
  return d;
}

int Render(Vantyx::VantyxEngine* engine, const char* out_path) {
  void* effect = nullptr;
  int32_t rc = engine->CreateEffect(&effect, Vantyx::EFFECT_BLACKMIST);
  if (rc != 0 || !effect) {
    std::fprintf(stderr, "blackmist_frame: CreateEffect(BlackMist) gave 0x%08x\n", unsigned(rc));
    return 1;
  }
  Vantyx::BlackMistFull* mist = Vantyx::AsBlackMistFull(effect);

  std::vector<uint8_t> src, dst(size_t(kWidth) * kHeight * 4, 0);
  MakePicture(&src);
  Vantyx::BlackMistParam param{};
  param.src = Desc(&src);
  param.dst = Desc(&dst);  // no mask: its data pointer stays null
  param.light_intensity = 1.2f;
  param.soft_radius = 18.0f;  // at most max(192, 108) / 8 = 24
  param.hlr_threshold = 170;
  param.strength = 1;
  param.process_rect = {0, 0, uint32_t(kWidth), uint32_t(kHeight)};

  rc = mist->SetImageSize(kWidth, kHeight);
  if (rc == 0) rc = mist->Process(&param);
  engine->DeleteEffect(&effect, Vantyx::EFFECT_BLACKMIST);
  if (rc != 0) {
    std::fprintf(stderr, "blackmist_frame: rendering failed with 0x%08x\n", unsigned(rc));
    return 1;
  }

  std::FILE* out = std::fopen(out_path, "wb");
  if (!out || std::fwrite(dst.data(), 1, dst.size(), out) != dst.size() || std::fclose(out) != 0) {
    std::fprintf(stderr, "blackmist_frame: could not write %s\n", out_path);
    return 1;
  }
  std::printf("%dx%d BGRA frame written to %s\n", kWidth, kHeight, out_path);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const char* lib_path = argc > 1 ? argv[1] : kDefaultLibrary;
  const char* out_path = argc > 2 ? argv[2] : "blackmist_frame.raw";

  Library lib = Open(lib_path);
  if (!lib) {
    std::fprintf(stderr, "blackmist_frame: cannot load %s\n", lib_path);
    return 1;
  }
  auto create = reinterpret_cast<CreateFn>(Find(lib, "CreateVantyxEngine"));
  auto destroy = reinterpret_cast<DeleteFn>(Find(lib, "DeleteVantyxEngine"));
  int status = 1;
  if (!create || !destroy) {
    std::fprintf(stderr, "blackmist_frame: %s lacks the entry points\n", lib_path);
  } else {
    Vantyx::VantyxEngine* engine = nullptr;
    create(&engine);
    if (!engine) {
      std::fprintf(stderr, "blackmist_frame: no engine\n");
    } else {
      status = Render(engine, out_path);
      destroy(&engine);
    }
  }
  Close(lib);
  return status;
}
