#include "frei0r_params.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace VantyxFrei0r {

namespace {

using VantyxTool::EffectSpec;
using VantyxTool::FieldType;
using VantyxTool::FrameContext;
using VantyxTool::OptionSpec;

// Full-call options every plugin shows after the basic call's, where the effect has them.
const char* const kCommonFullOptions[] = {"opacity", "blend-mode", "output-mode"};

// Further full-call options a plugin shows, in this order. editor_max is the top of the host's
// 0..1 for an option the table leaves unbounded (an unbounded option without one is not shown).
struct ExtraOption {
  const char* effect;
  const char* option;
  double editor_max;
};
const ExtraOption kExtraOptions[] = {
    {"blackmist", "tint-amount", 1.0},  // above 1 only overshoots the tint colour
    {"blackmist", "tint-hue", 0.0},
    {"blackmist", "tone-mapping", 0.0},
    {"amberfade", "contrast", 0.0},
};

std::string Number(double value) {
  char text[48];
  std::snprintf(text, sizeof(text), "%g", value);
  return text;
}

int32_t ChoiceCount(const OptionSpec& option) {
  int32_t n = 0;
  while (option.choices && option.choices[n]) ++n;
  return n;
}

bool IsInteger(const OptionSpec& option) { return option.type != FieldType::kF32; }

double Top(const PluginParam& param, const OptionSpec& option, const FrameContext& frame) {
  if (!option.frame_max && std::isinf(option.max)) return param.editor_max;
  return VantyxTool::OptionMax(option, frame);
}

std::string Explain(const OptionSpec& option, ParamKind kind, double editor_max) {
  std::string text = option.help;
  if (kind == ParamKind::kChoice) {
    text += " (";
    const int32_t n = ChoiceCount(option);
    for (int32_t i = 0; i < n; ++i)
      text += std::string(i == 0 ? "" : i + 1 == n ? " or " : ", ") + option.choices[i];
    text += ", or 0.." + Number(n - 1) + ")";
  } else if (kind == ParamKind::kScaled) {
    const std::string top = option.frame_max     ? option.max_text
                            : std::isinf(option.max) ? Number(editor_max)
                                                     : Number(option.max);
    if (IsInteger(option) || option.min != 0.0 || top != "1")
      text += " (0..1 spans " + Number(option.min) + ".." + top +
              (IsInteger(option) ? ", rounded)" : ")");
  }
  return text;
}

void Add(const EffectSpec& effect, int32_t index, double editor_max, PluginDesc* desc) {
  for (const PluginParam& p : desc->params)
    if (p.option == index) return;
  const OptionSpec& option = effect.options[index];
  const int32_t choices = ChoiceCount(option);
  const ParamKind kind = choices == 2 ? ParamKind::kBool
                         : choices > 0 ? ParamKind::kChoice
                                       : ParamKind::kScaled;
  if (kind == ParamKind::kScaled && !option.frame_max && std::isinf(option.max) &&
      !(editor_max > option.min))
    return;
  desc->params.push_back(PluginParam{index, kind, editor_max, Explain(option, kind, editor_max)});
}

}  // namespace

PluginDesc DescribePlugin(const std::string& effect_name) {
  PluginDesc desc;
  desc.name = "vantyx_" + effect_name;
  desc.effect = VantyxTool::FindEffect(effect_name);
  if (!desc.effect) return desc;
  const EffectSpec& effect = *desc.effect;
  desc.title = std::string("Vantyx ") + effect.title;
  for (size_t i = 0; i < effect.option_count; ++i)
    if (effect.options[i].basic_offset >= 0) Add(effect, int32_t(i), 0.0, &desc);
  for (size_t i = 0; i < effect.option_count; ++i)
    for (const char* name : kCommonFullOptions)
      if (std::strcmp(effect.options[i].name, name) == 0) Add(effect, int32_t(i), 0.0, &desc);
  for (const ExtraOption& extra : kExtraOptions) {
    const int32_t index = effect_name == extra.effect ? VantyxTool::FindOption(effect, extra.option) : -1;
    if (index >= 0) Add(effect, index, extra.editor_max, &desc);
  }
  return desc;
}

bool OptionFromHost(const PluginParam& param, const EffectSpec& effect, const FrameContext& frame,
                    double host, double* value) {
  if (std::isnan(host)) return false;
  const OptionSpec& option = effect.options[param.option];
  if (param.kind == ParamKind::kBool) {
    *value = host >= 0.5 ? 1.0 : 0.0;  // frei0r: [0, 0.5[ is false
    return true;
  }
  const double t = std::clamp(host, 0.0, 1.0);
  const double low = option.min, high = std::max(Top(param, option, frame), low);
  const double v = low + t * (high - low);
  *value = IsInteger(option) ? std::floor(v + 0.5) : v;
  return true;
}

bool OptionFromText(const PluginParam& param, const EffectSpec& effect, const char* text,
                    double* value) {
  if (!text) return false;
  const OptionSpec& option = effect.options[param.option];
  for (int32_t i = 0; option.choices && option.choices[i]; ++i) {
    if (std::strcmp(text, option.choices[i]) == 0) {
      *value = i;
      return true;
    }
  }
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(text, &end, 10);
  if (end == text || *end != '\0') return false;
  *value = std::clamp(double(v), option.min, option.max);  // ERANGE gives the extremes: clamped too
  return true;
}

double HostFromOption(const PluginParam& param, const EffectSpec& effect, const FrameContext& frame,
                      double value) {
  const OptionSpec& option = effect.options[param.option];
  if (param.kind != ParamKind::kScaled) return value;
  const double low = option.min, high = Top(param, option, frame);
  return high > low ? std::clamp((value - low) / (high - low), 0.0, 1.0) : 0.0;
}

}  // namespace VantyxFrei0r
