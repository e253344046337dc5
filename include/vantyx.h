/*
 * Vantyx: film-look effects for 8-bit BGRA frames.
 *
 * Calling order for a host:
 *   1. CreateVantyxEngine(&engine)          engine must point to null first
 *   2. engine->CreateEffect(&effect, type)  effect must be null; type is an EffectType
 *   3. AsBlackMistFull(effect)->SetImageSize(w, h), then Process / ProcessFull per frame
 *   4. engine->DeleteEffect(&effect, type)  optional: the engine deletes what is left
 *   5. DeleteVantyxEngine(&engine)
 *
 * The engine owns every effect it creates and one pool of worker threads that all its effects
 * share, so one host thread at a time drives an engine and its effects. Images stay in caller
 * memory; the library never keeps a pointer to them past the call that received them.
 * Results are HRESULT-style codes (see ResultCode); diagnostics go to the debugger output on
 * Windows and to standard error elsewhere, one line each, tagged "[VNTX]".
 *
 * This header is self-contained and compiles as C++11.
 */
#ifndef VANTYX_H
#define VANTYX_H

#include <stddef.h>
#include <stdint.h>

/*
 * The library version. The shared library's SONAME carries the major number (libvantyx.so.0);
 * docs/abi.md says what change bumps which number. The build and the packages read it from here.
 */
#define VANTYX_VERSION_MAJOR 0
#define VANTYX_VERSION_MINOR 1
#define VANTYX_VERSION_PATCH 0

#if defined(_WIN32)
#  if defined(VANTYX_BUILDING_LIBRARY)
#    define VANTYX_API __declspec(dllexport)
#  else
#    define VANTYX_API
#  endif
#else
#  define VANTYX_API __attribute__((visibility("default")))
#endif

/*
 * Slot 0 of every interface is its destructor. MSVC gives a virtual destructor one vtable entry
 * (the deleting destructor: this plus a flags word, bit 0 = free the object); GCC and clang give
 * it two. A mingw build declares the MSVC shape explicitly, so that hosts built with either
 * compiler call the same slots of the same DLL.
 */
#if defined(_WIN32) && defined(__GNUC__)
#  define VANTYX_INTERFACE_DESTRUCTOR(X)                                   \
   public:                                                                 \
    virtual void* VantyxDeletingDestructor(unsigned int flags) = 0;        \
   protected:                                                              \
    ~X() {}                                                                \
   public:
#else
#  define VANTYX_INTERFACE_DESTRUCTOR(X) \
   public:                               \
    virtual ~X() {}
#endif

