// A host that sees the DLL the way one built with MSVC does: it declares the interfaces itself
// with MSVC's vtable shape (slot 0 is one deleting-destructor entry taking the flags word, then
// the operations in slot order), loads vantyx.dll at run time and finds the two entry points by
// name. Nothing here uses the library's own interface classes; vantyx.h supplies only the
// plain records and codes, whose layouts it pins with static assertions.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#include <tlhelp32.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "vantyx.h"

namespace host {

// MSVC's layout of an interface with a virtual destructor: `delete p` compiles to a call of
// slot 0 with flags 1 (destroy, then free); flags 0 destroys only.
class Engine {
 public:
  virtual void* Dtor(unsigned int flags) = 0;                           // slot 0
  virtual int32_t CreateEffect(void** p_effect_inst, uint32_t type) = 0;  // slot 1
  virtual int32_t DeleteEffect(void** p_effect_inst, uint32_t type) = 0;  // slot 2
};

template <class Basic, class Full>
class Effect {
 public:
  virtual void* Dtor(unsigned int flags) = 0;               // slot 0
  virtual int32_t SetImageSize(int32_t width, int32_t height) = 0;  // slot 1
  virtual int32_t Process(const Basic* param) = 0;          // slot 2
  virtual int32_t Reset() = 0;                              // slot 3
  virtual int32_t ProcessFull(const Full* param) = 0;       // slot 4
};

using CreateFn = intptr_t (*)(Engine**);
using DeleteFn = void (*)(Engine**);

}  // namespace host

namespace {

constexpr int32_t kOk = 0;
constexpr int32_t kNotImpl = static_cast<int32_t>(0x80004001u);
constexpr int32_t kFail = static_cast<int32_t>(0x80004005u);
constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057u);

constexpr int32_t kWidth = 67;  // odd on purpose: aligned 70, scaled 33 + 1 = 34
constexpr int32_t kHeight = 45;

// Threads of this process, from a system snapshot: the engine's workers must be gone after
// slot 0 ran, which shows the destructor really ran rather than a neighbouring slot.
int CountOwnThreads() {
  HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snap == INVALID_HANDLE_VALUE) return -1;
  THREADENTRY32 entry;
  entry.dwSize = sizeof(entry);
  int count = 0;
  const DWORD self = GetCurrentProcessId();
  for (BOOL ok = Thread32First(snap, &entry); ok; ok = Thread32Next(snap, &entry)) {
    if (entry.th32OwnerProcessID == self) ++count;
  }
  CloseHandle(snap);
  return count;
}

// Waits a little for exiting threads to leave the snapshot, then counts.
int SettledThreadCount(int expected) {
  int count = CountOwnThreads();
  for (int i = 0; i < 100 && count != expected; ++i) {
    Sleep(10);
    count = CountOwnThreads();
  }
  return count;
}

struct Frame {
  std::vector<uint8_t> src, dst;
  Vantyx::ImageDesc src_desc{}, dst_desc{}, no_mask{};
  Vantyx::ProcessRect rect{0, 0, static_cast<uint32_t>(kWidth), static_cast<uint32_t>(kHeight)};

  Frame() : src(size_t(kWidth) * kHeight * 4), dst(src.size(), 0) {
    for (int32_t y = 0; y < kHeight; ++y) {
      for (int32_t x = 0; x < kWidth; ++x) {
        uint8_t* p = &src[(size_t(y) * kWidth + x) * 4];
        p[0] = static_cast<uint8_t>(x * 255 / (kWidth - 1));
        p[1] = static_cast<uint8_t>(y * 255 / (kHeight - 1));
        p[2] = static_cast<uint8_t>((x * 7 + y * 13) & 255);
        p[3] = 255;
      }
    }
    src_desc = Desc(src.data());
    dst_desc = Desc(dst.data());
  }
  static Vantyx::ImageDesc Desc(uint8_t* data) {
    Vantyx::ImageDesc d{};
    d.data = data;
    d.width = kWidth;
    d.height = kHeight;
    d.stride = kWidth * 4;
    d.channels = 4;
    d.format = Vantyx::PIXEL_BGRA32;
    return d;
  }
  template <class Param>
  void Fill(Param* p) {
    p->src = src_desc;
    p->mask = no_mask;
    p->dst = dst_desc;
    p->process_rect = rect;
  }
};

