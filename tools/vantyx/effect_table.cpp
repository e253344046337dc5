#include "effect_table.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "vantyx.h"

namespace VantyxTool {

namespace {

constexpr double kNoMax = std::numeric_limits<double>::infinity();

// The family's calls, reached through the XFull pointer that CreateEffect hands back. Records
// travel as bytes and are copied into a real record before the call.
template <class Full, class Basic, class FullRecord>
struct FamilyCalls {
  static Full* Cast(void* effect) { return static_cast<Full*>(effect); }
  static int32_t SetImageSize(void* effect, int32_t width, int32_t height) {
    return Cast(effect)->SetImageSize(width, height);
  }
  static int32_t Process(void* effect, const uint8_t* record) {
    Basic param;
    std::memcpy(&param, record, sizeof(param));
    return Cast(effect)->Process(&param);
  }
  static int32_t ProcessFull(void* effect, const uint8_t* record) {
    FullRecord param;
    std::memcpy(&param, record, sizeof(param));
    return Cast(effect)->ProcessFull(&param);
  }
};

const char* const kOnOff[] = {"off", "on", nullptr};
const char* const kBlackMistOutputs[] = {"glow", "blurred", "result", "source", nullptr};

// ---- BlackMist -------------------------------------------------------------------------------

using Vantyx::BlackMistFullParam;
using Vantyx::BlackMistParam;

double MaxSideEighth(const FrameContext& f) { return double(std::max(f.width, f.height) / 8); }
// A quarter of the allowed maximum: a soft glow at any picture size.
double BlackMistRadius(const FrameContext& f) { return MaxSideEighth(f) * 0.25; }
// What the basic call uses for the second blur.
double BlackMistBlendRadius(const FrameContext& f) {
  return double(float(std::max(f.width, f.height) / 8) * 0.06f);
}
// The weights the basic call takes from the strength preset, so that a full call that changes
// nothing else renders the same picture.
float PresetWeightBlur(int32_t strength) {
  switch (strength) {
    case 0: return 0.35f;
    case 1: return 0.27f;
    case 2: return 0.2f;
    case 3: return 0.1f;
    default: return 0.0f;
  }
}
double BlackMistWeightBlur(const FrameContext& f) {
  return double(PresetWeightBlur(int32_t(OptionValue(f, "strength"))));
}
double BlackMistWeightSrc(const FrameContext& f) {
  const int32_t strength = int32_t(OptionValue(f, "strength"));
  return strength >= 0 && strength <= 3 ? double(1.0f - PresetWeightBlur(strength)) : 1.0;
}

#define BM_BASIC(field) int32_t(offsetof(BlackMistParam, field))
#define BM_FULL(field) int32_t(offsetof(BlackMistFullParam, field))

const OptionSpec kBlackMistOptions[] = {
    {"intensity", "gain of the highlight contrast curve", FieldType::kF32, 0, 2, 1.0, nullptr,
     nullptr, nullptr, nullptr, nullptr, BM_BASIC(light_intensity), BM_FULL(light_intensity)},
    {"radius", "blur radius of the highlight glow, in pixels", FieldType::kF32, 0, kNoMax, 0,
     MaxSideEighth, "max(w,h)/8", BlackMistRadius, "max(w,h)/32", nullptr,
     BM_BASIC(soft_radius), BM_FULL(soft_radius)},
    {"threshold", "brightness where highlights start", FieldType::kU32, 0, 255, 160, nullptr,
     nullptr, nullptr, nullptr, nullptr, BM_BASIC(hlr_threshold), BM_FULL(hlr_threshold)},
    {"strength", "strength preset (0 strongest glow, 3 faintest)", FieldType::kI32, 0, 3, 1,
     nullptr, nullptr, nullptr, nullptr, nullptr, BM_BASIC(strength), BM_FULL(strength)},
    {"tint-amount", "how far the highlights are pulled to the tint colour", FieldType::kF32, 0,
     kNoMax, 0, nullptr, nullptr, nullptr, nullptr, nullptr, -1, BM_FULL(tint_amount)},
    {"tint-hue", "tint hue as a fraction of the colour circle", FieldType::kF32, 0, 1, 0,
     nullptr, nullptr, nullptr, nullptr, nullptr, -1, BM_FULL(tint_hue)},
    {"tint-brightness", "brightness multiplier of the tinted highlights", FieldType::kF32, 0, 1,
     1, nullptr, nullptr, nullptr, nullptr, nullptr, -1, BM_FULL(tint_brightness)},
    {"opacity", "opacity of the glow in the blend", FieldType::kU32, 0, 255, 255, nullptr,
     nullptr, nullptr, nullptr, nullptr, -1, BM_FULL(blend_opacity)},
    {"weight-blur", "weight of the blurred blend in the final mix", FieldType::kF32, 0, 1, 0,
     nullptr, nullptr, BlackMistWeightBlur, "from --strength (0.27 for 1)", nullptr, -1,
     BM_FULL(weight_blur)},
    {"weight-src", "weight of the sharp blend in the final mix", FieldType::kF32, 0, 1, 0,
     nullptr, nullptr, BlackMistWeightSrc, "from --strength (0.73 for 1)", nullptr, -1,
     BM_FULL(weight_src)},
    {"tone-mapping", "lift shadows and dip upper mid-tones before blending", FieldType::kU8, 0,
     1, 0, nullptr, nullptr, nullptr, nullptr, kOnOff, -1, BM_FULL(use_tone_mapping)},
    {"keep-saturation", "keep the colour of saturated highlights", FieldType::kU8, 0, 1, 1,
     nullptr, nullptr, nullptr, nullptr, kOnOff, -1, BM_FULL(keep_saturation)},
    {"blur-blended", "blur the blended picture and mix it back", FieldType::kU8, 0, 1, 1,
     nullptr, nullptr, nullptr, nullptr, kOnOff, -1, BM_FULL(blur_blended)},
    {"blend-blur-radius", "radius of that second blur, in pixels", FieldType::kF32, 0, kNoMax,
     0, MaxSideEighth, "max(w,h)/8", BlackMistBlendRadius, "max(w,h)/8*0.06", nullptr, -1,
     BM_FULL(blend_blur_radius)},
    {"blend-mode", "how the glow is laid over the picture (5 = screen)", FieldType::kI32, 0,
     28, 5, nullptr, nullptr, nullptr, nullptr, nullptr, -1, BM_FULL(blend_mode)},
    {"output-mode", "what is delivered: glow only, blurred blend, result or the source",
     FieldType::kI32, 0, 3, 2, nullptr, nullptr, nullptr, nullptr, kBlackMistOutputs, -1,
     BM_FULL(output_mode)},
};

const FixedField kBlackMistFixed[] = {
    {FieldType::kF32, 1.0, -1, BM_FULL(reserved_f)},
    {FieldType::kI32, 1, -1, BM_FULL(reserved_i)},
};

#undef BM_BASIC
#undef BM_FULL

// ---- Halation --------------------------------------------------------------------------------

using Vantyx::HalationParams;
using Vantyx::HalationParamsEx;

const char* const kHalationViews[] = {"highlight",  "blurred-red", "red-curve", "blurred-green",
                                      "green-curve", "compare",     "midtone-key", "midtone",
                                      "visible",    "result",      nullptr};

#define HA_BASIC(field) int32_t(offsetof(HalationParams, field))
#define HA_FULL(field) int32_t(offsetof(HalationParamsEx, field))

const OptionSpec kHalationOptions[] = {
    {"opacity", "opacity of the glow over the picture", FieldType::kU32, 0, 255, 255, nullptr,
     nullptr, nullptr, nullptr, nullptr, HA_BASIC(opacity), HA_FULL(opacity)},
    {"highlight-threshold", "luma where the glowing highlights start", FieldType::kU32, 0, 255,
     203, nullptr, nullptr, nullptr, nullptr, nullptr, HA_BASIC(highlight_threshold),
     HA_FULL(highlight_threshold)},
    {"radius", "gaussian blur radius of the glow, in half-size pixels", FieldType::kI32, 0, 4096,
     36, nullptr, nullptr, nullptr, nullptr, nullptr, HA_BASIC(blur_radius), HA_FULL(blur_radius)},
    {"midtone-threshold", "luma where the midtone layer reaches full strength", FieldType::kU32, 0,
     255, 216, nullptr, nullptr, nullptr, nullptr, nullptr, HA_BASIC(midtone_threshold),
     HA_FULL(midtone_threshold)},
    {"curve-strength", "how strongly the red of the glow is lifted", FieldType::kU32, 20, 100, 50,
     nullptr, nullptr, nullptr, nullptr, nullptr, HA_BASIC(curve_strength),
     HA_FULL(curve_strength)},
    {"show-threshold", "luma above which the glow fades out (0: no glow)", FieldType::kU32, 0, 255,
     203, nullptr, nullptr, nullptr, nullptr, nullptr, HA_BASIC(show_threshold),
     HA_FULL(show_threshold)},
    {"keyer-gain", "red gain of the highlight key", FieldType::kF32, 0, 16, 1, nullptr, nullptr,
     nullptr, nullptr, nullptr, -1, HA_FULL(keyer_gain)},
    {"tone-mapping", "reshape the red and green of the glow by tone curves", FieldType::kU8, 0, 1,
     1, nullptr, nullptr, nullptr, nullptr, kOnOff, -1, HA_FULL(tone_mapping)},
    {"show-blur-mask", "deliver the glow mask instead of the result", FieldType::kU8, 0, 1, 0,
     nullptr, nullptr, nullptr, nullptr, kOnOff, -1, HA_FULL(show_blur_mask)},
    {"blend-mode", "how the glow is laid over the picture (4 = lighten)", FieldType::kI32, 0, 22,
     4, nullptr, nullptr, nullptr, nullptr, nullptr, -1, HA_FULL(blend_mode)},
    {"debug-view", "which intermediate is delivered", FieldType::kI32, 0, 9, 9, nullptr, nullptr,
     nullptr, nullptr, kHalationViews, -1, HA_FULL(debug_view)},
};

// Stored by the library and read by no stage; the full call carries the reset value.
const FixedField kHalationFixed[] = {
    {FieldType::kU32, 36, -1, HA_FULL(blur_radius_2)},
};

#undef HA_BASIC
#undef HA_FULL

// ---- Infrared --------------------------------------------------------------------------------

using Vantyx::InfraredParams;
using Vantyx::InfraredParamsEx;

// The band the basic call loads for presets 0 and 1; any other preset keeps the band a new
// effect starts with. The full call takes these as its defaults, so that it renders what the
// basic call does.
struct InfraredBand {
  float range, start, threshold;
};
InfraredBand BandOfPreset(const FrameContext& f) {
  switch (int32_t(OptionValue(f, "preset"))) {
    case 0: return {0.35f, 0.11388889f, 0.1f};
    case 1: return {0.38611111f, 0.15555556f, 0.1f};
    default: return {0.3f, 0.12f, 0.2f};
  }
}
double InfraredRange(const FrameContext& f) { return double(BandOfPreset(f).range); }
double InfraredStart(const FrameContext& f) { return double(BandOfPreset(f).start); }
double InfraredThreshold(const FrameContext& f) { return double(BandOfPreset(f).threshold); }

// The views by their codes; codes without a view ("") deliver the picture unchanged.
const char* const kInfraredViews[] = {"hue-band", "blurred",    "", "", "", "adjusted", "", "", "",
                                      "result",   "background", "saturated", "tone-mapped", nullptr};

#define IR_BASIC(field) int32_t(offsetof(InfraredParams, field))
#define IR_FULL(field) int32_t(offsetof(InfraredParamsEx, field))

const OptionSpec kInfraredOptions[] = {
    {"opacity", "opacity of the result over the picture", FieldType::kU32, 0, 255, 255, nullptr,
     nullptr, nullptr, nullptr, nullptr, IR_BASIC(opacity), IR_FULL(opacity)},
    {"hue-shift", "where the band's colours move to (a fraction of the circle)", FieldType::kF32,
     0, 1, 0.9, nullptr, nullptr, nullptr, nullptr, nullptr, IR_BASIC(hue_shift),
     IR_FULL(hue_shift)},
    {"saturation", "saturation added to the band", FieldType::kF32, -1, 1, 0, nullptr, nullptr,
     nullptr, nullptr, nullptr, IR_BASIC(saturation), IR_FULL(saturation)},
    {"luminance", "brightness added to the band", FieldType::kF32, -1, 1, 0, nullptr, nullptr,
     nullptr, nullptr, nullptr, IR_BASIC(luminance), IR_FULL(luminance)},
    {"hue-tolerance", "how far from the band colours keep some saturation", FieldType::kU32, 0,
     360, 20, nullptr, nullptr, nullptr, nullptr, nullptr, IR_BASIC(hue_tolerance),
     IR_FULL(hue_tolerance)},
    {"preset", "band preset: 0 or 1 (1 also tone-maps the background), 2 a new effect's band",
     FieldType::kU32, 0, 2, 0, nullptr, nullptr, nullptr, nullptr, nullptr, IR_BASIC(preset),
     IR_FULL(preset)},
    {"hue-start", "lower end of the band (a fraction of the circle)", FieldType::kF32, 0, 1, 0,
     nullptr, nullptr, InfraredStart, "from --preset (0.11388889 for 0)", nullptr, -1,
     IR_FULL(hue_start)},
    {"hue-range", "width of the band (a fraction of the circle; 1 keeps every colour)",
     FieldType::kF32, 0, 1, 0, nullptr, nullptr, InfraredRange, "from --preset (0.35 for 0)",
     nullptr, -1, IR_FULL(hue_range)},
    {"saturation-threshold", "band pixels less saturated than this are dropped", FieldType::kF32,
     0, 1, 0, nullptr, nullptr, InfraredThreshold, "from --preset (0.1 for 0)", nullptr, -1,
     IR_FULL(saturation_threshold)},
    {"show-original", "deliver the picture unchanged", FieldType::kU32, 0, 1, 0, nullptr, nullptr,
     nullptr, nullptr, kOnOff, -1, IR_FULL(show_original)},
    {"blend-mode", "how the result is laid over the picture (22 = colour)", FieldType::kI32, 0, 22,
     22, nullptr, nullptr, nullptr, nullptr, nullptr, -1, IR_FULL(blend_mode)},
    {"debug-view", "which intermediate is delivered", FieldType::kI32, 0, 12, 9, nullptr, nullptr,
     nullptr, nullptr, kInfraredViews, -1, IR_FULL(debug_view)},
};

// Stored by the library and read by no stage; the full call carries the reset value.
const FixedField kInfraredFixed[] = {
    {FieldType::kU32, 1, -1, IR_FULL(flag)},
};

#undef IR_BASIC
#undef IR_FULL

// ---- Amberfade -------------------------------------------------------------------------------

using Vantyx::AmberfadeFullParam;
using Vantyx::AmberfadeParam;

const char* const kAmberfadeLooks[] = {"warm", "cool", nullptr};
const char* const kAmberfadeOutputs[] = {"glow", "blurred", "result", "source", nullptr};

double MaxSide(const FrameContext& f) { return double(std::max(f.width, f.height)); }
// What the basic call stores; with --derive on (the default) the intensity decides instead.
double AmberfadeGlowRadius(const FrameContext& f) { return double(float(MaxSide(f)) * 0.21f * 0.125f); }
double AmberfadeResultRadius(const FrameContext& f) { return double(float(MaxSide(f)) * 0.125f); }
// The basic call's contrast: 0.7 in the cool look, none in the warm one.
double AmberfadeContrast(const FrameContext& f) {
  return OptionValue(f, "look") != 0 ? double(0.7f) : 1.0;
}

#define AF_BASIC(field) int32_t(offsetof(AmberfadeParam, field))
#define AF_FULL(field) int32_t(offsetof(AmberfadeFullParam, field))

// "look" is a byte in the basic record and an int32 in the full one; records start zeroed, so
// the byte written at the int32's (little-endian) address is its value.
const OptionSpec kAmberfadeOptions[] = {
    {"intensity", "strength of the glow (gain, radius and threshold follow it)", FieldType::kF32,
     0, 5, 1.0, nullptr, nullptr, nullptr, nullptr, nullptr, AF_BASIC(intensity),
     AF_FULL(intensity)},
    {"colour", "cool look: bluer glow and mix; warm look: temperature (colour x 1000 + 5000 K)",
     FieldType::kF32, -1, 2, 0, nullptr, nullptr, nullptr, nullptr, nullptr, AF_BASIC(colour),
     AF_FULL(colour)},
    {"gamma", "gamma on luma (1 = off, lower darkens the mid-tones)", FieldType::kF32, 0, 1, 1,
     nullptr, nullptr, nullptr, nullptr, nullptr, AF_BASIC(gamma), AF_FULL(gamma)},
    {"look", "cool (blurred, blue-weighted) or warm (tone-mapped glow, colour temperature)",
     FieldType::kU8, 0, 1, 1, nullptr, nullptr, nullptr, nullptr, kAmberfadeLooks,
     AF_BASIC(cool_look), AF_FULL(cool_look)},
    {"derive", "take gain, radius and threshold from --intensity", FieldType::kI32, 0, 1, 1,
     nullptr, nullptr, nullptr, nullptr, kOnOff, -1, AF_FULL(derive_from_intensity)},
    {"gain", "gain of the glow's light curve (with --derive off)", FieldType::kF32, 0, 2, 0.33,
     nullptr, nullptr, nullptr, nullptr, nullptr, -1, AF_FULL(hlr_gain)},
    {"radius", "blur radius of the glow, in pixels (with --derive off)", FieldType::kF32, 0,
     kNoMax, 0, MaxSideEighth, "max(w,h)/8", AmberfadeGlowRadius, "max(w,h)*0.21/8", nullptr, -1,
     AF_FULL(blur_radius)},
    {"threshold", "brightness where the glow starts (with --derive off)", FieldType::kI32, -255,
     255, 160, nullptr, nullptr, nullptr, nullptr, nullptr, -1, AF_FULL(hlr_threshold)},
    {"contrast", "contrast factor of the picture (1 = off, lower fades)", FieldType::kF32, 0, 4,
     0, nullptr, nullptr, AmberfadeContrast, "0.7 cool, 1 warm", nullptr, -1, AF_FULL(contrast)},
    {"adjust-colour", "shift the glow's blue and red by --colour (cool look)", FieldType::kU8, 0,
     1, 1, nullptr, nullptr, nullptr, nullptr, kOnOff, -1, AF_FULL(adjust_colour_on)},
    {"blur-result", "blur the blend and mix it with its blue-weighted copy (cool look)",
     FieldType::kU8, 0, 1, 1, nullptr, nullptr, nullptr, nullptr, kOnOff, -1,
     AF_FULL(blur_result_on)},
    {"result-radius", "radius of that blur, in pixels", FieldType::kF32, 0, kNoMax, 0, nullptr,
     nullptr, AmberfadeResultRadius, "max(w,h)/8", nullptr, -1, AF_FULL(result_blur_radius)},
    {"weight-tint", "weight of the blue-weighted blur in the final mix", FieldType::kF32, 0, 1,
     0.27, nullptr, nullptr, nullptr, nullptr, nullptr, -1, AF_FULL(weight_tint)},
    {"weight-result", "weight of the blend in the final mix", FieldType::kF32, 0, 1, 0.73,
     nullptr, nullptr, nullptr, nullptr, nullptr, -1, AF_FULL(weight_result)},
    {"blend-mode", "how the glow is laid over the picture (5 = screen)", FieldType::kI32, 0, 28,
     5, nullptr, nullptr, nullptr, nullptr, nullptr, -1, AF_FULL(blend_mode)},
    {"output-mode", "what is delivered: glow only, blurred blend, result or the source",
     FieldType::kI32, 0, 3, 2, nullptr, nullptr, nullptr, nullptr, kAmberfadeOutputs, -1,
     AF_FULL(output_mode)},
};

#undef AF_BASIC
#undef AF_FULL

template <class T, size_t N>
constexpr size_t Count(const T (&)[N]) {
  return N;
}

}  // namespace

const std::vector<EffectSpec>& Effects() {
  using BlackMistCalls =
      FamilyCalls<Vantyx::BlackMistFull, BlackMistParam, BlackMistFullParam>;
  using HalationCalls = FamilyCalls<Vantyx::HalationFull, HalationParams, HalationParamsEx>;
  using InfraredCalls = FamilyCalls<Vantyx::InfraredFull, InfraredParams, InfraredParamsEx>;
  using AmberfadeCalls = FamilyCalls<Vantyx::AmberfadeFull, AmberfadeParam, AmberfadeFullParam>;
  static const std::vector<EffectSpec> effects = {
      {"blackmist", "BlackMist",
       "highlights isolated, softened at half size and laid back over the picture",
       Vantyx::EFFECT_BLACKMIST, sizeof(BlackMistParam), sizeof(BlackMistFullParam),
       offsetof(BlackMistParam, process_rect), offsetof(BlackMistFullParam, process_rect),
       kBlackMistOptions, Count(kBlackMistOptions), kBlackMistFixed, Count(kBlackMistFixed),
       BlackMistCalls::SetImageSize, BlackMistCalls::Process, BlackMistCalls::ProcessFull},
      {"halation", "Halation", "a red-and-green glow around bright areas",
       Vantyx::EFFECT_HALATION, sizeof(HalationParams), sizeof(HalationParamsEx),
       offsetof(HalationParams, process_rect), offsetof(HalationParamsEx, process_rect),
       kHalationOptions, Count(kHalationOptions), kHalationFixed, Count(kHalationFixed),
       HalationCalls::SetImageSize, HalationCalls::Process, HalationCalls::ProcessFull},
      {"infrared", "Infrared", "one hue band recoloured over the rest of the picture",
       Vantyx::EFFECT_INFRARED, sizeof(InfraredParams), sizeof(InfraredParamsEx),
       offsetof(InfraredParams, process_rect), offsetof(InfraredParamsEx, process_rect),
       kInfraredOptions, Count(kInfraredOptions), kInfraredFixed, Count(kInfraredFixed),
       InfraredCalls::SetImageSize, InfraredCalls::Process, InfraredCalls::ProcessFull},
      {"amberfade", "Amberfade", "a faded film look: soft glow, contrast, gamma and colour",
       Vantyx::EFFECT_AMBERFADE, sizeof(AmberfadeParam), sizeof(AmberfadeFullParam),
       offsetof(AmberfadeParam, process_rect), offsetof(AmberfadeFullParam, process_rect),
       kAmberfadeOptions, Count(kAmberfadeOptions), nullptr, 0, AmberfadeCalls::SetImageSize,
       AmberfadeCalls::Process, AmberfadeCalls::ProcessFull},
  };
  return effects;
}

const EffectSpec* FindEffect(const std::string& name) {
  for (const EffectSpec& effect : Effects()) {
    if (name == effect.name) return &effect;
  }
  return nullptr;
}

int32_t FindOption(const EffectSpec& effect, const std::string& name) {
  for (size_t i = 0; i < effect.option_count; ++i) {
    if (name == effect.options[i].name) return int32_t(i);
  }
  return -1;
}

int32_t FindChoice(const OptionSpec& option, const std::string& name) {
  for (int32_t i = 0; option.choices && option.choices[i]; ++i) {
    if (*option.choices[i] && name == option.choices[i]) return i;  // "" names no value
  }
  return -1;
}

double OptionValue(const FrameContext& frame, const char* name) {
  const int32_t index = FindOption(*frame.effect, name);
  return index < 0 ? 0.0 : (*frame.values)[size_t(index)];
}

double OptionMax(const OptionSpec& option, const FrameContext& frame) {
  return option.frame_max ? option.frame_max(frame) : option.max;
}

std::vector<double> ResolveValues(const EffectSpec& effect, const std::vector<bool>& given,
                                  const std::vector<double>& values, int32_t width,
                                  int32_t height) {
  std::vector<double> resolved(effect.option_count, 0.0);
  const FrameContext frame{width, height, &effect, &resolved};
  for (size_t i = 0; i < effect.option_count; ++i) {
    const OptionSpec& option = effect.options[i];
    if (i < given.size() && given[i]) {
      resolved[i] = values[i];
    } else {
      resolved[i] = option.derive_default ? option.derive_default(frame) : option.default_value;
    }
  }
  return resolved;
}

bool NeedsFullCall(const EffectSpec& effect, const std::vector<bool>& given) {
  for (size_t i = 0; i < effect.option_count && i < given.size(); ++i) {
    if (given[i] && effect.options[i].basic_offset < 0) return true;
  }
  return false;
}

}  // namespace VantyxTool