namespace Vantyx {

/* Result codes. Negative values are failures. */
enum ResultCode : int32_t {
  VX_OK = 0,
  VX_E_NOTIMPL = static_cast<int32_t>(0x80004001u),     /* unsupported pixel format */
  VX_E_POINTER = static_cast<int32_t>(0x80004003u),     /* null image inside a stage */
  VX_E_FAIL = static_cast<int32_t>(0x80004005u),        /* misuse or unusable object */
  VX_E_OUTOFMEMORY = static_cast<int32_t>(0x8007000Eu), /* only from CreateEffect */
  VX_E_INVALIDARG = static_cast<int32_t>(0x80070057u)   /* bad size, format or parameter */
};

enum EffectType : uint32_t {
  EFFECT_BLACKMIST = 1,
  EFFECT_HALATION = 2,
  EFFECT_INFRARED = 3,
  EFFECT_AMBERFADE = 4
};

enum PixelFormat : uint32_t {
  PIXEL_BGRA32 = 0,    /* 4 bytes: blue, green, red, alpha */
  PIXEL_BGR24 = 1,     /* 3 bytes */
  PIXEL_GRAY8 = 2,     /* 1 byte: masks */
  PIXEL_GRAY16 = 3,    /* 1 x uint16 */
  PIXEL_GRAYF32 = 4,   /* 1 x float */
  PIXEL_FLOAT96 = 5,   /* 3 x float: blue, green, red */
  PIXEL_GRAY32_ALT = 6 /* 1 x uint32 */
};

enum SimdLevel : int32_t {
  SIMD_NONE = 0,
  SIMD_SSE = 1,
  SIMD_SSE2 = 2,
  SIMD_SSE3 = 3,
  SIMD_SSSE3 = 4,
  SIMD_SSE41 = 5,
  SIMD_SSE42 = 6
};

struct CpuInfo {
  int32_t processor_count;
  int32_t simd_level; /* a SimdLevel; 5 and above select the SSE4.1 kernels */
  int32_t reserved;
};

/* An image in caller memory. Rows are `stride` bytes apart. */
struct ImageDesc {
  void* data;
  uint32_t width;
  uint32_t height;
  uint32_t stride;
  uint32_t channels; /* 4 for BGRA32 images, 1 for masks */
  uint32_t format;   /* a PixelFormat */
  uint32_t reserved;
};

/* Right and bottom are exclusive. */
struct ProcessRect {
  uint32_t left;
  uint32_t top;
  uint32_t right;
  uint32_t bottom;
};

/*
 * Every frame record opens with src, mask and dst and carries a process_rect: the part of the
 * frame rendered into dst, which is exactly (right - left) x (bottom - top) pixels. The mask is
 * optional (data null) and otherwise PIXEL_GRAY8 at the frame size.
 */

/* BlackMist: highlights isolated at half size, softened and laid back over the picture. */
struct BlackMistParam {
  ImageDesc src;
  ImageDesc mask;
  ImageDesc dst;
  float light_intensity; /* 0..2 */
  float soft_radius;     /* 0..max(w, h) / 8, full-size pixels */
  uint32_t hlr_threshold; /* 0..255 */
  int32_t strength;       /* preset 0..3 */
  ProcessRect process_rect;
};

struct BlackMistFullParam {
  ImageDesc src;
  ImageDesc mask;
  ImageDesc dst;
  float light_intensity;
  float soft_radius;
  uint32_t hlr_threshold;
  float tint_amount;     /* >= 0 */
  float tint_hue;        /* 0..1 */
  float tint_brightness; /* 0..1 */
  uint32_t blend_opacity; /* 0..255 */
  float weight_blur;
  float weight_src;
  float reserved_f;
  uint8_t use_tone_mapping;
  uint8_t keep_saturation;
  uint8_t blur_blended;
  uint8_t pad;
  float blend_blur_radius;
  int32_t blend_mode;  /* 0..28 */
  int32_t output_mode; /* 0 glow only, 1 blurred blend, 2 result, 3 source copy */
  int32_t strength;
  int32_t reserved_i;
  ProcessRect process_rect;
};

/* Halation: keyed highlights and midtones, gaussian glow with reshaped red and green. */
struct HalationParams {
  ImageDesc src;
  ImageDesc mask;
  ImageDesc dst;
  uint32_t opacity;             /* 0..255 */
  uint32_t highlight_threshold; /* 0..255 */
  int32_t blur_radius;          /* >= 0 */
  uint32_t midtone_threshold;   /* 0..255 */
  uint32_t curve_strength;      /* 20..100 */
  uint32_t show_threshold;      /* 0..255 */
  ProcessRect process_rect;
};

struct HalationParamsEx {
  ImageDesc src;
  ImageDesc mask;
  ImageDesc dst;
  uint32_t opacity;
  uint32_t highlight_threshold;
  int32_t blur_radius;
  uint32_t blur_radius_2;
  uint32_t midtone_threshold;
  uint32_t curve_strength;
  uint32_t show_threshold;
  ProcessRect process_rect;
  float keyer_gain;
  uint8_t tone_mapping;
  uint8_t show_blur_mask;
  uint8_t pad[2];
  int32_t blend_mode;
  int32_t debug_view;
};

/* Infrared: one hue band recoloured and softened over a tone-mapped background. */
struct InfraredParams {
  ImageDesc src;
  ImageDesc mask;
  ImageDesc dst;
  uint32_t opacity;       /* 0..255 */
  float hue_shift;        /* 0..1 */
  float saturation;       /* -1..1 */
  float luminance;        /* -1..1 */
  uint32_t hue_tolerance; /* 0..360 */
  uint32_t preset;        /* 0 or 1 load a band preset */
  ProcessRect process_rect;
};

struct InfraredParamsEx {
  ImageDesc src;
  ImageDesc mask;
  ImageDesc dst;
  uint32_t opacity;
  ProcessRect process_rect;
  uint32_t show_original;
  float hue_range;
  float hue_start;
  float hue_shift;
  float saturation;
  float luminance;
  float saturation_threshold;
  uint32_t hue_tolerance;
  uint32_t flag;
  uint32_t preset;
  int32_t blend_mode;
  int32_t debug_view;
};

/* Amberfade: faded film look with glow, contrast, gamma on luma and colour temperature.
 * An effect rebuilds its gamma table only when `gamma` differs from the last gamma any Amberfade
 * effect of the process built its table for (1.0 at start): a second effect first used with that
 * same gamma renders with its own table still empty. A call with gamma 1.0 before the first
 * frame makes an effect build its own. In the full record, contrast, colour, the two weights,
 * a threshold below 0 and the result blur radius are not range-checked (NaN is refused). */
struct AmberfadeParam {
  ImageDesc src;
  ImageDesc mask;
  ImageDesc dst;
  float intensity; /* 0..5 */
  float colour;    /* -1..2 */
  float gamma;     /* 0..1 */
  uint8_t cool_look;
  uint8_t pad[3];
  ProcessRect process_rect;
};

struct AmberfadeFullParam {
  ImageDesc src;
  ImageDesc mask;
  ImageDesc dst;
  float hlr_gain;
  float blur_radius;
  int32_t hlr_threshold;
  float intensity;
  float gamma;
  float colour;
  int32_t cool_look;
  float weight_tint;
  float weight_result;
  float contrast;
  uint8_t adjust_colour_on;
  uint8_t blur_result_on;
  uint8_t pad[2];
  float result_blur_radius;
  int32_t blend_mode;
  int32_t output_mode;
  int32_t derive_from_intensity;
  ProcessRect process_rect;
};

/* The layouts are part of the binary contract. */
static_assert(sizeof(ImageDesc) == 32, "ImageDesc layout");
static_assert(offsetof(ImageDesc, width) == 8 && offsetof(ImageDesc, stride) == 16 &&
                  offsetof(ImageDesc, format) == 24,
              "ImageDesc layout");
static_assert(sizeof(ProcessRect) == 16, "ProcessRect layout");
static_assert(sizeof(CpuInfo) == 12, "CpuInfo layout");

static_assert(offsetof(BlackMistParam, mask) == 32 && offsetof(BlackMistParam, dst) == 64,
              "BlackMistParam layout");
static_assert(offsetof(BlackMistParam, light_intensity) == 96 &&
                  offsetof(BlackMistParam, soft_radius) == 100 &&
                  offsetof(BlackMistParam, hlr_threshold) == 104 &&
                  offsetof(BlackMistParam, strength) == 108 &&
                  offsetof(BlackMistParam, process_rect) == 112 && sizeof(BlackMistParam) == 128,
              "BlackMistParam layout");
static_assert(offsetof(BlackMistFullParam, tint_amount) == 108 &&
                  offsetof(BlackMistFullParam, tint_hue) == 112 &&
                  offsetof(BlackMistFullParam, tint_brightness) == 116 &&
                  offsetof(BlackMistFullParam, blend_opacity) == 120 &&
                  offsetof(BlackMistFullParam, weight_blur) == 124 &&
                  offsetof(BlackMistFullParam, weight_src) == 128 &&
                  offsetof(BlackMistFullParam, reserved_f) == 132 &&
                  offsetof(BlackMistFullParam, use_tone_mapping) == 136 &&
                  offsetof(BlackMistFullParam, keep_saturation) == 137 &&
                  offsetof(BlackMistFullParam, blur_blended) == 138 &&
                  offsetof(BlackMistFullParam, blend_blur_radius) == 140 &&
                  offsetof(BlackMistFullParam, blend_mode) == 144 &&
                  offsetof(BlackMistFullParam, output_mode) == 148 &&
                  offsetof(BlackMistFullParam, strength) == 152 &&
                  offsetof(BlackMistFullParam, reserved_i) == 156 &&
                  offsetof(BlackMistFullParam, process_rect) == 160 &&
                  sizeof(BlackMistFullParam) == 176,
              "BlackMistFullParam layout");
static_assert(offsetof(HalationParams, opacity) == 96 &&
                  offsetof(HalationParams, blur_radius) == 104 &&
                  offsetof(HalationParams, show_threshold) == 116 &&
                  offsetof(HalationParams, process_rect) == 120 && sizeof(HalationParams) == 136,
              "HalationParams layout");
static_assert(offsetof(HalationParamsEx, blur_radius_2) == 108 &&
                  offsetof(HalationParamsEx, show_threshold) == 120 &&
                  offsetof(HalationParamsEx, process_rect) == 124 &&
                  offsetof(HalationParamsEx, keyer_gain) == 140 &&
                  offsetof(HalationParamsEx, tone_mapping) == 144 &&
                  offsetof(HalationParamsEx, show_blur_mask) == 145 &&
                  offsetof(HalationParamsEx, blend_mode) == 148 &&
                  offsetof(HalationParamsEx, debug_view) == 152 && sizeof(HalationParamsEx) == 160,
              "HalationParamsEx layout");
static_assert(offsetof(InfraredParams, opacity) == 96 &&
                  offsetof(InfraredParams, hue_tolerance) == 112 &&
                  offsetof(InfraredParams, preset) == 116 &&
                  offsetof(InfraredParams, process_rect) == 120 && sizeof(InfraredParams) == 136,
              "InfraredParams layout");
static_assert(offsetof(InfraredParamsEx, process_rect) == 100 &&
                  offsetof(InfraredParamsEx, show_original) == 116 &&
                  offsetof(InfraredParamsEx, hue_range) == 120 &&
                  offsetof(InfraredParamsEx, saturation_threshold) == 140 &&
                  offsetof(InfraredParamsEx, hue_tolerance) == 144 &&
                  offsetof(InfraredParamsEx, flag) == 148 &&
                  offsetof(InfraredParamsEx, preset) == 152 &&
                  offsetof(InfraredParamsEx, blend_mode) == 156 &&
                  offsetof(InfraredParamsEx, debug_view) == 160 && sizeof(InfraredParamsEx) == 168,
              "InfraredParamsEx layout");
static_assert(offsetof(AmberfadeParam, intensity) == 96 && offsetof(AmberfadeParam, gamma) == 104 &&
                  offsetof(AmberfadeParam, cool_look) == 108 &&
                  offsetof(AmberfadeParam, process_rect) == 112 && sizeof(AmberfadeParam) == 128,
              "AmberfadeParam layout");
static_assert(offsetof(AmberfadeFullParam, hlr_threshold) == 104 &&
                  offsetof(AmberfadeFullParam, cool_look) == 120 &&
                  offsetof(AmberfadeFullParam, contrast) == 132 &&
                  offsetof(AmberfadeFullParam, adjust_colour_on) == 136 &&
                  offsetof(AmberfadeFullParam, blur_result_on) == 137 &&
                  offsetof(AmberfadeFullParam, result_blur_radius) == 140 &&
                  offsetof(AmberfadeFullParam, blend_mode) == 144 &&
                  offsetof(AmberfadeFullParam, derive_from_intensity) == 152 &&
                  offsetof(AmberfadeFullParam, process_rect) == 156 &&
                  sizeof(AmberfadeFullParam) == 176,
              "AmberfadeFullParam layout");

/* The engine: slot 0 destructor, 1 CreateEffect, 2 DeleteEffect. */
class VantyxEngine {
  VANTYX_INTERFACE_DESTRUCTOR(VantyxEngine)
  /* *p_effect_inst must be null. An unknown type returns 0 and creates nothing. */
  virtual int32_t CreateEffect(void** p_effect_inst, uint32_t type) = 0;
  /* Destroys an effect this engine made with the same type; nulls *p_effect_inst. */
  virtual int32_t DeleteEffect(void** p_effect_inst, uint32_t type) = 0;
};

/* Effect interfaces: slot 0 destructor, 1 SetImageSize, 2 Process, 3 Reset, 4 ProcessFull. */
#define VANTYX_DECLARE_EFFECT(X, BasicParam, FullParam)                    \
  class X {                                                                \
    VANTYX_INTERFACE_DESTRUCTOR(X)                                         \
    virtual int32_t SetImageSize(int32_t width, int32_t height) = 0;       \
    virtual int32_t Process(const BasicParam* param) = 0;                  \
    virtual int32_t Reset() = 0;                                           \
  };                                                                       \
  class X##Full : public X {                                               \
   public:                                                                 \
    virtual int32_t ProcessFull(const FullParam* param) = 0;               \
  };