class MsvcLayoutHost : public ::testing::Test {
 protected:
  void SetUp() override {
    dll_ = LoadLibraryA("vantyx.dll");
    ASSERT_NE(dll_, nullptr) << "LoadLibraryA(vantyx.dll) failed, error " << GetLastError();
    create_ = reinterpret_cast<host::CreateFn>(
        reinterpret_cast<void*>(GetProcAddress(dll_, "CreateVantyxEngine")));
    delete_ = reinterpret_cast<host::DeleteFn>(
        reinterpret_cast<void*>(GetProcAddress(dll_, "DeleteVantyxEngine")));
    ASSERT_NE(create_, nullptr);
    ASSERT_NE(delete_, nullptr);
  }
  void TearDown() override {
    if (dll_) {
      EXPECT_TRUE(FreeLibrary(dll_));
    }
  }

  host::Engine* NewEngine() {
    host::Engine* engine = nullptr;
    const intptr_t rc = create_(&engine);
    EXPECT_NE(engine, nullptr);
    EXPECT_EQ(rc, reinterpret_cast<intptr_t>(engine));  // the result is the engine's address
    return engine;
  }

  // Creates, renders with both process slots, resets and deletes one effect of `type`.
  // Returns false when the family is not built into this DLL.
  template <class Basic, class Full, class MakeBasic, class MakeFull>
  bool Exercise(host::Engine* engine, uint32_t type, MakeBasic make_basic, MakeFull make_full) {
    using E = host::Effect<Basic, Full>;
    void* effect = nullptr;
    const int32_t rc = engine->CreateEffect(&effect, type);
    if (rc == kNotImpl) {
      EXPECT_EQ(effect, nullptr);
      return false;
    }
    EXPECT_EQ(rc, kOk) << "type " << type;
    if (!effect) {
      ADD_FAILURE() << "type " << type << " created no effect";
      return false;
    }
    E* e = static_cast<E*>(effect);
    Frame frame;
    Basic basic{};
    Full full{};
    frame.Fill(&basic);
    frame.Fill(&full);
    make_basic(&basic);
    make_full(&full);

    EXPECT_EQ(e->Process(&basic), kInvalidArg) << "type " << type << ": before any size";
    EXPECT_EQ(e->SetImageSize(0, kHeight), kInvalidArg) << "type " << type;
    EXPECT_EQ(e->SetImageSize(kWidth, kHeight), kOk) << "type " << type;
    EXPECT_EQ(e->Process(&basic), kOk) << "type " << type;
    EXPECT_NE(frame.dst, std::vector<uint8_t>(frame.dst.size(), 0)) << "type " << type;
    std::fill(frame.dst.begin(), frame.dst.end(), uint8_t(0));
    EXPECT_EQ(e->ProcessFull(&full), kOk) << "type " << type;
    EXPECT_NE(frame.dst, std::vector<uint8_t>(frame.dst.size(), 0)) << "type " << type;

    // A wrong source format reaches the family's checks through slot 2.
    basic.src.format = Vantyx::PIXEL_GRAY8;
    EXPECT_EQ(e->Process(&basic), kNotImpl) << "type " << type;
    basic.src.format = Vantyx::PIXEL_BGRA32;

    EXPECT_EQ(e->Reset(), kOk) << "type " << type;
    EXPECT_EQ(e->Process(&basic), kInvalidArg) << "type " << type << ": sizes dropped by Reset";
    EXPECT_EQ(e->SetImageSize(kWidth, kHeight), kOk) << "type " << type;
    EXPECT_EQ(e->Process(&basic), kOk) << "type " << type;

    // Handed back with another family's code: refused, the effect stays.
    const uint32_t other = type == 1 ? 2 : 1;
    EXPECT_EQ(engine->DeleteEffect(&effect, other), kFail) << "type " << type;
    EXPECT_EQ(effect, static_cast<void*>(e));
    EXPECT_EQ(engine->DeleteEffect(&effect, type), kOk) << "type " << type;
    EXPECT_EQ(effect, nullptr);
    EXPECT_EQ(engine->DeleteEffect(&effect, type), kFail) << "type " << type;
    return true;
  }

  HMODULE dll_ = nullptr;
  host::CreateFn create_ = nullptr;
  host::DeleteFn delete_ = nullptr;
};

