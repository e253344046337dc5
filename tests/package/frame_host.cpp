// A host that knows the library only through include/vantyx.h, built from this one file:
//   - for Windows by clang in MSVC mode (clang-cl, lld-link): freestanding, no C runtime, the few
//     kernel32 functions it needs declared below. The compiler lays the interfaces out the MSVC
//     way, so this shows that a host built for the Windows compiler works with vantyx.dll:
//     once loading the DLL with LoadLibraryA, once (VANTYX_HOST_LINKED) through vantyx.lib.
//   - for Linux, linked to libvantyx.so from the build tree, from an install prefix (find_package
//     and pkg-config) or from the Windows tests' native reference build.
// It drives the engine and every built effect through each interface slot, checks the result
// codes that tell the slots apart, deletes an engine with `delete`, and writes each rendered
// frame as raw BGRA into the current folder (blackmist_basic.raw, blackmist_full.raw, ...):
// every build must write the same bytes.
// Exit status 0, or 1 after one line per failed check.
#include "vantyx.h"

#if !defined(_WIN32) && !defined(VANTYX_HOST_LINKED)
#error "on Linux the host links the library (VANTYX_HOST_LINKED)"
#endif

using namespace Vantyx;

// ---- the platform: text out, a file out, the library, the process's threads -----------------
#if defined(_WIN32)
extern "C" {
typedef void* Handle;
struct ThreadEntry {  // THREADENTRY32
  unsigned long size, usage, thread_id, owner_process_id;
  long base_priority, delta_priority;
  unsigned long flags;
};
__declspec(dllimport) Handle __stdcall LoadLibraryA(const char* name);
__declspec(dllimport) void* __stdcall GetProcAddress(Handle module, const char* name);
__declspec(dllimport) int __stdcall FreeLibrary(Handle module);
__declspec(dllimport) Handle __stdcall GetStdHandle(unsigned long which);
__declspec(dllimport) Handle __stdcall CreateFileA(const char* name, unsigned long access,
                                                   unsigned long share, void* security,
                                                   unsigned long disposition, unsigned long flags,
                                                   Handle from);
__declspec(dllimport) int __stdcall WriteFile(Handle file, const void* data, unsigned long size,
                                              unsigned long* written, void* overlapped);
__declspec(dllimport) int __stdcall CloseHandle(Handle handle);
__declspec(dllimport) void __stdcall Sleep(unsigned long milliseconds);
__declspec(dllimport) __declspec(noreturn) void __stdcall ExitProcess(unsigned int code);
__declspec(dllimport) unsigned long __stdcall GetCurrentProcessId();
__declspec(dllimport) Handle __stdcall CreateToolhelp32Snapshot(unsigned long flags,
                                                                unsigned long process);
__declspec(dllimport) int __stdcall Thread32First(Handle snapshot, ThreadEntry* entry);
__declspec(dllimport) int __stdcall Thread32Next(Handle snapshot, ThreadEntry* entry);

// What the compiler may call or reference without a C runtime.
int _fltused = 0;
void* memset(void* to, int value, size_t size) {
  unsigned char* p = static_cast<unsigned char*>(to);
  while (size--) *p++ = static_cast<unsigned char>(value);
  return to;
}
void* memcpy(void* to, const void* from, size_t size) {
  unsigned char* p = static_cast<unsigned char*>(to);
  const unsigned char* q = static_cast<const unsigned char*>(from);
  while (size--) *p++ = *q++;
  return to;
}
}  // extern "C"

namespace {
Handle const kInvalidHandle = reinterpret_cast<Handle>(intptr_t{-1});

void Print(const char* text, size_t size) {
  unsigned long written = 0;
  WriteFile(GetStdHandle(static_cast<unsigned long>(-11)), text, static_cast<unsigned long>(size),
            &written, nullptr);
}

bool WriteWholeFile(const char* name, const uint8_t* data, size_t size) {
  Handle file = CreateFileA(name, 0x40000000u /* write */, 0, nullptr, 2 /* always new */,
                            0x80 /* normal */, nullptr);
  if (file == kInvalidHandle) return false;
  unsigned long written = 0;
  const bool ok = WriteFile(file, data, static_cast<unsigned long>(size), &written, nullptr) &&
                  written == size;
  return CloseHandle(file) && ok;
}

// The threads of this process: the engine's workers must be gone once slot 0 has run.
int ThreadCount() {
  Handle snapshot = CreateToolhelp32Snapshot(4 /* threads */, 0);
  if (snapshot == kInvalidHandle) return -1;
  ThreadEntry entry = {};
  entry.size = sizeof(entry);
  int count = 0;
  for (int ok = Thread32First(snapshot, &entry); ok; ok = Thread32Next(snapshot, &entry)) {
    count += entry.owner_process_id == GetCurrentProcessId();
  }
  CloseHandle(snapshot);
  return count;
}
void Pause() { Sleep(10); }
}  // namespace
#else
#include <stdio.h>