VANTYX_DECLARE_EFFECT(BlackMist, BlackMistParam, BlackMistFullParam)
VANTYX_DECLARE_EFFECT(Halation, HalationParams, HalationParamsEx)
VANTYX_DECLARE_EFFECT(Infrared, InfraredParams, InfraredParamsEx)
VANTYX_DECLARE_EFFECT(Amberfade, AmberfadeParam, AmberfadeFullParam)

#undef VANTYX_DECLARE_EFFECT

/*
 * CreateEffect hands back the effect as a void* that was converted from the family's XFull*.
 * Converting it back with static_cast to that same type is well defined; these helpers do it.
 * Use the helper that matches the type code the effect was created with.
 */
inline BlackMistFull* AsBlackMistFull(void* effect) { return static_cast<BlackMistFull*>(effect); }
inline HalationFull* AsHalationFull(void* effect) { return static_cast<HalationFull*>(effect); }
inline InfraredFull* AsInfraredFull(void* effect) { return static_cast<InfraredFull*>(effect); }
inline AmberfadeFull* AsAmberfadeFull(void* effect) { return static_cast<AmberfadeFull*>(effect); }

} /* namespace Vantyx */

extern "C" {
/*
 * Creates an engine into *p_inst, which must be null (else a log line, and *p_inst is left
 * alone). Judge success by *p_inst: the returned value is the engine's address, or a log length.
 */
VANTYX_API intptr_t CreateVantyxEngine(Vantyx::VantyxEngine** p_inst);
/* Deletes the engine and every effect it still owns; sets *p_inst to null. */
VANTYX_API void DeleteVantyxEngine(Vantyx::VantyxEngine** p_inst);
}

#endif /* VANTYX_H */