TEST_F(MsvcLayoutHost, EngineSlotsOneAndTwo) {
  const int threads_before = CountOwnThreads();
  host::Engine* engine = NewEngine();
  ASSERT_NE(engine, nullptr);
  EXPECT_GT(CountOwnThreads(), threads_before) << "the engine starts its workers";

  // A non-null engine slot is left alone.
  host::Engine* again = engine;
  create_(&again);
  EXPECT_EQ(again, engine);

  void* effect = reinterpret_cast<void*>(uintptr_t{0x10});
  EXPECT_EQ(engine->CreateEffect(&effect, 1), kFail);
  EXPECT_EQ(effect, reinterpret_cast<void*>(uintptr_t{0x10}));
  effect = nullptr;
  EXPECT_EQ(engine->CreateEffect(&effect, 0), kOk);
  EXPECT_EQ(effect, nullptr);
  EXPECT_EQ(engine->CreateEffect(&effect, 5), kOk);
  EXPECT_EQ(effect, nullptr);
  EXPECT_EQ(engine->DeleteEffect(&effect, 1), kFail);  // null effect

  delete_(&engine);
  EXPECT_EQ(engine, nullptr);
  EXPECT_EQ(SettledThreadCount(threads_before), threads_before) << "workers joined";
  delete_(&engine);  // null: ignored
}

TEST_F(MsvcLayoutHost, EveryBuiltFamilyThroughItsSlots) {
  host::Engine* engine = NewEngine();
  ASSERT_NE(engine, nullptr);
  int built = 0;

  built += Exercise<Vantyx::BlackMistParam, Vantyx::BlackMistFullParam>(
      engine, Vantyx::EFFECT_BLACKMIST,
      [](Vantyx::BlackMistParam* p) {
        p->light_intensity = 1.0f;
        p->soft_radius = 6.0f;  // at most max(67, 45) / 8 = 8
        p->hlr_threshold = 120;
        p->strength = 1;
      },
      [](Vantyx::BlackMistFullParam* p) {
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
      });
  built += Exercise<Vantyx::HalationParams, Vantyx::HalationParamsEx>(
      engine, Vantyx::EFFECT_HALATION,
      [](Vantyx::HalationParams* p) {
        p->opacity = 255;
        p->highlight_threshold = 120;
        p->blur_radius = 6;
        p->midtone_threshold = 150;
        p->curve_strength = 50;
        p->show_threshold = 120;
      },
      [](Vantyx::HalationParamsEx* p) {
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
      });
  built += Exercise<Vantyx::InfraredParams, Vantyx::InfraredParamsEx>(
      engine, Vantyx::EFFECT_INFRARED,
      [](Vantyx::InfraredParams* p) {
        p->opacity = 255;
        p->hue_shift = 0.9f;
        p->hue_tolerance = 20;
        p->preset = 0;
      },
      [](Vantyx::InfraredParamsEx* p) {
        p->opacity = 255;
        p->hue_range = 0.35f;
        p->hue_start = 0.11388889f;
        p->hue_shift = 0.9f;
        p->saturation_threshold = 0.1f;
        p->hue_tolerance = 20;
        p->flag = 1;
        p->blend_mode = 22;
        p->debug_view = 9;
      });
  built += Exercise<Vantyx::AmberfadeParam, Vantyx::AmberfadeFullParam>(
      engine, Vantyx::EFFECT_AMBERFADE,
      [](Vantyx::AmberfadeParam* p) {
        p->intensity = 1.0f;
        p->colour = 0.5f;
        p->gamma = 0.8f;
      },
      [](Vantyx::AmberfadeFullParam* p) {
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
      });

  delete_(&engine);
  EXPECT_EQ(engine, nullptr);
  if (built == 0) GTEST_SKIP() << "no effect family is built into this DLL yet";
}

// Effects left with the engine are destroyed through their slot 0 by the engine's own slot 0,
// which is what `delete engine` compiles to in an MSVC host.
TEST_F(MsvcLayoutHost, DeleteThroughSlotZeroWithLiveEffects) {
  const int threads_before = CountOwnThreads();
  host::Engine* engine = NewEngine();
  ASSERT_NE(engine, nullptr);
  for (uint32_t type = 1; type <= 4; ++type) {
    for (int i = 0; i < 2; ++i) {
      void* effect = nullptr;
      const int32_t rc = engine->CreateEffect(&effect, type);
      if (rc == kNotImpl) break;
      ASSERT_EQ(rc, kOk);
      auto* e = static_cast<host::Effect<Vantyx::BlackMistParam, Vantyx::BlackMistFullParam>*>(effect);
      EXPECT_EQ(e->SetImageSize(kWidth, kHeight), kOk);  // slot 1 of every family
    }
  }
  void* returned = engine->Dtor(1);
  EXPECT_EQ(returned, static_cast<void*>(engine));  // MSVC's deleting destructor returns this
  EXPECT_EQ(SettledThreadCount(threads_before), threads_before) << "workers joined";
}

}  // namespace