namespace {
void Print(const char* text, size_t size) { fwrite(text, 1, size, stdout); }

bool WriteWholeFile(const char* name, const uint8_t* data, size_t size) {
  FILE* file = fopen(name, "wb");
  if (!file) return false;
  const bool ok = fwrite(data, 1, size, file) == size;
  return fclose(file) == 0 && ok;
}

int ThreadCount() { return -1; }  // counted on Windows only
void Pause() {}
}  // namespace
#endif

namespace {

using CreateFn = intptr_t (*)(VantyxEngine**);
using DeleteFn = void (*)(VantyxEngine**);

struct Library {
  CreateFn create = nullptr;
  DeleteFn destroy = nullptr;
#if defined(VANTYX_HOST_LINKED)
  bool Open() {
    create = CreateVantyxEngine;
    destroy = DeleteVantyxEngine;
    return true;
  }
  void Close() {}
#else
  Handle module = nullptr;
  bool Open() {
    module = LoadLibraryA("vantyx.dll");
    if (!module) return false;
    create = reinterpret_cast<CreateFn>(GetProcAddress(module, "CreateVantyxEngine"));
    destroy = reinterpret_cast<DeleteFn>(GetProcAddress(module, "DeleteVantyxEngine"));
    return create && destroy;
  }
  void Close() {
    if (module) FreeLibrary(module);
  }
#endif
};

// ---- reporting ------------------------------------------------------------------------------

size_t Length(const char* text) {
  size_t n = 0;
  while (text[n]) ++n;
  return n;
}
void Say(const char* text) { Print(text, Length(text)); }

void SayHex(uint32_t value) {
  char digits[10] = {'0', 'x'};
  for (int i = 0; i < 8; ++i) digits[2 + i] = "0123456789abcdef"[(value >> (28 - 4 * i)) & 15];
  Print(digits, sizeof(digits));
}

int g_failures = 0;

bool Expect(bool ok, const char* who, const char* what) {
  if (!ok) {
    ++g_failures;
    Say("FAIL ");
    Say(who);
    Say(": ");
    Say(what);
    Say("\n");
  }
  return ok;
}

bool ExpectCode(int32_t got, int32_t want, const char* who, const char* what) {
  if (got == want) return true;
  ++g_failures;
  Say("FAIL ");
  Say(who);
  Say(": ");
  Say(what);
  Say(" gave ");
  SayHex(uint32_t(got));
  Say(", expected ");
  SayHex(uint32_t(want));
  Say("\n");
  return false;
}

// ---- the frames -----------------------------------------------------------------------------

constexpr uint32_t kWidth = 67;  // odd on purpose: half size 34, unaligned rows
constexpr uint32_t kHeight = 45;
constexpr size_t kFrameBytes = size_t(kWidth) * kHeight * 4;
uint8_t g_src[kFrameBytes];
uint8_t g_dst[kFrameBytes];

void MakePicture() {
  for (uint32_t y = 0; y < kHeight; ++y) {
    for (uint32_t x = 0; x < kWidth; ++x) {
      uint8_t* p = g_src + (size_t(y) * kWidth + x) * 4;
      p[0] = uint8_t(x * 255 / (kWidth - 1));
      p[1] = uint8_t(y * 255 / (kHeight - 1));
      p[2] = uint8_t((x * 7 + y * 13) & 255);
      p[3] = 255;
    }
  }
}

ImageDesc Desc(uint8_t* data) {
  ImageDesc d = {};
  d.data = data;
  d.width = kWidth;
  d.height = kHeight;
  d.stride = kWidth * 4;
  d.channels = 4;
  d.format = PIXEL_BGRA32;
  return d;
}

template <class Param>
void FrameFields(Param* p) {
  p->src = Desc(g_src);
  p->dst = Desc(g_dst);  // no mask: its data pointer stays null
  p->process_rect.left = 0;
  p->process_rect.top = 0;
  p->process_rect.right = kWidth;
  p->process_rect.bottom = kHeight;
}

void WriteFrame(const char* family, const char* call) {
  const char* parts[] = {family, "_", call, ".raw"};
  char name[64];
  size_t n = 0;
  for (const char* part : parts) {
    for (size_t i = 0; part[i] && n + 1 < sizeof(name); ++i) name[n++] = part[i];
  }
  name[n] = 0;
  Expect(WriteWholeFile(name, g_dst, kFrameBytes), name, "could not write the frame");
}

// ---- the effects: each family's records, then one run through all five slots ---------------

void Set(BlackMistParam* p) {
  p->light_intensity = 1.0f;
  p->soft_radius = 6.0f;  // at most max(67, 45) / 8 = 8
  p->hlr_threshold = 120;
  p->strength = 1;
}
void Set(BlackMistFullParam* p) {
  p->light_intensity = 1.5f;
  p->soft_radius = 4.0f;
  p->hlr_threshold = 100;
  p->tint_amount = 0.3f;
  p->tint_hue = 0.6f;
  p->tint_brightness = 0.9f;
  p->blend_opacity = 200;
  p->weight_blur = 0.3f;
  p->weight_src = 0.7f;
  p->reserved_f = 1.0f;
  p->keep_saturation = 1;
  p->blur_blended = 1;
  p->blend_blur_radius = 2.0f;
  p->blend_mode = 5;
  p->output_mode = 2;
  p->strength = 1;
  p->reserved_i = 1;
}
void Set(HalationParams* p) {
  p->opacity = 255;
  p->highlight_threshold = 120;
  p->blur_radius = 6;
  p->midtone_threshold = 150;
  p->curve_strength = 50;
  p->show_threshold = 120;
}
void Set(HalationParamsEx* p) {
  p->opacity = 255;
  p->highlight_threshold = 120;
  p->blur_radius = 6;
  p->blur_radius_2 = 6;
  p->midtone_threshold = 150;
  p->curve_strength = 50;
  p->show_threshold = 120;
  p->keyer_gain = 1.0f;
  p->tone_mapping = 1;
  p->blend_mode = 4;
  p->debug_view = 9;
}
void Set(InfraredParams* p) {
  p->opacity = 255;
  p->hue_shift = 0.9f;
  p->hue_tolerance = 20;
  p->preset = 0;
}
void Set(InfraredParamsEx* p) {
  p->opacity = 255;
  p->hue_range = 0.35f;
  p->hue_start = 0.11388889f;
  p->hue_shift = 0.9f;
  p->saturation_threshold = 0.1f;
  p->hue_tolerance = 20;
  p->flag = 1;
  p->blend_mode = 22;
  p->debug_view = 9;
}
void Set(AmberfadeParam* p) {
  p->intensity = 1.0f;
  p->colour = 0.5f;
  p->gamma = 0.8f;
}
void Set(AmberfadeFullParam* p) {
  p->hlr_gain = 0.33f;
  p->blur_radius = 1.5f;
  p->hlr_threshold = 160;
  p->intensity = 1.0f;
  p->gamma = 0.8f;
  p->colour = 0.5f;
  p->weight_tint = 0.27f;
  p->weight_result = 0.73f;
  p->contrast = 0.7f;
  p->adjust_colour_on = 1;
  p->blur_result_on = 1;
  p->result_blur_radius = 8.0f;
  p->blend_mode = 5;
  p->output_mode = 2;
}

void ClearFrame() {
  for (size_t i = 0; i < kFrameBytes; ++i) g_dst[i] = 0;
}

// Slots 1 to 4 of one effect, then slot 2 of the engine. Every family is built: each must be
// created and driven.
template <class Full, class Basic, class FullParam>
void DriveEffect(VantyxEngine* engine, uint32_t type, const char* name) {
  void* handle = nullptr;
  const int32_t created = engine->CreateEffect(&handle, type);
  if (!ExpectCode(created, VX_OK, name, "CreateEffect") || !Expect(handle, name, "no effect")) {
    return;
  }
  Full* effect = static_cast<Full*>(handle);
  Basic basic = {};
  FullParam full = {};
  FrameFields(&basic);
  FrameFields(&full);
  Set(&basic);
  Set(&full);

  // The engine's own rules are the unit tests' business; here the answers only have to show
  // that each call reached its slot, and the frames that the renders are the Linux ones.
  ExpectCode(effect->SetImageSize(kWidth, kHeight), VX_OK, name, "SetImageSize");
  ClearFrame();
  if (ExpectCode(effect->Process(&basic), VX_OK, name, "Process")) WriteFrame(name, "basic");
  ClearFrame();
  if (ExpectCode(effect->ProcessFull(&full), VX_OK, name, "ProcessFull")) WriteFrame(name, "full");
  ExpectCode(effect->Reset(), VX_OK, name, "Reset");
  ExpectCode(effect->Process(&basic), VX_E_INVALIDARG, name, "Process after Reset");

  // Handed back under another family's code: refused, and the effect stays.
  ExpectCode(engine->DeleteEffect(&handle, type == 1 ? 2 : 1), VX_E_FAIL, name,
             "DeleteEffect with another type");
  Expect(handle == effect, name, "a refused DeleteEffect cleared the pointer");
  ExpectCode(engine->DeleteEffect(&handle, type), VX_OK, name, "DeleteEffect");
  Expect(!handle, name, "DeleteEffect left the pointer set");
}

int32_t SetImageSizeOf(void* effect, uint32_t type) {
  switch (type) {
    case EFFECT_BLACKMIST: return AsBlackMistFull(effect)->SetImageSize(kWidth, kHeight);
    case EFFECT_HALATION: return AsHalationFull(effect)->SetImageSize(kWidth, kHeight);
    case EFFECT_INFRARED: return AsInfraredFull(effect)->SetImageSize(kWidth, kHeight);
    default: return AsAmberfadeFull(effect)->SetImageSize(kWidth, kHeight);
  }
}

// Waits a little for exiting threads to leave the count.
int SettledThreadCount(int expected) {
  int count = ThreadCount();
  for (int i = 0; i < 100 && count != expected; ++i) {
    Pause();
    count = ThreadCount();
  }
  return count;
}

int Run() {
  Library library;
  if (!Expect(library.Open(), "library", "cannot load it or find its two entry points")) return 1;
  MakePicture();
  const int threads_before = ThreadCount();

  VantyxEngine* engine = nullptr;
  const intptr_t address = library.create(&engine);
  if (!Expect(engine, "engine", "CreateVantyxEngine made none")) return 1;
  Expect(address == reinterpret_cast<intptr_t>(engine), "engine", "the result is not its address");
  Expect(threads_before < 0 || ThreadCount() > threads_before, "engine", "no worker started");

  DriveEffect<BlackMistFull, BlackMistParam, BlackMistFullParam>(engine, EFFECT_BLACKMIST,
                                                                 "blackmist");
  DriveEffect<HalationFull, HalationParams, HalationParamsEx>(engine, EFFECT_HALATION,
                                                              "halation");
  DriveEffect<InfraredFull, InfraredParams, InfraredParamsEx>(engine, EFFECT_INFRARED,
                                                              "infrared");
  DriveEffect<AmberfadeFull, AmberfadeParam, AmberfadeFullParam>(engine, EFFECT_AMBERFADE,
                                                                 "amberfade");
  library.destroy(&engine);
  Expect(!engine, "engine", "DeleteVantyxEngine left the pointer set");
  library.destroy(&engine);  // null: ignored

  // `delete` on an engine that still owns effects: slot 0, which must also destroy the effects
  // through their own slot 0 and join the workers.
  library.create(&engine);
  if (Expect(engine, "engine", "no second engine")) {
    for (uint32_t type = EFFECT_BLACKMIST; type <= EFFECT_AMBERFADE; ++type) {
      for (int i = 0; i < 2; ++i) {
        void* handle = nullptr;
        if (engine->CreateEffect(&handle, type) != VX_OK || !handle) break;
        ExpectCode(SetImageSizeOf(handle, type), VX_OK, "engine", "SetImageSize before delete");
      }
    }
    delete engine;
    Expect(SettledThreadCount(threads_before) == threads_before, "engine",
           "workers still running after delete");
  }
  library.Close();
  Say(g_failures ? "frame_host: FAILED\n" : "frame_host: all checks passed\n");
  return g_failures ? 1 : 0;
}

}  // namespace

#if defined(_WIN32)
extern "C" void __stdcall HostEntry() { ExitProcess(static_cast<unsigned int>(Run())); }
#else
int main() { return Run(); }
#endif
